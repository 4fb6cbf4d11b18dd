// Shows a result table: aligned for people, or as TSV, CSV or JSON for programs.
#pragma once

#include <string>
#include <vector>

struct ShowOptions {
  std::string directory;             ///< the directory of the table; or the executable whose directory has its name
  std::string format = "table";      ///< table, tsv, csv or json
  std::vector<std::string> columns;  ///< names of columns; empty: all, of a table for people those that say something
  std::string sort;                  ///< name of the column to sort by, with '-' in front in descending order; or empty
  std::string filter;                ///< only rows with this text in a column
};

/// Prints the table on standard output. Throws UserError.
void show(const ShowOptions& options);
