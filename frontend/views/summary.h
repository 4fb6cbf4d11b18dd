// The summary below the table of `list`.
#pragma once

#include <vector>

#include "frontend/output.h"
#include "frontend/selection.h"

/// The facts that the summary reports.
struct Summary {
  std::vector<const Inventory*> programs;
  std::size_t shown = 0;  ///< rows in the table
  std::size_t rows = 0;   ///< rows before `-n` was applied
  bool isWhole = false;   ///< whether all variables of the programs were selected
  Waste waste;            ///< cost of duplicates, if they were selected
};

/// Writes the number of the variables `selected`, their bytes by section and, if all variables were selected, the share
/// of each section that they account for; and the directory to which file names are relative. Throws UserError.
void writeSummary(const Summary& summary, const std::vector<Row>& selected, Output& output);
