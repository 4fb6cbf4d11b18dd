// The commands of tolquin. main.cpp adds each of them to the command line.
#pragma once

#include "frontend/commands/commandLine.h"

/// The exit status of a command when a budget or limit is exceeded.
constexpr int limitExceeded = 3;

/// Adds the command to `line`.
void addListCommand(CommandLine& line);
void addReportCommand(CommandLine& line);
void addDiffCommand(CommandLine& line);
void addExportCommand(CommandLine& line);
void addTablesCommand(CommandLine& line);
