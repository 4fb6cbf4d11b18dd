// Budgets: limits on the bytes that variables may take, by file and section. Used by `list --check`.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "frontend/fields.h"
#include "frontend/pathPattern.h"

/// A line of a budget file: `src/net/** .bss 64K`.
struct Budget {
  std::size_t line;     ///< its number, from 1
  std::string pattern;  ///< as written in the file
  PathPattern files;
  std::string section;  ///< "*": all writable and thread-local variables
  std::uint64_t limit;  ///< bytes
};

/// Reads the budgets in the file `path`: three words on a line, the limit also with K or M; a space in a pattern is
/// written "\ ", and '#' starts a comment. Throws UsageError, which names the line, when the file is malformed.
std::vector<Budget> readBudgets(const std::string& path);

/// A budget that a program exceeds.
struct Excess {
  const Inventory* program;
  const Budget* budget;
  std::uint64_t bytes;  ///< used; bytes that several variables share count once
};

/// The fields of an Excess.
extern const std::array<Field<Excess>, 6> excessFields;

/// The result of a check.
struct CheckResult {
  std::vector<Excess> excesses;    ///< in the order of the programs, then of the budgets
  std::vector<std::string> notes;  ///< what the user should know about the counting, one sentence each
};

/// Checks the variables `rows` of `programs`, in the order of the programs, against `budgets`, which were read from the
/// file `path`. Each program is checked separately. Absolute file names also match relative to the directory of `path`.
CheckResult checkBudgets(const std::vector<Budget>& budgets, const std::string& path,
                         const std::vector<const Inventory*>& programs, const std::vector<Row>& rows);
