// Reads the units of one program; those of a large one are shared by several processes.
#pragma once

#include "debuginfo/debugFile.h"
#include "debuginfo/findings.h"
#include "debuginfo/inventory.h"

/// Reads `units` of `file`. The texts of what is found are kept in `texts`. By how many processes this is done makes no
/// difference to the result: what one of them could not read is read by this one.
Findings readUnits(const DebugFile& file, const std::vector<ListedUnit>& units, const ReadOptions& options,
                   TextPool& texts);
