// Values separated by commas or tabs, for spreadsheets and programs.
#pragma once

#include "frontend/output.h"
#include "frontend/views/listing.h"

/// Writes `listing` as RFC 4180 has it, with a header of the columns' names; texts are quoted, numbers bare, what is
/// not known is empty. With `forTerminal`, texts are written as shownText returns them. Throws UserError.
void writeCsv(const Listing& listing, bool forTerminal, Output& output);

/// The same, separated by tabs and without quotes: a tab, newline, carriage return or backslash in a text is written as
/// \t, \n, \r or \\.
void writeTsv(const Listing& listing, bool forTerminal, Output& output);
