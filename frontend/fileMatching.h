// Which source file of one build is which of another: the directories of the builds may differ, and files may be
// renamed.
#pragma once

#include <cstddef>
#include <map>
#include <set>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

class FilePairs {
 public:
  /// A text of the build before and one of the build after it.
  using Pair = std::pair<std::string_view, std::string_view>;
  /// How much speaks for each pair.
  using Votes = std::map<Pair, std::size_t>;

  /// Pairs the paths of files, first those that are equal, then those that are equal but for the directories in which
  /// the builds found their sources. The paths live as long as this object.
  FilePairs(const std::vector<std::string_view>& before, const std::vector<std::string_view>& after);

  /// Pairs files of `votes` that have no partner, those with the most votes first.
  void pairVoted(const Votes& votes);

  /// Whether a file of either build has no partner.
  bool isLeftBefore(std::string_view path) const { return before_.contains(path); }
  bool isLeftAfter(std::string_view path) const { return after_.contains(path); }

  /// The name in the build after that of the file `path` of the build before; `path` if it has no partner.
  std::string_view nameAfter(std::string_view path) const;

 private:
  void pairBelow(const Pair& roots);
  Votes rootVotes() const;

  std::set<std::string_view> before_;  // files without a partner
  std::set<std::string_view> after_;
  std::unordered_map<std::string_view, std::string_view> partners_;
};
