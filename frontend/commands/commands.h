// The commands of tolquin. main.cpp adds each of them to the command line.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>

/// The exit status of a command when a budget or limit is exceeded.
constexpr int limitExceeded = 3;

/// Runs a command after the command line has been parsed. Returns the exit status of the program. Throws UserError.
using Action = std::function<int()>;

/// Adds the command to `app`. Parsing a command line that names it sets `action`. Both must outlive the parsing.
void addListCommand(CLI::App& app, Action& action);
void addReportCommand(CLI::App& app, Action& action);
void addDiffCommand(CLI::App& app, Action& action);
void addExportCommand(CLI::App& app, Action& action);
void addTablesCommand(CLI::App& app, Action& action);
