// Reads several inputs in parallel, each in its own process, so that a crash on a damaged input does not affect others.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "debuginfo/inventory.h"

/// The result of reading one input.
struct InputResult {
  std::vector<Inventory> programs;
  std::string error;                         ///< why it failed; empty if it did not
  std::unique_ptr<const std::string> bytes;  ///< the storage of the variables' texts
};

/// The results of reading all inputs.
struct InputResults {
  std::vector<InputResult> inputs;

  /// All programs, in the order of the inputs. The pointers are valid as long as this object.
  std::vector<const Inventory*> programs() const;
  /// Whether any input failed.
  bool failed() const;
};

/// Reads the inputs `paths`, up to `options.jobs` at a time. Prints errors and warnings in the order of the inputs.
/// When this process ends, so do those that it started.
InputResults readInputs(const std::vector<std::string>& paths, const ReadOptions& options);
