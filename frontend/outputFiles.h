// Files that appear whole or not at all: each is written beside its place and renamed. Signals that end the program
// wait meanwhile, so that it leaves nothing behind.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "frontend/endingSignals.h"

/// The file that `path` stands for, symbolic links followed, whether it is there or not. Throws UserError when
/// something else than a regular file has that name.
std::string regularFile(const std::string& path);

/// Makes the directory `path`, and those above it, if they are missing. Throws UserError when that fails.
void makeDirectory(const std::string& path);

class OutputFiles {
 public:
  OutputFiles() = default;
  /// Removes what was written but not put in place.
  ~OutputFiles();
  OutputFiles(const OutputFiles&) = delete;
  OutputFiles& operator=(const OutputFiles&) = delete;

  /// Writes the file `path` next to its place. Throws UserError when that fails, a full disk included, and when
  /// something else than a regular file has that name. A file that is replaced keeps its permissions.
  void write(const std::string& path, std::string_view content);

  /// Puts all that was written in place. Throws UserError when that fails.
  void commit();

 private:
  EndingSignals signals_;
  struct Written {
    std::string target;
    std::string temporary;
  };

  std::vector<Written> files_;
};
