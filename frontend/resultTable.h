// The result of a run, tGlobalVarDef.tbl, as read back.
#pragma once

#include <array>
#include <cstddef>
#include <functional>
#include <string>

/// A column of the result table.
struct ResultColumn {
  const char* name;    ///< as in the table's description
  const char* header;  ///< short, for people
  bool isNumber;
  const char* unknown;  ///< the text that stands for "not known"; null when the column always says something
};

inline constexpr std::size_t resultColumnCount = 10;
/// All columns, in the order of the table.
extern const std::array<ResultColumn, resultColumnCount> resultColumns;
/// Some of them by their positions.
inline constexpr std::size_t dRefDataSizeColumn = 4;
inline constexpr std::size_t sourceFileColumn = 7;

/// One line of the table.
using ResultRow = std::array<std::string, resultColumnCount>;

/// Calls `useRow` with each line of the table in `directory`. Throws UserError when there is none, and when a line of
/// it is malformed.
void forEachResultRow(const std::string& directory, const std::function<void(const ResultRow&)>& useRow);

/// Lines of the text file `path`; 0 when it cannot be read.
std::size_t countLines(const std::string& path);
