#include "frontend/resultTable.h"

#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <fstream>

#include "src/suiteFiles.h"
#include "src/userError.h"

namespace {

constexpr std::size_t columnCount = 10;
using Columns = std::array<std::string_view, columnCount>;

// The columns that correspond to fields of a Variable.
enum : std::size_t { nameColumn = 1, typeColumn = 2, sizeColumn = 3, fileColumn = 7, lineColumn = 8 };

bool splitColumns(std::string_view line, Columns& columns) {
  for (std::string_view& column : columns) {
    const bool isLast = &column == &columns.back();
    const std::size_t end = line.find('\t');
    if ((end == std::string_view::npos) != isLast) return false;
    column = line.substr(0, end);
    if (!isLast) line.remove_prefix(end + 1);
  }
  return true;
}

std::string_view knownText(std::string_view text) { return text == "<NULL>" ? "" : text; }

template <typename Number>
bool parseNumber(std::string_view text, Number& number) {
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  return error == std::errc() && stop == end;
}

// Reads the variable in a line. False when a number is malformed or the name is empty. The texts refer to the line.
bool readVariable(const Columns& columns, Variable& variable) {
  constexpr std::string_view storage = "static ";
  std::int64_t size = 0;
  variable.name = columns[nameColumn];
  variable.type = knownText(columns[typeColumn]);
  if (variable.type.starts_with(storage)) variable.type.remove_prefix(storage.size());
  variable.file = knownText(columns[fileColumn]);
  if (!parseNumber(columns[sizeColumn], size) || !parseNumber(columns[lineColumn], variable.line)) return false;
  if (size >= 0) variable.size = static_cast<std::uint64_t>(size);
  return !variable.name.empty();
}

}  // namespace

Inventory readResultTable(const std::string& directory) {
  const std::string path = directory + "/" + suiteFiles::result;
  std::ifstream file(path);
  if (!file && errno == ENOENT) {
    throw UserError(directory + ": is a directory without a " + suiteFiles::result +
                    ", which tolquin.exe writes; specify an executable, a shared object or a directory with a result");
  }
  if (!file) throw UserError(path + ": cannot read: " + std::strerror(errno));
  Inventory program;
  program.executable = directory;
  std::size_t number = 0;
  for (std::string line; std::getline(file, line);) {
    ++number;
    Columns columns;
    Variable variable;
    if (!splitColumns(line, columns) || !readVariable(columns, variable)) {
      throw UserError(path + ": line " + std::to_string(number) + " is malformed; a result table has ten columns");
    }
    for (std::string_view* text : {&variable.name, &variable.type, &variable.file}) *text = program.texts.intern(*text);
    program.variables.push_back(variable);
  }
  if (file.bad()) throw UserError(path + ": cannot read to the end");
  return program;
}
