// Writes the SQLite database of `export`, described in docs/database.md.
#pragma once

#include <string>
#include <vector>

#include "frontend/fields.h"

/// Throws UserError when writeDatabase could not write to `path`: when it is anything but a new name, an empty file or
/// a database that writeDatabase created.
void checkDatabase(const std::string& path);

/// Writes `programs` and their variables `rows`, in the order of the programs, to the database `path`, which is created
/// if it does not exist. Each program replaces the one with the same path. Atomic: on failure it throws UserError, on
/// interruption the signal ends the program, and in both cases the database is unchanged.
void writeDatabase(const std::string& path, const std::vector<const Inventory*>& programs,
                   const std::vector<Row>& rows);
