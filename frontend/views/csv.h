// CSV and TSV output of `list`, for spreadsheets and programs.
#pragma once

#include "frontend/output.h"
#include "frontend/views/listing.h"

/// Writes `listing` as CSV (RFC 4180) with the column names as header. Texts are quoted, numbers are not, unknown
/// values are empty. With `forTerminal`, texts are escaped by shownText. Throws UserError.
void writeCsv(const Listing& listing, bool forTerminal, Output& output);

/// Writes `listing` as TSV: like CSV, but separated by tabs and without quotes. A tab, newline, carriage return or
/// backslash in a text is written as \t, \n, \r or \\.
void writeTsv(const Listing& listing, bool forTerminal, Output& output);
