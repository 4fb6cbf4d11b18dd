// JSON output of `list` and `diff`, described in docs/schema.json.
#pragma once

#include <vector>

#include "frontend/output.h"
#include "frontend/views/listing.h"

/// Writes an element of a document: a program, or a variable with all its fields. Throws UserError.
void putJson(const Inventory& program, Output& output);
void putJson(const Row& row, Output& output);

/// Writes a document: the programs, and the rows of `listing` as objects under the key `rows`. Unknown values are null;
/// bytes that are not valid UTF-8 become U+FFFD. Throws UserError.
void writeJson(const std::vector<const Inventory*>& programs, std::string_view rows, const Listing& listing,
               Output& output);

/// Writes each row of `listing` as an object on its own line. Throws UserError.
void writeJsonLines(const Listing& listing, Output& output);
