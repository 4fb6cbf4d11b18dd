// The commands of tolquin. Each adds itself to the command line.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>

/// What a command does once the command line has been read. Returns the exit status of the program. Throws UserError.
using Action = std::function<int()>;

/// Adds the command to `app`; `action` is set when the command line names it. `app` and `action` live as long as the
/// command is used.
void addListCommand(CLI::App& app, Action& action);
void addReportCommand(CLI::App& app, Action& action);
void addDiffCommand(CLI::App& app, Action& action);
void addExportCommand(CLI::App& app, Action& action);
void addTablesCommand(CLI::App& app, Action& action);
