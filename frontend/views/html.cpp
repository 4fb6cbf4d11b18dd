#include "frontend/views/html.h"

#include <zlib.h>

#include <algorithm>
#include <array>
#include <bit>
#include <nlohmann/json.hpp>
#include <numeric>
#include <utility>

#include "frontend/sums.h"
#include "frontend/texts.h"
#include "frontend/views/reportTemplate.h"
#include "src/userError.h"

namespace {

using Json = nlohmann::ordered_json;

// Marks in the template, each there once.
constexpr std::string_view titleMark = "@TITLE@";
constexpr std::string_view dataMark = "@DATA@";

// Numbers of any size in the fewest bytes: seven bits a byte, the lowest first, the top bit set in all but the last.
void appendNumber(std::string& bytes, std::uint64_t number) {
  for (; number > 0x7f; number >>= 7) bytes += static_cast<char>(0x80 | (number & 0x7f));
  bytes += static_cast<char>(number);
}

bool isSame(const Value& a, const Value& b) { return a.number == b.number && a.text == b.text; }

std::size_t hashOf(const Value& value) {
  constexpr std::uint64_t spread = 0x9e3779b97f4a7c15;  // 2^64 divided by the golden ratio
  return (std::hash<std::string_view>()(value.text) + value.number) * spread;
}

// A column as a dictionary: its known values, each once and in ascending order, and for each row the number of its
// value among them, from 1; 0 when it is not known.
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

// Gives each value the number of its place in a growing list of different ones. A hash table without nodes: those of
// std::unordered_map take longer than all the rest.
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

// A line for each value: of a number, its difference from the one before. No text holds a newline once it may be shown.
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

// Where each row begins when all are laid out one after the other and only those that share bytes overlap. So the page
// can count bytes of any part of the rows once, as sumsBy does.
std::vector<Value> layOut(const std::vector<Row>& rows) {
  std::vector<Value> begins;
  const Variable* before = nullptr;  // with an address
  const Inventory* program = nullptr;
  std::uint64_t limit = 0;  // address at which the bytes of those before end
  std::uint64_t begin = 0;
  std::uint64_t end = 0;
  for (const Row& row : rows) {
    const Variable& variable = *row.variable;
    const std::uint64_t size = variable.size.value_or(0);
    const bool isNext = before != nullptr && program == row.program && before->section == variable.section &&
                        variable.address && *variable.address >= *before->address;
    const bool overlaps = isNext && *variable.address < limit;
    begin = overlaps ? begin + (*variable.address - *before->address) : end;
    begins.push_back({true, {}, begin});
    end = std::max(end, begin + size);
    before = variable.address ? &variable : nullptr;
    program = row.program;
    if (before == nullptr) continue;
    const std::uint64_t last = size > UINT64_MAX - *before->address ? UINT64_MAX : *before->address + size;
    limit = overlaps ? std::max(limit, last) : last;
  }
  return begins;
}

// The fields of a variable, and what else they are grouped by.
std::vector<Field<Row>> pageFields() {
  std::vector<Field<Row>> fields(variableFields.begin(), variableFields.end());
  for (const Grouping& grouping : groupings) {
    const auto isSame = [&](const Field<Row>& field) { return field.name == grouping.name; };
    if (std::any_of(fields.begin(), fields.end(), isSame)) continue;
    fields.push_back(
        {{grouping.name, grouping.header, Kind::Text, "scopes around the name, functions left out"}, grouping.get});
  }
  return fields;
}

const char* nameOf(Kind kind) {
  constexpr std::array names{"text", "bytes", "count", "number", "flag", "address", "place"};
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

// All but the values themselves.
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

std::string deflated(const std::string& bytes) {
  uLongf size = compressBound(bytes.size());
  std::string result(size, '\0');
  const int status = compress2(reinterpret_cast<Bytef*>(result.data()), &size,
                               reinterpret_cast<const Bytef*>(bytes.data()), bytes.size(), Z_DEFAULT_COMPRESSION);
  if (status != Z_OK) throw UserError("the page cannot be compressed: there is not enough memory");
  result.resize(size);
  return result;
}

// RFC 4648, section 4.
void appendBase64(std::string& text, std::string_view bytes) {
  constexpr std::string_view digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  for (; !bytes.empty(); bytes.remove_prefix(std::min<std::size_t>(3, bytes.size()))) {
    std::uint32_t bits = 0;
    for (std::size_t i = 0; i < 3; ++i)
      bits = bits << 8 | (i < bytes.size() ? static_cast<unsigned char>(bytes[i]) : 0);
    for (std::size_t i = 0; i < 4; ++i) text += i <= bytes.size() ? digits[bits >> (18 - 6 * i) & 0x3f] : '=';
  }
}

std::string asHtml(std::string_view text) {
  std::string html;
  for (const char c : text) {
    const std::string_view replaced = c == '&' ? "&amp;" : c == '<' ? "&lt;" : c == '>' ? "&gt;" : "";
    if (replaced.empty()) html += c;
    html += replaced;
  }
  return html;
}

bool isAddressCharacter(char c) { return c > ' ' && c <= '~'; }

// `url` without its scheme and host; empty when it has none of those that are allowed.
std::string_view afterHost(std::string_view url) {
  for (const std::string_view scheme : {"http://", "https://", "vscode://"}) {
    if (!url.starts_with(scheme)) continue;
    const std::size_t end = url.find_first_of("/?#{}\\", scheme.size());
    if (end == std::string_view::npos || end == scheme.size()) return {};
    return url.substr(end);
  }
  return {};
}

bool hasOtherBraces(std::string url) {
  for (const std::string_view mark : {"{file}", "{line}"}) {
    for (std::size_t at = 0; (at = url.find(mark)) != std::string::npos;) url.erase(at, mark.size());
  }
  return url.find_first_of("{}") != std::string::npos;
}

}  // namespace

void checkSourceUrl(std::string_view url) {
  const std::string_view path = afterHost(url);
  const bool isAddress =
      !path.empty() && path.find_first_of("/?#") == 0 && std::all_of(url.begin(), url.end(), isAddressCharacter);
  if (isAddress && path.find("{file}") != std::string_view::npos && !hasOtherBraces(std::string(url))) return;
  throw UsageError(
      "--source-url \"" + std::string(url) +
      "\" is not an address that begins with http://, https:// or vscode:// and a host and has {file}, and "
      "perhaps {line}, after them, such as https://example.org/prog/blob/main/{file}#L{line}");
}

std::string makePage(const std::vector<const Inventory*>& programs, const std::vector<Row>& rows,
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
  appendColumn(bytes, Kind::Number, layOut(rows));
  const std::size_t title = reportTemplate.find(titleMark);
  const std::size_t data = reportTemplate.find(dataMark, title);
  std::string page(reportTemplate.substr(0, title));
  page += asHtml(shownText(options.title));
  page += reportTemplate.substr(title + titleMark.size(), data - title - titleMark.size());
  appendBase64(page, deflated(bytes));
  return page += reportTemplate.substr(data + dataMark.size());
}
