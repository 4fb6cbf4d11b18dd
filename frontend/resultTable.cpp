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

std::vector<ResultRow> readResultTable(const std::string& directory) {
  const std::string path = directory + "/tGlobalVarDef.tbl";
  std::ifstream file(path);
  if (!file) {
    throw UserError(path + ": cannot be read: " + std::strerror(errno) +
                    "; make it with `tolquin scan` from an executable");
  }
  std::vector<ResultRow> rows;
  for (std::string line; std::getline(file, line);) {
    ResultRow& row = rows.emplace_back();
    std::size_t start = 0;
    std::size_t count = 0;
    while (start != std::string::npos && count < resultColumnCount) {
      const std::size_t end = line.find('\t', start);
      row[count++] = line.substr(start, end - start);
      start = end == std::string::npos ? end : end + 1;
    }
    if (count != resultColumnCount || start != std::string::npos) {
      throw UserError(path + ": line " + std::to_string(rows.size()) + " has not the ten columns of a result table");
    }
  }
  if (file.bad()) throw UserError(path + ": cannot be read to its end");
  return rows;
}

std::size_t countLines(const std::string& path) {
  std::size_t count = 0;
  std::ifstream file(path);
  for (std::string line; std::getline(file, line);) ++count;
  return count;
}
