// Reads several inputs at a time, each in a process of its own, so that a damaged one costs no other.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "debuginfo/inventory.h"

/// What was read of one input.
struct InputResult {
  std::vector<Inventory> programs;
  std::string error;                         ///< why it failed; empty: it did not
  std::unique_ptr<const std::string> bytes;  ///< holds the texts of the variables
};

/// What was read of all of them.
struct InputResults {
  std::vector<InputResult> inputs;

  /// All programs, in the order of the inputs. Valid as long as this object.
  std::vector<const Inventory*> programs() const;
  /// Whether an input failed.
  bool failed() const;
};

/// Reads `paths`, as many at a time as `options.jobs` says. Errors and warnings are written to standard error, in the
/// order of the inputs. When this process ends, those that it started end too.
InputResults readInputs(const std::vector<std::string>& paths, const ReadOptions& options);
