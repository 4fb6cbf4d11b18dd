// Variables that are defined, but without a place: most were optimised away. Of some the compiler recorded the value
// alone, or merged them with an equal constant, and the program has them in memory all the same. The symbols tell
// which.
#pragma once

#include <string_view>
#include <vector>

#include "debuginfo/inventory.h"
#include "debuginfo/programImage.h"

struct UnplacedVariable {
  Variable variable;        ///< without an address
  std::string_view symbol;  ///< the name of its symbol; empty: not known
  std::string_view unit;    ///< the name of the source file that its unit was compiled from
  bool isOpen = false;      ///< it may be larger than its type
};

/// Adds those of `unplaced` that have a symbol in `image` to `variables`, which holds all others.
void placeBySymbols(const std::vector<UnplacedVariable>& unplaced, const ProgramImage& image,
                    std::vector<Variable>& variables);
