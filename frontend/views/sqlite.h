// A database of SQLite, as docs/database.md describes it.
#pragma once

#include <string>
#include <vector>

#include "frontend/fields.h"

/// Throws UserError, which says what is the matter, when `path` is neither a new name nor an empty file nor a database
/// that writeDatabase has made.
void checkDatabase(const std::string& path);

/// Puts `programs` and their variables `rows`, which are in the order of the programs, into the database `path`, which
/// is made if it is missing. Each program replaces the one that had its path. Either all of it is done, or nothing:
/// then it throws UserError, or the signal ends the program that interrupted it.
void writeDatabase(const std::string& path, const std::vector<const Inventory*>& programs,
                   const std::vector<Row>& rows);
