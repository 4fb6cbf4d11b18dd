#include "resultTable.h"

#include <cerrno>
#include <cstring>
#include <fstream>

#include "userError.h"

const std::array<ResultColumn, resultColumnCount> resultColumns{{
    {"GlobalVarKey", "Key", true, nullptr},
    {"VariableName", "Name", false, "<NULL>"},
    {"DataType", "Type", false, "<NULL>"},
    {"DataSize", "Size", true, "-1"},
    {"DRefDataSize", "DRef", true, "-1"},
    {"TypedefType", "Typedef", false, "<NULL>"},
    {"StructType", "Struct", false, "<NULL>"},
    {"SourceFile", "File", false, "<NULL>"},
    {"LineNbr", "Line", true, "0"},
    {"LineCount", "Lines", true, "-1"},
}};

void forEachResultRow(const std::string& directory, const std::function<void(const ResultRow&)>& useRow) {
  const std::string path = directory + "/tGlobalVarDef.tbl";
  std::ifstream file(path);
  if (!file) {
    throw UserError(path + ": cannot be read: " + std::strerror(errno) +
                    "; make it with `tolquin scan` from an executable");
  }
  ResultRow row;
  std::size_t number = 0;
  for (std::string line; std::getline(file, line);) {
    ++number;
    std::size_t start = 0;
    std::size_t count = 0;
    while (start != std::string::npos && count < resultColumnCount) {
      const std::size_t end = line.find('\t', start);
      row[count++].assign(line, start, end - start);
      start = end == std::string::npos ? end : end + 1;
    }
    if (count != resultColumnCount || start != std::string::npos) {
      throw UserError(path + ": line " + std::to_string(number) + " has not the ten columns of a result table");
    }
    useRow(row);
  }
  if (file.bad()) throw UserError(path + ": cannot be read to its end");
}

std::size_t countLines(const std::string& path) {
  std::size_t count = 0;
  std::ifstream file(path);
  for (std::string line; std::getline(file, line);) ++count;
  return count;
}
