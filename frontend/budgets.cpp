#include "frontend/budgets.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <unordered_map>

#include "frontend/conditions.h"
#include "frontend/output.h"
#include "frontend/selection.h"
#include "frontend/sums.h"
#include "src/io.h"
#include "src/userError.h"
#include "src/whiteSpace.h"

namespace {

constexpr std::string_view everyWritable = "*";

// The words of a line before its comment. A backslash makes the next character, such as a space or '#', part of a word.
std::vector<std::string> wordsOf(std::string_view line) {
  std::vector<std::string> words;
  bool inWord = false;
  for (std::size_t i = 0; i < line.size(); ++i) {
    if (isWhiteSpace(line[i])) {
      inWord = false;
      continue;
    }
    if (!inWord && line[i] == '#') break;
    if (!inWord) words.emplace_back();
    inWord = true;
    words.back() += line[i];
    if (line[i] == '\\' && i + 1 < line.size()) words.back() += line[++i];
  }
  return words;
}

Budget budgetOf(const std::vector<std::string>& words, std::size_t line) {
  if (words.size() != 3) {
    throw UsageError("a budget consists of a file pattern, a section and a limit, for example: src/net/** .bss 64K");
  }
  const std::optional<std::uint64_t> limit = parseBytes(words[2]);
  if (!limit) throw UsageError("invalid limit \"" + words[2] + "\": expected a number of bytes, also with K or M");
  return {line, words[0], PathPattern(words[0]), words[1], *limit};
}

std::string place(const std::string& path, std::size_t line) { return path + ":" + std::to_string(line) + ": "; }

// The directory of the file `path`, with a trailing '/'; empty if it has none, such as a pipe.
std::string directoryOf(const std::string& path) {
  std::error_code error;
  std::string directory = std::filesystem::canonical(path, error).parent_path().string();
  if (error) return {};
  if (!directory.ends_with('/')) directory += '/';
  return directory;
}

// Matches files against the pattern of a budget; caches the results.
class FileMatcher {
 public:
  // Absolute file names within `directory` also match relative to it. Empty: there is none.
  FileMatcher(const Budget& budget, const std::string& directory) : pattern_(budget.files), directory_(directory) {}

  // `file`: empty if unknown.
  bool matches(std::string_view file) {
    if (file.empty() || pattern_.isEverything()) return pattern_.isEverything();
    const auto [at, isNew] = results_.try_emplace(file, false);
    if (isNew) at->second = matchesUncached(file);
    return at->second;
  }

 private:
  bool matchesUncached(std::string_view file) const {
    if (pattern_.matches(file)) return true;
    return !directory_.empty() && file.starts_with(directory_) && pattern_.matches(file.substr(directory_.size()));
  }

  const PathPattern& pattern_;
  const std::string& directory_;
  std::unordered_map<std::string_view, bool> results_;
};

bool isOfSection(const Budget& budget, const Variable& variable) {
  return budget.section == everyWritable ? isMutable(variable) : variable.section == budget.section;
}

// Checks all programs against one budget.
class BudgetCheck {
 public:
  BudgetCheck(const Budget& budget, const std::string& directory) : budget_(budget), files_(budget, directory) {}

  // The bytes of those of `rows`, which belong to one program, that the budget applies to.
  std::uint64_t bytesOf(const std::vector<Row>& rows) {
    std::vector<Row> counted;
    for (const Row& row : rows) {
      if (isOfSection(budget_, *row.variable) && files_.matches(row.variable->file)) counted.push_back(row);
    }
    const Sum sum = sumOf(counted);
    variables_ += sum.variables;
    unsized_ += sum.unsized;
    return sum.bytes;
  }

  // A note for the user once all programs have been counted; empty if there is nothing to report.
  std::string note() const {
    const std::string what = budget_.pattern + " " + budget_.section;
    if (variables_ == 0) return what + " matches no variable";
    if (unsized_ == 0) return "";
    return what + ": " + counted(unsized_, "variable") + " of unknown size counted as 0 bytes";
  }

