// The results of reading some units of a program, which can be merged and sent between processes. See sharedReading.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "debuginfo/inventory.h"
#include "debuginfo/unplaced.h"
#include "debuginfo/warnings.h"

/// The common parent directory of paths.
class CommonDirectory {
 public:
  void add(std::string path);
  void add(const CommonDirectory& other);
  /// The directory; empty if there is none.
  std::string path() const { return path_.value_or(""); }
  /// The same, but without a value if no path was added.
  const std::optional<std::string>& known() const { return path_; }

 private:
  std::optional<std::string> path_;
};

/// What was found in some units.
struct Findings {
  std::vector<Variable> variables;  ///< in the order of the units; their texts are in a TextPool
  std::vector<Declaration> declarations;
  std::vector<UnplacedVariable> unplaced;
  std::vector<std::pair<std::uint64_t, std::string>> nameless;  ///< addresses and descriptions of unnamed variables
  std::vector<std::string> missing;                             ///< sentences about units that cannot be found
  Warnings warnings;
  CommonDirectory directory;

  /// Appends the findings of the units that follow. The result is the same as if all had been read at once.
  void append(Findings following);
};

/// Serializes numbered `parts`, without their declarations, for unpackFindings in the same executable.
std::string packFindings(const std::vector<std::pair<std::size_t, Findings>>& parts);

/// The parts packed into `bytes`, to which their texts refer. Throws UserError when `bytes` is incomplete.
std::vector<std::pair<std::size_t, Findings>> unpackFindings(std::string_view bytes);
