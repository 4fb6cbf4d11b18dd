#include "frontend/views/pageData.h"

#include <algorithm>
#include <array>
#include <bit>
#include <map>
#include <nlohmann/json.hpp>
#include <numeric>
#include <utility>

#include "frontend/sums.h"
#include "frontend/texts.h"

namespace {

using Json = nlohmann::ordered_json;

void appendNumber(std::string& bytes, std::uint64_t number) {
  for (; number > 0x7f; number >>= 7) bytes += static_cast<char>(0x80 | (number & 0x7f));
  bytes += static_cast<char>(number);
}

bool isSame(const Value& a, const Value& b) { return a.number == b.number && a.text == b.text; }

std::size_t hashOf(const Value& value) {
  constexpr std::uint64_t spread = 0x9e3779b97f4a7c15;  // 2^64 divided by the golden ratio
  return (std::hash<std::string_view>()(value.text) + value.number) * spread;
}

// A dictionary-encoded column: the distinct known values in ascending order, and for each row the number of its value,
// from 1; 0 if it is unknown.
struct CodedColumn {
  std::vector<Value> values;
  std::vector<std::uint32_t> codes;
};

void sortValues(CodedColumn& column, Kind kind) {
  const auto isLess = [kind](const Value& a, const Value& b) { return compareValues(kind, a, b) < 0; };
  if (std::is_sorted(column.values.begin(), column.values.end(), isLess)) return;
  std::vector<std::uint32_t> order(column.values.size());
  std::iota(order.begin(), order.end(), 0);
  std::sort(order.begin(), order.end(),
            [&](std::uint32_t a, std::uint32_t b) { return isLess(column.values[a], column.values[b]); });
  std::vector<Value> sorted;
  std::vector<std::uint32_t> codeOf(order.size() + 1);
  for (const std::uint32_t old : order) {
    sorted.push_back(column.values[old]);
    codeOf[old + 1] = static_cast<std::uint32_t>(sorted.size());
  }
  column.values = std::move(sorted);
  for (std::uint32_t& code : column.codes) code = codeOf[code];
}

// Collects distinct values and numbers them from 1. An open-addressing hash table, because the nodes of
// std::unordered_map would take most of the time.
class Coder {
 public:
  explicit Coder(std::size_t most)
      : slots_(std::bit_ceil(2 * most + 2)), shift_(64 - std::countr_zero(slots_.size())) {}

  std::uint32_t codeOf(const Value& value) {
    std::size_t at = hashOf(value) >> shift_;
    while (slots_[at] != 0 && !isSame(values[slots_[at] - 1], value)) at = (at + 1) % slots_.size();
    if (slots_[at] == 0) {
      values.push_back(value);
      slots_[at] = static_cast<std::uint32_t>(values.size());
    }
    return slots_[at];
  }

  std::vector<Value> values;

 private:
  std::vector<std::uint32_t> slots_;
  int shift_;
};

CodedColumn codeColumn(Kind kind, const std::vector<Value>& values) {
  Coder coder(values.size());
  CodedColumn column;
  column.codes.reserve(values.size());
  for (std::size_t i = 0; i < values.size(); ++i) {
    const bool isRepeated = i > 0 && values[i].known && values[i - 1].known && isSame(values[i], values[i - 1]);
    column.codes.push_back(isRepeated ? column.codes.back() : values[i].known ? coder.codeOf(values[i]) : 0);
  }
  column.values = std::move(coder.values);
  sortValues(column, kind);
  return column;
}

// A line for each value; for numbers, the difference from the previous one. shownText escapes newlines in texts.
std::string dictionaryText(const CodedColumn& column, Kind kind) {
  std::string text;
  std::uint64_t before = 0;
  for (const Value& value : column.values) {
    const std::uint64_t step = value.number - std::exchange(before, value.number);
    const bool isPlain = plainLength(value.text) == value.text.size();
    if (kind != Kind::Text) {
      text += std::to_string(step);
    } else if (isPlain) {
      text += value.text;
    } else {
      text += shownText(value.text);
    }
    text += '\n';
  }
  return text;
}

void appendColumn(std::string& bytes, Kind kind, const std::vector<Value>& values) {
  const CodedColumn column = codeColumn(kind, values);
  const std::string dictionary = dictionaryText(column, kind);
  appendNumber(bytes, dictionary.size());
  bytes += dictionary;
  std::uint32_t before = 0;
  for (const std::uint32_t code : column.codes) {
    const std::int64_t step = static_cast<std::int64_t>(code) - std::exchange(before, code);
    appendNumber(bytes, step < 0 ? static_cast<std::uint64_t>(-step) * 2 - 1 : static_cast<std::uint64_t>(step) * 2);
  }
}

// Lays out variables, given in address order, without gaps from 0; variables overlap only if they share bytes.
class Layout {
 public:
  std::uint64_t place(std::uint64_t address, std::uint64_t size) {
    const bool overlaps = address < limit_;
    const std::uint64_t last = size > UINT64_MAX - address ? UINT64_MAX : address + size;
    begin_ = overlaps ? begin_ + (address - address_) : end_;
    limit_ = overlaps ? std::max(limit_, last) : last;
    address_ = address;
    end_ = std::max(end_, begin_ + size);
    return begin_;
  }
  std::uint64_t append(std::uint64_t size) { return std::exchange(end_, end_ + size); }
  std::uint64_t end() const { return end_; }

