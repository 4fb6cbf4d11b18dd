// Atomic output files for `report` and `tables`: each is written under a temporary name next to its destination and
// then renamed. Signals that end the program are blocked meanwhile, so that no temporary file is left.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "frontend/endingSignals.h"

/// Follows the symbolic links of `path`, which need not exist. Throws UserError when something other than a regular
/// file has that name.
std::string regularFile(const std::string& path);

/// Creates the directory `path` and its parents if they do not exist. Throws UserError when that fails.
void makeDirectory(const std::string& path);

/// A set of output files that are put in place together.
class OutputFiles {
 public:
  OutputFiles() = default;
  /// Removes the temporary files that were not put in place.
  ~OutputFiles();
  OutputFiles(const OutputFiles&) = delete;
  OutputFiles& operator=(const OutputFiles&) = delete;

  /// Writes the file `path` under its temporary name. Throws UserError when writing fails, for example because the disk
  /// is full, and when `path` exists but is not a regular file. A file that is
  /// replaced keeps its permissions.
  void write(const std::string& path, std::string_view content);

  /// Renames all files to their final names. Throws UserError when that fails.
  void commit();

 private:
  EndingSignals signals_;
  struct Written {
    std::string target;
    std::string temporary;
  };

  std::vector<Written> files_;
};
