// Aligned tables, for `list` and `diff`.
#pragma once

#include "frontend/output.h"
#include "frontend/views/listing.h"

/// How a table is formatted.
struct TableStyle {
  std::size_t width = 0;  ///< maximum columns in a line; 0: unlimited
  bool bold = false;      ///< whether the header is bold
};

/// The style for standard output and the environment variables COLUMNS and NO_COLOR.
TableStyle styleOfOutput();

/// Writes `listing` in aligned columns below a header. Texts that are too long are cut, source locations at their
/// front; unknown values are "?". Throws UserError.
void writeTable(const Listing& listing, const TableStyle& style, Output& output);
