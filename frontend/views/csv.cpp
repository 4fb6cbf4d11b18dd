#include "frontend/views/csv.h"

#include <csv.h>

#include "frontend/texts.h"

namespace {

void putQuoted(std::string_view text, Output& output) {
  std::string quoted(2 * text.size() + 2, '\0');
  quoted.resize(csv_write(quoted.data(), quoted.size(), text.data(), text.size()));
  output.put(quoted);
}

void putEscaped(std::string_view text, Output& output) {
  constexpr std::string_view special = "\t\n\r\\";
  constexpr std::string_view letters = "tnr\\";
  while (!text.empty()) {
    const std::size_t end = text.find_first_of(special);
    output.put(text.substr(0, end));
    if (end == std::string_view::npos) return;
    output.put('\\');
    output.put(letters[special.find(text[end])]);
    text.remove_prefix(end + 1);
  }
}

// For terminals: shownText leaves nothing to escape.
void putShown(std::string_view text, Output& output) { output.put(shownText(text)); }

void putShownQuoted(std::string_view text, Output& output) { putQuoted(shownText(text), output); }

// What distinguishes CSV from TSV.
struct Format {
  char separator;
  std::string_view lineEnd;
  void (*putText)(std::string_view text, Output& output);
};

void putValue(const Value& value, Kind kind, const Format& format, Output& output) {
  if (!value.known) return;
  switch (kind) {
    case Kind::Text:
      return format.putText(value.text, output);
    case Kind::Flag:
      return output.put(value.number != 0 ? "true" : "false");
    case Kind::Address:
      return output.put(hexadecimal(value.number));
    default:
      return output.putNumber(value.number);
  }
}

void write(const Listing& listing, const Format& format, Output& output) {
  const std::vector<Column>& columns = listing.columns();
  for (std::size_t i = 0; i < columns.size(); ++i) {
    if (i > 0) output.put(format.separator);
    output.put(columns[i].name);
  }
  output.put(format.lineEnd);
  for (std::size_t row = 0; row < listing.size(); ++row) {
    for (std::size_t i = 0; i < columns.size(); ++i) {
      if (i > 0) output.put(format.separator);
      putValue(listing.value(row, i), columns[i].kind, format, output);
    }
    output.put(format.lineEnd);
  }
}

}  // namespace

void writeCsv(const Listing& listing, bool forTerminal, Output& output) {
  write(listing, {',', "\r\n", forTerminal ? putShownQuoted : putQuoted}, output);
}

void writeTsv(const Listing& listing, bool forTerminal, Output& output) {
  write(listing, {'\t', "\n", forTerminal ? putShown : putEscaped}, output);
}