 private:
  std::uint64_t address_ = 0;  // of the previous variable
  std::uint64_t limit_ = 0;    // end address of the bytes placed so far
  std::uint64_t begin_ = 0;
  std::uint64_t end_ = 0;
};

// The offset of each row when all sections of all programs are laid out one after the other. From these the page can
// count shared bytes of any subset of the rows once, as sumsBy does.
std::vector<Value> beginsOf(const std::vector<Row>& rows) {
  std::map<std::pair<const Inventory*, AddressSpace>, std::size_t> numbers;
  std::vector<Layout> layouts(1);  // the first is for variables without an address
  std::vector<std::size_t> layoutOf;
  std::vector<Value> begins;
  for (const Row& row : rows) {
    const Variable& variable = *row.variable;
    const std::uint64_t size = variable.size.value_or(0);
    std::size_t number = 0;
    if (variable.address) {
      number = numbers.try_emplace({row.program, addressSpaceOf(variable)}, layouts.size()).first->second;
    }
    if (number == layouts.size()) layouts.emplace_back();
    Layout& layout = layouts[number];
    begins.push_back({true, {}, variable.address ? layout.place(*variable.address, size) : layout.append(size)});
    layoutOf.push_back(number);
  }
  std::vector<std::uint64_t> offsets{0};
  for (const Layout& layout : layouts) offsets.push_back(offsets.back() + layout.end());
  for (std::size_t i = 0; i < begins.size(); ++i) begins[i].number += offsets[layoutOf[i]];
  return begins;
}

// The fields of a variable, and groupings that are not fields.
std::vector<Field<Row>> pageFields() {
  std::vector<Field<Row>> fields(variableFields.begin(), variableFields.end());
  for (const Grouping& grouping : groupings) {
    const auto isItsField = [&](const Field<Row>& field) { return field.name == grouping.name; };
    if (std::any_of(fields.begin(), fields.end(), isItsField)) continue;
    fields.push_back(
        {{grouping.name, grouping.header, Kind::Text, "enclosing scopes, without functions"}, grouping.get});
  }
  return fields;
}

const char* nameOf(Kind kind) {
  constexpr std::array names{"text", "bytes", "count", "number", "flag", "address", "delta", "place"};
  return names.at(static_cast<std::size_t>(kind));
}

Json programDescription(const Inventory& program) {
  Json sections = Json::array();
  for (const Section& section : program.sections) {
    sections.push_back({{"name", shownText(section.name)}, {"size", section.size}});
  }
  return {{"path", shownText(program.executable)},
          {"build_id", shownText(program.buildId)},
          {"directory", shownText(program.directory)},
          {"sections", sections}};
}

// The description of the page: everything except the values, as JSON.
std::string description(const std::vector<const Inventory*>& programs, const std::vector<Field<Row>>& fields,
                        std::size_t rows, const PageOptions& options) {
  Json page{{"title", shownText(options.title)}, {"rows", rows},           {"whole", options.isWhole},
            {"source", options.sourceUrl},       {"notes", Json::array()}, {"programs", Json::array()},
            {"groupings", Json::array()},        {"fields", Json::array()}};
  for (const std::string& note : options.notes) page["notes"].push_back(shownText(note));
  for (const Inventory* program : programs) page["programs"].push_back(programDescription(*program));
  for (const Grouping& grouping : groupings) page["groupings"].push_back(grouping.name);
  for (const Field<Row>& field : fields) {
    page["fields"].push_back(
        {{"name", field.name}, {"header", field.header}, {"kind", nameOf(field.kind)}, {"meaning", field.meaning}});
  }
  return page.dump();
}

}  // namespace

std::string pageData(const std::vector<const Inventory*>& programs, const std::vector<Row>& rows,
                     const PageOptions& options) {
  const std::vector<Field<Row>> fields = pageFields();
  const std::string head = description(programs, fields, rows.size(), options);
  std::string bytes;
  appendNumber(bytes, head.size());
  bytes += head;
  std::vector<Value> values(rows.size());
  for (const Field<Row>& field : fields) {
    std::transform(rows.begin(), rows.end(), values.begin(), field.get);
    appendColumn(bytes, field.kind, values);
  }
  appendColumn(bytes, Kind::Number, beginsOf(rows));
  return bytes;
}