 private:
  const Budget& budget_;
  FileMatcher files_;
  std::uint64_t variables_ = 0;
  std::uint64_t unsized_ = 0;
};

// The rows of each program.
std::vector<std::vector<Row>> rowsOfEach(const std::vector<const Inventory*>& programs, const std::vector<Row>& rows) {
  std::vector<std::vector<Row>> parts;
  auto next = rows.begin();
  for (const Inventory* program : programs) {
    const auto begin = next;
    while (next != rows.end() && next->program == program) ++next;
    parts.emplace_back(begin, next);
  }
  return parts;
}

// A note about variables of unknown file that a budget for files might apply to; empty if there are none.
std::string noteOnFiles(const std::vector<Budget>& budgets, const std::vector<Row>& rows) {
  std::vector<Row> withoutFile;
  for (const Row& row : rows) {
    const auto misses = [&](const Budget& budget) {
      return !budget.files.isEverything() && isOfSection(budget, *row.variable);
    };
    if (row.variable->file.empty() && std::any_of(budgets.begin(), budgets.end(), misses)) withoutFile.push_back(row);
  }
  if (withoutFile.empty()) return "";
  const Sum sum = sumOf(withoutFile);
  return counted(sum.variables, "variable") + " of unknown file (" + counted(sum.bytes, "byte") +
         "): only the patterns * and ** match them";
}

}  // namespace

const std::array<Field<Excess>, 6> excessFields{{
    {{"executable", "Executable", Kind::Text, "the program that exceeds the budget"},
     [](const Excess& excess) {
       return Value{true, excess.program->executable};
     }},
    {{"pattern", "Pattern", Kind::Text, "the file pattern"},
     [](const Excess& excess) {
       return Value{true, excess.budget->pattern};
     }},
    {{"section", "Section", Kind::Text, "the section; *: all writable and thread-local variables"},
     [](const Excess& excess) {
       return Value{true, excess.budget->section};
     }},
    {{"bytes", "Bytes", Kind::Bytes, "bytes of the variables that the budget applies to"},
     [](const Excess& excess) {
       return Value{true, {}, excess.bytes};
     }},
    {{"limit", "Limit", Kind::Bytes, "the limit in bytes"},
     [](const Excess& excess) {
       return Value{true, {}, excess.budget->limit};
     }},
    {{"over", "Over by", Kind::Bytes, "bytes above the limit"},
     [](const Excess& excess) {
       return Value{true, {}, excess.bytes - excess.budget->limit};
     }},
}};

std::vector<Budget> readBudgets(const std::string& path) {
  LineReader reader(path.c_str());
  if (!reader.isOpen()) throw UsageError(path + ": cannot open: " + std::strerror(errno));
  std::vector<Budget> budgets;
  std::size_t number = 0;
  for (std::string_view line; reader.next(line);) {
    const std::vector<std::string> words = wordsOf(line);
    ++number;
    try {
      if (!words.empty()) budgets.push_back(budgetOf(words, number));
    } catch (const UsageError& error) {
      throw UsageError(place(path, number) + error.what());
    }
  }
  if (reader.foundOverlongLine()) throw UsageError(place(path, number + 1) + "line too long");
  if (reader.failed()) throw UsageError(path + ": cannot read: " + std::strerror(errno));
  return budgets;
}

CheckResult checkBudgets(const std::vector<Budget>& budgets, const std::string& path,
                         const std::vector<const Inventory*>& programs, const std::vector<Row>& rows) {
  CheckResult result;
  const std::string directory = directoryOf(path);
  std::vector<BudgetCheck> checks;
  checks.reserve(budgets.size());
  for (const Budget& budget : budgets) checks.emplace_back(budget, directory);
  const std::vector<std::vector<Row>> parts = rowsOfEach(programs, rows);
  for (std::size_t program = 0; program < programs.size(); ++program) {
    for (std::size_t i = 0; i < budgets.size(); ++i) {
      const std::uint64_t bytes = checks[i].bytesOf(parts[program]);
      if (bytes > budgets[i].limit) result.excesses.push_back({programs[program], &budgets[i], bytes});
    }
  }
  for (std::size_t i = 0; i < budgets.size(); ++i) {
    if (std::string note = checks[i].note(); !note.empty()) result.notes.push_back(place(path, budgets[i].line) + note);
  }
  if (budgets.empty()) result.notes.push_back(path + ": contains no budgets");
  if (std::string note = noteOnFiles(budgets, rows); !note.empty()) result.notes.push_back(path + ": " + note);
  return result;
}
