// Writes changes as Markdown for a GitHub comment. Used by `diff`.
#include "frontend/texts.h"
#include "frontend/views/changes.h"

namespace {

// GitHub accepts 65,536 characters; this leaves room for text that a workflow adds.
constexpr std::size_t mostBytes = 60'000;

constexpr std::size_t longestText = 120;  // characters of a name or type

// `text` cut to longestText characters, with an ellipsis if something was cut.
std::string cut(std::string_view text) {
  std::size_t end = 0;
  for (std::size_t count = 0; end < text.size() && count < longestText; ++count) {
    end += firstCharacter(text.substr(end)).length;
  }
  return std::string(text.substr(0, end)) + (end < text.size() ? "\u2026" : "");
}

bool isPlain(char c) {
  return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == ' ' || (c & 0x80) != 0;
}

// `text` as code without active markup: a code span, or <code> if a code span in a table cannot contain it.
std::string code(std::string_view text) {
  const std::string shortened = cut(shownText(text));
  if (shortened.find_first_of("`|\\") == std::string::npos) return "`" + shortened + "`";
  std::string entities = "<code>";
  for (const char c : shortened) {
    if (isPlain(c)) {
      entities += c;
    } else {
      entities += "&#" + std::to_string(static_cast<int>(c)) + ";";
    }
  }
  return entities + "</code>";
}

std::string cell(const Value& value, const Column& column) {
  if (!value.known) return "?";
  if (column.name == "change" || column.kind == Kind::Delta) return std::string(value.text);
  if (column.kind == Kind::Bytes) return withSeparators(value.number);
  const bool hasLine = column.kind == Kind::Place && value.number > 0;
  return code(std::string(value.text) + (hasLine ? ":" + std::to_string(value.number) : ""));
}

std::string headerOf(const std::vector<Field<ShownChange>>& fields) {
  std::string header = "|";
  std::string rule = "|";
  for (const Column& column : fields) {
    const bool isNumber = column.kind == Kind::Delta || column.kind == Kind::Bytes;
    header.append(" ").append(column.header).append(" |");
    rule += isNumber ? " ---: |" : " --- |";
  }
  return header + "\n" + rule + "\n";
}

std::string rowOf(const Change& change, const std::vector<Field<ShownChange>>& fields) {
  const ShownChange record = shown(change);
  std::string row = "|";
  for (const Field<ShownChange>& field : fields) row += " " + cell(field.get(record), field) + " |";
  return row + "\n";
}

std::string headingOf(const ChangeReport& report) {
  std::string heading = "### Variables";
  if (report.after.size() == 1) heading += " of " + code(fileName(report.after[0]->executable));
  const std::string counts = countsOf(report);
  return heading + ": " + (counts.empty() ? "no change" : counts) + "\n\n" + bytesOf(report.comparison) + "\n\n" +
         notesOf(report, "\n\n");
}

}  // namespace

void writeChangeMarkdown(const ChangeReport& report, std::size_t rows, Output& output) {
  const std::vector<Field<ShownChange>> fields = changeFields(report);
  std::string text = headingOf(report);
  std::size_t count = 0;
  for (const Change& change : report.comparison.changes) {
    if (count == rows) break;
    std::string row = (count == 0 ? headerOf(fields) : "") + rowOf(change, fields);
    if (text.size() + row.size() > mostBytes) break;
    text += row;
    ++count;
  }
  if (count < report.all) text += "\n" + counted(report.all - count, "more change") + ".\n";
  output.put(text);
}
