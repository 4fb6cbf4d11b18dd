// Options that several commands share: which inputs to read, and which of their variables to select.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "debuginfo/inventory.h"
#include "frontend/commands/commandLine.h"
#include "frontend/selection.h"

/// The values of the shared options.
struct Choice {
  std::vector<std::string> inputs;
  std::string where;
  bool mutableOnly = false;
  bool duplicates = false;
  ReadOptions reading;
};

/// Adds -j to `command`. Parsing sets `choice`, which must live as long as `command`; the same holds for the others.
void addJobsOption(Command& command, Choice& choice);

/// Adds INPUT and -j.
void addInputOptions(Command& command, Choice& choice);

/// Adds --where, --mutable and --artificial.
void addConditionOptions(Command& command, Choice& choice);

/// Adds --where, --mutable, --artificial and --duplicates.
void addSelectionOptions(Command& command, Choice& choice);

/// Adds -n with the help text `meaning`. Parsing sets `rows`, which must live as long as `command`.
void addRowsOption(Command& command, std::optional<std::int64_t>& rows, const std::string& meaning);

/// Throws UsageError when no input is given.
void requireInput(const Choice& choice);

/// The selection that `choice` describes. Throws UsageError when a condition is invalid.
Selection selectionOf(const Choice& choice);

/// The rows of a selection.
struct ChosenRows {
  std::vector<Row> rows;
  Waste waste;  ///< set when duplicates were selected
};

/// The variables of `programs` that `selection` keeps, in their order. Prints a message if there are none.
ChosenRows chooseRows(const std::vector<const Inventory*>& programs, const Selection& selection);
