// What several commands ask for in the same way: which inputs are read, and which of their variables count.
#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "debuginfo/inventory.h"
#include "frontend/selection.h"

struct Choice {
  std::vector<std::string> inputs;
  std::string where;
  bool mutableOnly = false;
  bool duplicates = false;
  ReadOptions reading;
};

/// Adds INPUT and -j to `command`; they set `choice`, which lives as long as `command`.
void addInputOptions(CLI::App& command, Choice& choice);

/// Adds --where, --mutable, --duplicates and --artificial in the same way.
void addSelectionOptions(CLI::App& command, Choice& choice);

/// Throws UsageError when no input is named.
void requireInput(const Choice& choice);

/// What `choice` selects. Throws UsageError when a condition is wrong.
Selection selectionOf(const Choice& choice);
