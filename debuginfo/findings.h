// What was read of some of a program's units, so that units can be read in parts, by several processes too.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "debuginfo/inventory.h"
#include "debuginfo/unplaced.h"
#include "debuginfo/warnings.h"

/// The directory that paths have in common.
class CommonDirectory {
 public:
  void add(std::string path);
  void add(const CommonDirectory& other);
  /// Empty when there is none.
  std::string path() const { return path_.value_or(""); }
  /// Empty when no path was added.
  const std::optional<std::string>& known() const { return path_; }

 private:
  std::optional<std::string> path_;
};

struct Findings {
  std::vector<Variable> variables;  ///< as they were met; their texts are elsewhere
  std::vector<NamedType> known;
  std::vector<UnplacedVariable> unplaced;
  std::vector<std::pair<std::uint64_t, std::string>> nameless;  ///< addresses, and what to call them
  std::vector<std::string> missing;                             ///< sentences about units that cannot be found
  Warnings warnings;
  CommonDirectory directory;

  /// Adds those of the units that follow. What was read in parts is the same as if it had been read as a whole.
  void append(Findings following);
};

/// `parts` (which have no `known`) with their numbers, as bytes for unpackFindings of the same program.
std::string packFindings(const std::vector<std::pair<std::size_t, Findings>>& parts);

/// What was packed into `bytes`. The texts lie in `bytes`. Throws UserError when `bytes` are not whole.
std::vector<std::pair<std::size_t, Findings>> unpackFindings(std::string_view bytes);
