// Makes the three tables that tolquin.exe reads, from a program's debugging information. Called by `tolquin tables`.
#pragma once

#include <string>
#include <vector>

/// The three tables as texts, with counts and warnings.
struct SuiteTables {
  std::string variableText;           ///< objdump.1
  std::string declarationText;        ///< objdump.txt
  std::string sizeText;               ///< sizes.tbl
  std::size_t variables = 0;          ///< lines of objdump.1
  std::size_t declarations = 0;       ///< lines of objdump.txt
  std::size_t sizes = 0;              ///< lines of sizes.tbl
  std::size_t leftOut = 0;            ///< variables that the tables cannot hold, and for which gdb would answer wrongly
  std::size_t sharing = 0;            ///< variables left out because they share the address of another
  std::vector<std::string> warnings;  ///< see Inventory
};

/// Makes the tables of `executable`. objdump.txt cannot hold scopes: with `qualified`, it lacks declarations that need
/// one, so that tolquin.exe gets full names from gdb; otherwise, its types have no scopes. Throws UserError.
SuiteTables makeTables(const std::string& executable, bool qualified);
