// What the commands read: programs, and results of earlier runs.
#pragma once

#include <string>
#include <vector>

#include "debuginfo/inventory.h"

/// Reads the input `path`: an executable or shared object; a directory with the result of tolquin.exe; or a file or
/// pipe of JSON or JSON lines, which may hold several programs. The texts of all variables live as long as all that is
/// returned. Throws UserError.
std::vector<Inventory> readInput(const std::string& path, const ReadOptions& options);
