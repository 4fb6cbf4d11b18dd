// File patterns as in .gitignore. Used by budgets.
#pragma once

#include <string>
#include <string_view>
#include <vector>

/// A pattern that matches files and directories, and everything in those directories.
///
/// Each component is a shell pattern, as in fnmatch(3); the component `**` matches any number of directories. A pattern
/// without a '/', except at its end, matches at any depth; other patterns match from the start of the path. One with a
/// leading '/' also matches absolute paths. One with a trailing '/' matches directories only.
class PathPattern {
 public:
  /// Throws UsageError when `pattern` is invalid.
  explicit PathPattern(std::string_view pattern);

  /// Whether it matches the file `path`.
  bool matches(std::string_view path) const;
  /// Whether it matches everything: `*` and `**` do.
  bool isEverything() const { return isEverything_; }

 private:
  bool matchesFromStart(const std::vector<std::string>& path) const;

  std::vector<std::string> parts_;
  bool isEverything_;
  bool isRooted_;      // has a leading '/'
  bool isDirectory_;   // has a trailing '/'
  bool isAtAnyDepth_;  // otherwise it matches from the start of the path
};
