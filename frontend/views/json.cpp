#include "frontend/views/json.h"

#include <cstdio>

#include "frontend/texts.h"

namespace {

// Escapes also control characters that JSON allows, so that the output is safe on a terminal.
void putSpecial(const Character& character, std::string_view bytes, Output& output) {
  if (!character.valid) return output.put("\ufffd");
  if (character.code == '"' || character.code == '\\') output.put('\\');
  if (!isControl(character.code)) return output.put(bytes);
  char escape[16];
  std::uint32_t code = character.code;
  if (code > 0xffff) {  // a surrogate pair
    std::snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned>(0xd7c0 + (code >> 10)));
    output.put(escape);
    code = 0xdc00 | (code & 0x3ff);
  }
  std::snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned>(code));
  output.put(escape);
}

std::size_t unescapedLength(std::string_view text) {
  std::size_t length = 0;
  while (length < text.size() && text[length] >= ' ' && text[length] <= '~' && text[length] != '"' &&
         text[length] != '\\') {
    ++length;
  }
  return length;
}

void putString(std::string_view text, Output& output) {
  output.put('"');
  while (!text.empty()) {
    const std::size_t length = unescapedLength(text);
    output.put(text.substr(0, length));
    text.remove_prefix(length);
    if (text.empty()) break;
    const Character character = firstCharacter(text);
    putSpecial(character, text.substr(0, character.length), output);
    text.remove_prefix(character.length);
  }
  output.put('"');
}

void putOptional(std::string_view text, Output& output) {
  if (text.empty()) return output.put("null");
  putString(text, output);
}

void putValue(const Value& value, Kind kind, Output& output) {
  if (!value.known) return output.put("null");
  switch (kind) {
    case Kind::Text:
      return putString(value.text, output);
    case Kind::Flag:
      return output.put(value.number != 0 ? "true" : "false");
    case Kind::Address:
      return putString(hexadecimal(value.number), output);
    default:
      return output.putNumber(value.number);
  }
}

void putRow(const Listing& listing, std::size_t row, const std::vector<std::string>& keys, Output& output) {
  for (std::size_t i = 0; i < keys.size(); ++i) {
    output.put(keys[i]);
    putValue(listing.value(row, i), listing.columns()[i].kind, output);
  }
  output.put('}');
}

// The text before each value of a row: a brace or comma, and the key.
template <typename Columns>
std::vector<std::string> keysOf(const Columns& columns) {
  std::vector<std::string> keys;
  keys.reserve(columns.size());
  for (const Column& column : columns) {
    keys.push_back(std::string(keys.empty() ? "{\"" : ", \"").append(column.name).append("\": "));
  }
  return keys;
}

}  // namespace

void putJson(const Inventory& program, Output& output) {
  output.put(R"({"path": )");
  putString(program.executable, output);
  output.put(", \"build_id\": ");
  putOptional(program.buildId, output);
  output.put(", \"directory\": ");
  putOptional(program.directory, output);
  output.put(", \"sections\": [");
  for (std::size_t i = 0; i < program.sections.size(); ++i) {
    output.put(i > 0 ? ", {\"name\": " : "{\"name\": ");
    putString(program.sections[i].name, output);
    output.put(", \"size\": ");
    output.putNumber(program.sections[i].size);
    output.put('}');
  }
  output.put("]}");
}

void putJson(const Row& row, Output& output) {
  static const std::vector<std::string> keys = keysOf(variableFields);
  for (std::size_t i = 0; i < keys.size(); ++i) {
    output.put(keys[i]);
    putValue(variableFields[i].get(row), variableFields[i].kind, output);
  }
  output.put('}');
}

void writeJson(const std::vector<const Inventory*>& programs, std::string_view rows, const Listing& listing,
               Output& output) {
  output.put(R"({"schema": 1, "executables": [)");
  for (std::size_t i = 0; i < programs.size(); ++i) {
    output.put(i > 0 ? ",\n" : "\n");
    putJson(*programs[i], output);
  }
  output.put("\n], \"");
  output.put(rows);
  output.put("\": [");
  const std::vector<std::string> keys = keysOf(listing.columns());
  for (std::size_t row = 0; row < listing.size(); ++row) {
    output.put(row > 0 ? ",\n" : "\n");
    putRow(listing, row, keys, output);
  }
  output.put("\n]}\n");
}

void writeJsonLines(const Listing& listing, Output& output) {
  const std::vector<std::string> keys = keysOf(listing.columns());
  for (std::size_t row = 0; row < listing.size(); ++row) {
    putRow(listing, row, keys, output);
    output.put('\n');
  }
}
