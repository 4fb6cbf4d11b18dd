// The names of the files in a directory of the suite. See docs/tables.md.
#pragma once

namespace suiteFiles {

inline constexpr const char* variables = "objdump.1";       ///< address, size and name of each variable
inline constexpr const char* declarations = "objdump.txt";  ///< C declarations of the variables at those addresses
inline constexpr const char* typeSizes = "sizes.tbl";       ///< types and their sizes
inline constexpr const char* result = "tGlobalVarDef.tbl";  ///< written by tolquin.exe
inline constexpr const char* index = "vifa.dat";            ///< disk table of declarations by address, in $DB

}  // namespace suiteFiles
