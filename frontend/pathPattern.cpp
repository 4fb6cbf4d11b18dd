#include "frontend/pathPattern.h"

#include <fnmatch.h>

#include <algorithm>

#include "src/userError.h"

namespace {

constexpr std::string_view anyDirectories = "**";

// The non-empty components of `path`.
std::vector<std::string> partsOf(std::string_view path) {
  std::vector<std::string> parts;
  while (!path.empty()) {
    const std::string_view part = path.substr(0, path.find('/'));
    if (!part.empty()) parts.emplace_back(part);
    path.remove_prefix(std::min(part.size() + 1, path.size()));
  }
  return parts;
}

bool fits(const std::string& pattern, const std::string& part) {
  return fnmatch(pattern.c_str(), part.c_str(), 0) == 0;
}

}  // namespace

PathPattern::PathPattern(std::string_view pattern)
    : parts_(partsOf(pattern)),
      isEverything_(pattern == "*" || pattern == anyDirectories),
      isRooted_(pattern.starts_with('/')),
      isDirectory_(pattern.ends_with('/')),
      isAtAnyDepth_(parts_.size() == 1 && !isRooted_ && parts_[0] != anyDirectories) {
  // Only directories within, as a file is none.
  if (isDirectory_ && !parts_.empty() && parts_.back() == anyDirectories) parts_.emplace_back("*");
  if (parts_.empty()) throw UsageError("invalid pattern \"" + std::string(pattern) + "\": it matches no file");
  if (pattern.starts_with('!')) throw UsageError("a pattern cannot start with !; write \\! to match that character");
}

bool PathPattern::matches(std::string_view path) const {
  std::vector<std::string> parts = partsOf(path);
  if (!isAtAnyDepth_) {
    const bool isAbsolute = path.starts_with('/');
    return (!isAbsolute || isRooted_ || parts_[0] == anyDirectories) && matchesFromStart(parts);
  }
  if (isDirectory_ && !parts.empty()) parts.pop_back();
  return std::any_of(parts.begin(), parts.end(), [&](const std::string& part) { return fits(parts_[0], part); });
}

bool PathPattern::matchesFromStart(const std::vector<std::string>& path) const {
  std::size_t part = 0;
  std::size_t afterAny = 0;  // the part after the latest **; 0: none so far
  std::size_t retry = 0;     // the component of the path at which to try that part next
  for (std::size_t at = 0; at < path.size();) {
    if (part == parts_.size()) return true;  // the pattern matches a directory of the path
    if (parts_[part] == anyDirectories) {
      afterAny = ++part;
      retry = at;
    } else if (fits(parts_[part], path[at])) {
      ++part;
      ++at;
    } else if (afterAny > 0) {
      part = afterAny;
      at = ++retry;
    } else {
      return false;
    }
  }
  return part == parts_.size() && !isDirectory_;
}
