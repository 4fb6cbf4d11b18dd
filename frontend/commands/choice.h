// What several commands ask for in the same way: which inputs are read, and which of their variables count.
#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <optional>
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

/// Adds -j to `command`; it sets `choice`, which lives as long as `command`.
void addJobsOption(CLI::App& command, Choice& choice);

/// Adds INPUT and -j in the same way.
void addInputOptions(CLI::App& command, Choice& choice);

/// Adds --where, --mutable and --artificial in the same way.
void addConditionOptions(CLI::App& command, Choice& choice);

/// Adds these and --duplicates in the same way.
void addSelectionOptions(CLI::App& command, Choice& choice);

/// Adds -n, described by `meaning`; it sets `rows`, which lives as long as `command`.
void addRowsOption(CLI::App& command, std::optional<std::int64_t>& rows, const std::string& meaning);

/// Throws UsageError when no input is named.
void requireInput(const Choice& choice);

/// What `choice` selects. Throws UsageError when a condition is wrong.
Selection selectionOf(const Choice& choice);

/// The rows of a selection.
struct ChosenRows {
  std::vector<Row> rows;
  Waste waste;  ///< when duplicates were selected
};

/// The variables of `programs` that `selection` keeps, in their order. Says on standard error that there is none.
ChosenRows chooseRows(const std::vector<const Inventory*>& programs, const Selection& selection);
