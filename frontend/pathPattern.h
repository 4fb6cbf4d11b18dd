// Patterns of files as in .gitignore.
#pragma once

#include <string>
#include <string_view>
#include <vector>

/// A pattern that stands for files and directories, and for everything within these.
///
/// Each part between '/' is one of a shell, as fnmatch(3) takes it; `**` as a whole part stands for any number of
/// directories. A pattern without a '/', or with one at its end only, fits at any depth; others fit from the start of
/// the path. A '/' in front does that, and fits absolute paths too. A '/' at the end: directories only.
class PathPattern {
 public:
  /// Throws UsageError when `pattern` stands for nothing.
  explicit PathPattern(std::string_view pattern);

  /// Whether it stands for the file `path`.
  bool matches(std::string_view path) const;
  /// Whether it stands for everything: `*` and `**` do.
  bool isEverything() const { return isEverything_; }

 private:
  bool matchesFromStart(const std::vector<std::string>& path) const;

  std::vector<std::string> parts_;
  bool isEverything_;
  bool isRooted_;      // a '/' is in front
  bool isDirectory_;   // a '/' is at the end
  bool isAtAnyDepth_;  // otherwise from the start of the path
};
