#include "frontend/fileMatching.h"

#include <algorithm>
#include <string>
#include <tuple>

namespace {

// A build rarely has sources in more places, and looking below each of them takes a pass over the files.
constexpr std::size_t mostRoots = 32;

// The pairs with the most votes first. Among others the order is the same when the builds change places.
std::vector<FilePairs::Pair> ranked(const FilePairs::Votes& votes) {
  std::vector<std::pair<FilePairs::Pair, std::size_t>> sorted(votes.begin(), votes.end());
  std::sort(sorted.begin(), sorted.end(), [](const auto& a, const auto& b) {
    const auto key = [](const auto& vote) { return std::minmax(vote.first.first, vote.first.second); };
    return std::tuple(b.second, key(a)) < std::tuple(a.second, key(b));
  });
  std::vector<FilePairs::Pair> pairs;
  pairs.reserve(sorted.size());
  for (const auto& [pair, count] : sorted) pairs.push_back(pair);
  return pairs;
}

// The length of the names at the end of both paths that are the same.
std::size_t commonTail(std::string_view a, std::string_view b) {
  const auto end = std::mismatch(a.rbegin(), a.rend(), b.rbegin(), b.rend()).first;
  std::string_view tail = a.substr(a.size() - static_cast<std::size_t>(end - a.rbegin()));
  const auto isWhole = [&tail](std::string_view path) {
    return path.size() == tail.size() || path[path.size() - tail.size() - 1] == '/';
  };
  while (!tail.empty() && !(isWhole(a) && isWhole(b)))
    tail.remove_prefix(std::min(tail.find('/'), tail.size() - 1) + 1);
  return tail.size();
}

}  // namespace

FilePairs::FilePairs(const std::vector<std::string_view>& before, const std::vector<std::string_view>& after)
    : before_(before.begin(), before.end()), after_(after.begin(), after.end()) {
  pairBelow({});
  std::vector<Pair> roots = ranked(rootVotes());
  roots.resize(std::min(roots.size(), mostRoots));
  for (const Pair& pair : roots) pairBelow(pair);
}

void FilePairs::pairVoted(const Votes& votes) {
  for (const auto& [before, after] : ranked(votes)) {
    if (!isLeftBefore(before) || !isLeftAfter(after)) continue;
    partners_[before] = after;
    before_.erase(before);
    after_.erase(after);
  }
}

std::string_view FilePairs::nameAfter(std::string_view path) const {
  const auto found = partners_.find(path);
  return found != partners_.end() ? found->second : path;
}

// Pairs files that are called the same below two directories.
void FilePairs::pairBelow(const Pair& roots) {
  std::erase_if(before_, [&](std::string_view path) {
    if (!path.starts_with(roots.first)) return false;
    const auto found = after_.find(std::string(roots.second).append(path.substr(roots.first.size())));
    if (found == after_.end()) return false;
    partners_[path] = *found;
    after_.erase(found);
    return true;
  });
}

// Directories that differ where paths end alike. Each file votes with the one whose path has the longest end in common
// with its own, and the more, the longer that is.
FilePairs::Votes FilePairs::rootVotes() const {
  struct File {
    std::string_view path;
    bool isAfter;
  };
  std::vector<File> files;
  for (const std::string_view path : before_) files.push_back({path, false});
  for (const std::string_view path : after_) files.push_back({path, true});
  std::sort(files.begin(), files.end(), [](const File& a, const File& b) {
    return std::lexicographical_compare(a.path.rbegin(), a.path.rend(), b.path.rbegin(), b.path.rend());
  });
  Votes votes;
  for (std::size_t i = 1; i < files.size(); ++i) {
    if (files[i - 1].isAfter == files[i].isAfter) continue;
    const std::string_view before = files[files[i].isAfter ? i - 1 : i].path;
    const std::string_view after = files[files[i].isAfter ? i : i - 1].path;
    const std::size_t tail = commonTail(before, after);
    const Pair roots{before.substr(0, before.size() - tail), after.substr(0, after.size() - tail)};
    if (tail > 0) votes[roots] += tail;
  }
  return votes;
}
