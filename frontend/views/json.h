// JSON, as docs/schema.json describes it.
#pragma once

#include <vector>

#include "frontend/output.h"
#include "frontend/views/listing.h"

/// Writes a part of a document: what is said of a program, or a variable with all its fields. Throws UserError.
void putJson(const Inventory& program, Output& output);
void putJson(const Row& row, Output& output);

/// Writes one document: the programs, and the rows of `listing` as objects under the key `rows`. What is not known is
/// null; bytes that are no UTF-8 become U+FFFD. Throws UserError.
void writeJson(const std::vector<const Inventory*>& programs, std::string_view rows, const Listing& listing,
               Output& output);

/// Writes each row of `listing` as an object on a line of its own. Throws UserError.
void writeJsonLines(const Listing& listing, Output& output);
