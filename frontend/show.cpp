#include "show.h"

#include <csv.h>
#include <strings.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <numeric>

#include "resultTable.h"
#include "userError.h"

namespace {

using Columns = std::vector<std::size_t>;  // numbers of columns
using Rows = std::vector<ResultRow>;

std::size_t columnNumber(const std::string& name) {
  std::string known;
  for (std::size_t i = 0; i < resultColumnCount; ++i) {
    const ResultColumn& column = resultColumns[i];
    if (strcasecmp(name.c_str(), column.name) == 0 || strcasecmp(name.c_str(), column.header) == 0) return i;
    known += std::string(known.empty() ? "" : ", ") + column.name;
  }
  throw UsageError("there is no column " + name + "; the columns are " + known);
}

Columns chosenColumns(const ShowOptions& options) {
  Columns chosen;
  for (const std::string& name : options.columns) chosen.push_back(columnNumber(name));
  if (!chosen.empty()) return chosen;
  // Three columns are never determined.
  if (options.format == "table") return {0, 1, 2, 3, 4, 7, 8};
  chosen.resize(resultColumnCount);
  std::iota(chosen.begin(), chosen.end(), 0);
  return chosen;
}

void filterRows(Rows& rows, const std::string& text) {
  const auto holds = [&](const std::string& field) { return field.find(text) != std::string::npos; };
  std::erase_if(rows, [&](const ResultRow& row) { return std::none_of(row.begin(), row.end(), holds); });
}

void sortRows(Rows& rows, const std::string& name) {
  const bool descending = name.starts_with('-');
  const std::size_t column = columnNumber(name.substr(descending ? 1 : 0));
  const auto less = [&](const ResultRow& a, const ResultRow& b) {
    if (!resultColumns[column].isNumber) return a[column] < b[column];
    return std::atoll(a[column].c_str()) < std::atoll(b[column].c_str());
  };
  std::stable_sort(rows.begin(), rows.end(),
                   [&](const ResultRow& a, const ResultRow& b) { return descending ? less(b, a) : less(a, b); });
}

void printTsv(const Rows& rows, const Columns& columns) {
  const auto print = [&](const auto& field) {
    for (std::size_t i = 0; i < columns.size(); ++i) std::printf("%s%s", i > 0 ? "\t" : "", field(columns[i]));
    std::putchar('\n');
  };
  print([](std::size_t column) { return resultColumns[column].name; });
  for (const ResultRow& row : rows) print([&](std::size_t column) { return row[column].c_str(); });
}

void printCsv(const Rows& rows, const Columns& columns) {
  const auto print = [&](const auto& field) {
    for (std::size_t i = 0; i < columns.size(); ++i) {
      const std::string text = field(columns[i]);
      if (i > 0) std::putchar(',');
      csv_fwrite(stdout, text.data(), text.size());
    }
    std::fputs("\r\n", stdout);  // as RFC 4180 has it
  };
  print([](std::size_t column) { return std::string(resultColumns[column].name); });
  for (const ResultRow& row : rows) print([&](std::size_t column) { return row[column]; });
}

// What is not known is null.
void printJson(const Rows& rows, const Columns& columns) {
  nlohmann::ordered_json table = nlohmann::ordered_json::array();
  for (const ResultRow& row : rows) {
    nlohmann::ordered_json object;
    for (const std::size_t i : columns) {
      const ResultColumn& column = resultColumns[i];
      nlohmann::ordered_json& value = object[column.name];
      if (column.unknown != nullptr && row[i] == column.unknown) continue;
      if (column.isNumber) {
        value = std::atoll(row[i].c_str());
      } else {
        value = row[i];
      }
    }
    table.push_back(std::move(object));
  }
  // A name that is not in UTF-8 is shown as far as it can be.
  std::puts(table.dump(1, ' ', false, nlohmann::json::error_handler_t::replace).c_str());
}

// A text in characters, for its width on a terminal; bytes that make no character count as one each.
std::wstring characters(const std::string& text) {
  std::wstring result;
  std::mbstate_t state{};
  for (std::size_t at = 0; at < text.size();) {
    wchar_t character = L'?';
    std::size_t length = std::mbrtowc(&character, text.data() + at, text.size() - at, &state);
    if (length == 0 || length > text.size()) {
      character = L'?';
      length = 1;
      state = {};
    }
    result += character < L' ' || character == 0x7f ? L'?' : character;  // nothing that a terminal would obey
    at += length;
  }
  return result;
}

int widthOf(const std::wstring& text) { return std::max(0, wcswidth(text.c_str(), text.size())); }

// `text` cut to `width` places, the last an ellipsis where something was cut.
std::wstring fitted(std::wstring text, int width) {
  if (widthOf(text) <= width) return text;
  while (!text.empty() && widthOf(text) > width - 1) text.pop_back();
  return text + L"\u2026";
}

int terminalWidth() {
  winsize size{};
  if (isatty(STDOUT_FILENO) == 0 || ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return 0;
  return size.ws_col;
}

class AlignedTable {
 public:
  AlignedTable(const Rows& rows, const Columns& columns) : columns_(columns) {
    std::vector<std::wstring> header;
    for (const std::size_t column : columns) header.push_back(characters(resultColumns[column].header));
    lines_.push_back(header);
    for (const ResultRow& row : rows) {
      std::vector<std::wstring>& line = lines_.emplace_back();
      for (const std::size_t column : columns) line.push_back(characters(row[column]));
    }
    widths_.resize(columns.size(), 0);
    for (const auto& line : lines_) {
      for (std::size_t i = 0; i < line.size(); ++i) widths_[i] = std::max(widths_[i], widthOf(line[i]));
    }
  }

  // Takes width from the widest texts until the table fits.
  void fit(int available) {
    constexpr int narrowest = 8;
    const int gaps = gap * static_cast<int>(columns_.size() - 1);
    while (std::accumulate(widths_.begin(), widths_.end(), gaps) > available) {
      std::size_t widest = 0;
      for (std::size_t i = 0; i < widths_.size(); ++i) {
        if (resultColumns[columns_[i]].isNumber) continue;
        if (resultColumns[columns_[widest]].isNumber || widths_[i] > widths_[widest]) widest = i;
      }
      if (resultColumns[columns_[widest]].isNumber || widths_[widest] <= narrowest) return;
      --widths_[widest];
    }
  }

  void print(bool colour) const {
    for (std::size_t i = 0; i < lines_.size(); ++i) {
      const bool heading = colour && i == 0;
      std::printf("%s%s%s\n", heading ? "\033[1m" : "", text(lines_[i]).c_str(), heading ? "\033[0m" : "");
    }
  }

 private:
  static constexpr int gap = 2;

  std::string text(const std::vector<std::wstring>& line) const {
    std::wstring result;
    for (std::size_t i = 0; i < line.size(); ++i) {
      const std::wstring field = fitted(line[i], widths_[i]);
      const std::wstring padding(static_cast<std::size_t>(std::max(0, widths_[i] - widthOf(field))), L' ');
      if (i > 0) result += std::wstring(gap, L' ');
      result += resultColumns[columns_[i]].isNumber ? padding + field : field + padding;
    }
    result.erase(result.find_last_not_of(L' ') + 1);
    std::string bytes(result.size() * MB_CUR_MAX + 1, '\0');
    const std::size_t length = std::wcstombs(bytes.data(), result.c_str(), bytes.size());
    return length == static_cast<std::size_t>(-1) ? "" : bytes.substr(0, length);
  }

  const Columns& columns_;
  std::vector<std::vector<std::wstring>> lines_;
  std::vector<int> widths_;
};

// Leaves off the directory that all absolute source files have in common, and returns it; empty when there is none.
std::string shortenFiles(Rows& rows) {
  constexpr std::size_t file = sourceFileColumn;
  std::string common;
  for (const ResultRow& row : rows) {
    const std::string directory = row[file].substr(0, row[file].rfind('/') + 1);
    if (row[file] == resultColumns[file].unknown) continue;
    if (common.empty()) common = directory;
    common.erase(std::mismatch(common.begin(), common.end(), directory.begin(), directory.end()).first, common.end());
    common.erase(common.rfind('/') + 1);
    if (common.size() <= 1) return "";
  }
  for (ResultRow& row : rows) {
    if (row[file].starts_with(common)) row[file].erase(0, common.size());
  }
  return common;
}

void printTable(Rows& rows, const Columns& columns) {
  const std::string directory = shortenFiles(rows);
  // Names may be in UTF-8, whatever the user's language.
  if (std::setlocale(LC_CTYPE, "C.UTF-8") == nullptr) std::setlocale(LC_CTYPE, "");
  AlignedTable table(rows, columns);
  const int width = terminalWidth();
  if (width > 0) table.fit(width);
  table.print(width > 0 && std::getenv("NO_COLOR") == nullptr);
  if (!directory.empty()) std::printf("\nFiles are named from %s\n", directory.c_str());
}

// Says what may have gone wrong where variables were listed and none was typed.
void explainEmptyTable(const std::string& directory) {
  if (countLines(directory + "/objdump.1") == 0) return;
  std::fprintf(
      stderr,
      "tolquin: %s lists variables, but none has a type: was tolquin.exe run with DB set to this directory, and "
      "EXEFILE to the executable?\n",
      directory.c_str());
}

}  // namespace

void show(const ShowOptions& options) {
  namespace fs = std::filesystem;
  const std::string own = options.directory + ".vym";
  const bool named = !fs::is_directory(options.directory) && fs::is_directory(own);
  const std::string directory = named ? own : options.directory;
  Rows rows;
  forEachResultRow(directory, [&rows](const ResultRow& row) { rows.push_back(row); });
  if (rows.empty()) explainEmptyTable(directory);
  const Columns columns = chosenColumns(options);
  if (!options.filter.empty()) filterRows(rows, options.filter);
  if (!options.sort.empty()) sortRows(rows, options.sort);
  if (options.format == "tsv") return printTsv(rows, columns);
  if (options.format == "csv") return printCsv(rows, columns);
  if (options.format == "json") return printJson(rows, columns);
  printTable(rows, columns);
}
