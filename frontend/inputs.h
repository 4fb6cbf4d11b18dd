// Reads an input of any kind: a program, or the result of an earlier run. Called in the workers.
#pragma once

#include <string>
#include <vector>

#include "debuginfo/inventory.h"

/// Reads the input `path`: an executable or shared object; a directory with the result of tolquin.exe; or a file or
/// pipe of JSON or JSON lines, which may describe several programs. The texts of the variables may belong to any of the
/// returned inventories, so keep all of them. Throws UserError.
std::vector<Inventory> readInput(const std::string& path, const ReadOptions& options);
