// Variables that are defined but have no location. Most were optimized away. Some are still in memory although the
// compiler recorded only their value or merged them with an equal constant; the symbol table shows which.
#pragma once

#include <string_view>
#include <vector>

#include "debuginfo/inventory.h"
#include "debuginfo/programImage.h"

/// A defined variable without a location.
struct UnplacedVariable {
  Variable variable;        ///< without an address
  std::string_view symbol;  ///< the name of its symbol; empty if unknown
  std::string_view unit;    ///< the source file of its unit
  bool isOpen = false;      ///< whether it may be larger than its type
};

/// Adds those of `unplaced` that have a symbol in `image` to `variables`, which must contain all other variables.
void placeBySymbols(const std::vector<UnplacedVariable>& unplaced, const ProgramImage& image,
                    std::vector<Variable>& variables);
