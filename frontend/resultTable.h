// Reads tGlobalVarDef.tbl, the result of tolquin.exe.
#pragma once

#include <string>

#include "debuginfo/inventory.h"

/// Reads the table in `directory`: names, types (without "static"), sizes and source locations. The program is named
/// after the directory. Throws UserError when the table is missing or malformed.
Inventory readResultTable(const std::string& directory);
