// Runs tolquin.exe over many executables, several at a time, with tables made from their debugging information.
#pragma once

#include <string>
#include <vector>

struct ScanOptions {
  std::vector<std::string> executables;
  std::string outputDirectory;  ///< the result directories are made in it; empty: beside each executable
  unsigned jobs = 1;            ///< executables at a time
  bool qualified = false;       ///< see makeTables
  bool useDebugger = true;      ///< ask gdb for what the tables lack
  bool gnuLocator = false;      ///< leave the system's addr2line to tolquin.exe, instead of this project's
  std::string self;             ///< path of this program, which makes the tables; tolquin.exe lies beside it
};

/// The directory for the tables of `executable`: its name with ".vym", in `outputDirectory` unless that is empty.
std::string tableDirectory(const std::string& executable, const std::string& outputDirectory);

/// Scans every executable and prints a line for each on standard output, errors on standard error. On a terminal, shows
/// on standard error what is being done. Returns 0, or 1 when any failed. An interrupt ends all that was started, and
/// then this program.
int scan(const ScanOptions& options);
