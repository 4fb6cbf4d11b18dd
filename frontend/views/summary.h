// What stands below the table for people.
#pragma once

#include <vector>

#include "frontend/output.h"
#include "frontend/selection.h"

struct Summary {
  std::vector<const Inventory*> programs;
  std::size_t shown = 0;  ///< rows of the table, of all that were selected
  std::size_t rows = 0;   ///< all that were selected
  bool isWhole = false;   ///< whether all variables of the programs were selected
  Waste waste;            ///< what duplicates cost, if they were selected
};

/// Writes how many of the variables `selected` there are, their bytes by section and, where all were selected, how much
/// of each section that is; and the directory that files are named from. Throws UserError.
void writeSummary(const Summary& summary, const std::vector<Row>& selected, Output& output);
