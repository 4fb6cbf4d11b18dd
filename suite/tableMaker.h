// Makes the three tables that tolquin.exe reads, from a program's debugging information.
#pragma once

#include <string>
#include <vector>

/// The three tables as texts, and what is to be said about them.
struct SuiteTables {
  std::string list;                   ///< objdump.1
  std::string declarationText;        ///< objdump.txt
  std::string sizeText;               ///< sizes.tbl
  std::size_t variables = 0;          ///< lines of objdump.1
  std::size_t declarations = 0;       ///< lines of objdump.txt
  std::size_t sizes = 0;              ///< lines of sizes.tbl
  std::size_t leftOut = 0;            ///< variables kept from the debugger, which would answer wrongly
  std::size_t sharing = 0;            ///< variables left out because they share the address of another
  std::vector<std::string> warnings;  ///< of the reader, see Inventory
};

/// Makes the tables of `executable`. With `qualified`, a declaration that needs a scope in its text is left out of
/// objdump.txt, for the debugger to answer with the full names; without, types and names there are written without
/// scopes. Throws UserError.
SuiteTables makeTables(const std::string& executable, bool qualified);
