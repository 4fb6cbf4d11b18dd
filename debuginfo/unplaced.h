// Variables that are defined, but without a place: most were optimised away. Of some the compiler recorded the value
// alone, or merged them with an equal constant, and the program has them in memory all the same. The symbols tell
// which.
#pragma once

#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "debuginfo/inventory.h"
#include "debuginfo/programImage.h"

class UnplacedVariables {
 public:
  /// `variable` has no address. `symbol`: the name of its symbol, if known; `unit`: the name of the source file that
  /// its unit was compiled from; `isOpen`: it may be larger than its type.
  void add(const Variable& variable, std::string_view symbol, std::string_view unit, bool isOpen);
  /// Adds those that have a symbol to `inventory`, which holds all others.
  void list(const ProgramImage& image, Inventory& inventory);

 private:
  struct Candidate {
    Variable variable;
    std::string_view unit;
    bool isOpen;
  };
  using Candidates = std::vector<Candidate>;

  const Candidates* named(const ImageSymbol& symbol) const;

  std::unordered_map<std::string, Candidates> byName_;  // of the symbol, or of the variable
};
