// Reads the units of one program, with several processes if it is large.
#pragma once

#include "debuginfo/debugFile.h"
#include "debuginfo/findings.h"
#include "debuginfo/inventory.h"

/// Reads `units` of `file`. The texts of the findings are stored in `texts`. The result does not depend on the number
/// of processes: this process reads the units of one that fails.
Findings readUnits(const DebugFile& file, const std::vector<ListedUnit>& units, const ReadOptions& options,
                   TextPool& texts);
