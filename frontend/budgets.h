// Limits for the bytes that variables may take, by file and section: what follows --check.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "frontend/fields.h"
#include "frontend/pathPattern.h"

/// A line of a file of budgets: `src/net/** .bss 64K`.
struct Budget {
  std::size_t line;     ///< its number
  std::string pattern;  ///< as it is written
  PathPattern files;
  std::string section;  ///< "*": all that the program may change
  std::uint64_t limit;  ///< bytes
};

/// The budgets in the file `path`: three words on a line, the limit also with K or M; a blank in a pattern is written
/// "\ ", and '#' begins a comment. Throws UsageError, with the number of the line, when it cannot be understood.
std::vector<Budget> readBudgets(const std::string& path);

/// A budget that a program does not keep.
struct Excess {
  const Inventory* program;
  const Budget* budget;
  std::uint64_t bytes;  ///< those that several variables share counted once
};

/// The fields of an Excess.
extern const std::array<Field<Excess>, 6> excessFields;

/// What a check found.
struct CheckResult {
  std::vector<Excess> excesses;    ///< in the order of the programs, then of the budgets
  std::vector<std::string> notes;  ///< what the user should know of how it was counted
};

/// Holds the variables `rows` of `programs`, in their order, against `budgets` from the file `path`. Each program has
/// to keep each budget by itself.
/// A file that is absolute fits also as it is seen from the directory of `path`.
CheckResult checkBudgets(const std::vector<Budget>& budgets, const std::string& path,
                         const std::vector<const Inventory*>& programs, const std::vector<Row>& rows);
