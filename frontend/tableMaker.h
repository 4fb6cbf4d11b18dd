// Makes the three tables that tolquin.exe reads, from a program's debugging information.
#pragma once

#include <string>
#include <vector>

struct TableSummary {
  std::size_t variables = 0;     ///< lines of objdump.1
  std::size_t declarations = 0;  ///< lines of objdump.txt
  std::size_t sizes = 0;         ///< lines of sizes.tbl
  std::size_t leftOut = 0;       ///< variables kept from the debugger, which would answer wrongly
  std::size_t sharing = 0;       ///< variables left out because they share the address of another
  std::vector<std::string> warnings;
};

/// Writes objdump.1, objdump.txt and sizes.tbl for `executable` into `directory`, which is made if missing. With
/// `qualified`, a declaration that needs a scope in its text is left out of objdump.txt, for the debugger to answer
/// with the full names; without, types and names there are written without scopes. Throws UserError.
TableSummary makeTables(const std::string& executable, const std::string& directory, bool qualified);
