// The result of tolquin.exe, tGlobalVarDef.tbl, read back.
#pragma once

#include <string>

#include "debuginfo/inventory.h"

/// What the table in `directory` says: names, types (without "static"), sizes and places. The program is called like
/// the directory. Throws UserError when there is no table, and when a line of it is malformed.
Inventory readResultTable(const std::string& directory);
