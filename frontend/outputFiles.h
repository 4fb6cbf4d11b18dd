// Files that appear whole or not at all: each is written beside its place and renamed. Signals that end the program
// wait meanwhile, so that it leaves nothing behind.
#pragma once

#include <csignal>
#include <string>
#include <vector>

/// Makes the directory `path`, and those above it, if they are missing. Throws UserError when that fails.
void makeDirectory(const std::string& path);

class OutputFiles {
 public:
  /// Files will appear in `directory`, which exists.
  explicit OutputFiles(std::string directory);
  /// Removes what was written but not put in place.
  ~OutputFiles();
  OutputFiles(const OutputFiles&) = delete;
  OutputFiles& operator=(const OutputFiles&) = delete;

  /// Writes the file `name` beside its place. Throws UserError when that fails, a full disk included.
  void write(const std::string& name, const std::string& content);

  /// Puts all that was written in place. Throws UserError when that fails.
  void commit();

 private:
  std::string directory_;
  std::vector<std::string> names_;
  sigset_t signalsBefore_{};
};
