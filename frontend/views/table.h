// The table for people.
#pragma once

#include "frontend/output.h"
#include "frontend/views/listing.h"

struct TableStyle {
  std::size_t width = 0;  ///< columns that a line may take; 0: any number
  bool bold = false;      ///< the header stands out, by a terminal's means
};

/// What fits standard output and the user's settings.
TableStyle styleOfOutput();

/// Writes `listing` in aligned columns below a header. Texts that are too long are cut, those of places at their front;
/// what is not known is "?". Throws UserError.
void writeTable(const Listing& listing, const TableStyle& style, Output& output);
