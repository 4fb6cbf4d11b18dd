#include "frontend/fields.h"

#include <climits>

#include "frontend/texts.h"
#include "src/userError.h"

namespace {

Value textOf(std::string_view text) { return {!text.empty(), text}; }

template <typename Number>
Value numberOf(const std::optional<Number>& number) {
  return {number.has_value(), {}, static_cast<std::uint64_t>(number.value_or(0))};
}

Value lineOf(int line) { return {line > 0, {}, static_cast<std::uint64_t>(line)}; }

Value linkageOf(const std::optional<Linkage>& linkage) {
  if (!linkage) return {};
  if (*linkage == Linkage::External) return textOf("external");
  return textOf(*linkage == Linkage::Internal ? "internal" : "function");
}

bool setText(std::string_view& text, const Value& value) {
  text = value.text;
  return true;
}

template <typename Number>
bool setNumber(std::optional<Number>& number, const Value& value) {
  number.reset();
  if (value.known) number = static_cast<Number>(value.number);
  return true;
}

bool setLine(int& line, const Value& value) {
  if (value.number > INT_MAX) return false;
  line = static_cast<int>(value.number);
  return true;
}

bool setLinkage(std::optional<Linkage>& linkage, const Value& value) {
  linkage.reset();
  for (const Linkage candidate : {Linkage::External, Linkage::Internal, Linkage::Function}) {
    if (value.known && linkageOf(candidate).text == value.text) linkage = candidate;
  }
  return linkage.has_value() || !value.known;
}

}  // namespace

const std::array<Field<Row>, 11> variableFields{{
    {{"executable", "Executable", Kind::Text, "the program, by the name under which it was read"},
     [](const Row& row) { return textOf(row.program->executable); }},
    {{"name", "Name", Kind::Text, "with all enclosing namespaces, classes and functions"},
     [](const Row& row) { return textOf(row.variable->name); },
     [](Variable& variable, const Value& value) { return setText(variable.name, value); }},
    {{"type", "Type", Kind::Text, "as C or C++ declares it"},
     [](const Row& row) { return textOf(row.variable->type); },
     [](Variable& variable, const Value& value) { return setText(variable.type, value); }},
    {{"size", "Size", Kind::Bytes, "bytes"},
     [](const Row& row) { return numberOf(row.variable->size); },
     [](Variable& variable, const Value& value) { return setNumber(variable.size, value); }},
    {{"section", "Section", Kind::Text, "the section that holds it, such as .data or .bss"},
     [](const Row& row) { return textOf(row.variable->section); },
     [](Variable& variable, const Value& value) { return setText(variable.section, value); }},
    {{"writable", "Writable", Kind::Flag, "whether the program can write to it at run time"},
     [](const Row& row) { return numberOf(row.variable->writable); },
     [](Variable& variable, const Value& value) { return setNumber(variable.writable, value); }},
    {{"thread_local", "Thread-local", Kind::Flag, "whether each thread has its own"},
     [](const Row& row) { return numberOf(row.variable->threadLocal); },
     [](Variable& variable, const Value& value) { return setNumber(variable.threadLocal, value); }},
    {{"linkage", "Linkage", Kind::Text, "external, internal, or function (a static of a function)"},
     [](const Row& row) { return linkageOf(row.variable->linkage); },
     [](Variable& variable, const Value& value) { return setLinkage(variable.linkage, value); }},
    {{"file", "File", Kind::Text, "source file of the definition"},
     [](const Row& row) { return textOf(row.variable->file); },
     [](Variable& variable, const Value& value) { return setText(variable.file, value); }},
    {{"line", "Line", Kind::Number, "line of the definition"},
     [](const Row& row) { return lineOf(row.variable->line); },
     [](Variable& variable, const Value& value) { return setLine(variable.line, value); }},
    {{"address", "Address", Kind::Address,
      "in the executable; for a thread-local variable, the offset in the TLS block"},
     [](const Row& row) { return numberOf(row.variable->address); },
     [](Variable& variable, const Value& value) { return setNumber(variable.address, value); }},
}};

const Field<Row> placeField{
    {"place", "Place", Kind::Place, "file and line of the definition"}, [](const Row& row) {
      return Value{!row.variable->file.empty(), row.variable->file, lineOf(row.variable->line).number};
    }};

int compareValues(Kind kind, const Value& a, const Value& b) {
  if (kind == Kind::Text) return a.text.compare(b.text);
  if (a.number == b.number) return 0;
  return a.number < b.number ? -1 : 1;
}

void refuseColumn(std::string_view name, const std::vector<std::string_view>& columns) {
  std::string message = "unknown column \"" + std::string(name) + "\"";
  const std::string_view near = nearestWord(name, columns);
  message += near.empty() ? "." : "; did you mean " + std::string(near) + "?";
  message += " The columns are ";
  for (std::size_t i = 0; i < columns.size(); ++i) message.append(i > 0 ? ", " : "").append(columns[i]);
  throw UsageError(message);
}

std::vector<std::string> splitList(std::string_view text) {
  std::vector<std::string> parts;
  for (std::size_t start = 0, end = 0; end != std::string_view::npos; start = end + 1) {
    end = text.find(',', start);
    parts.emplace_back(text.substr(start, end - start));
  }
  return parts;
}
