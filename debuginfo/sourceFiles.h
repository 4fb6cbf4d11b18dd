// The names of source files, from the headers of line number tables. libdw is not used for this because it would read
// the line numbers too.
#pragma once

#include <cstdint>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "debuginfo/die.h"
#include "debuginfo/inventory.h"
#include "debuginfo/unitLayout.h"

/// Looks up file names by number.
class SourceFiles {
 public:
  SourceFiles(UnitLayouts& layouts, TextPool& texts) : layouts_(layouts), texts_(texts) {}

  /// The path, without "." and "..", of file `number` in the table of the unit with the top DIE `unit` (for a split
  /// unit, that of the skeleton). `directory`: the compilation directory to use if the unit has none; may be null.
  /// Empty if there is no such file.
  std::string_view name(const Die& unit, std::uint64_t number, const char* directory);

 private:
  struct File {
    const char* name = "";
    std::uint64_t directory = 0;
    std::string_view path;  // built on first use
  };
  struct List {
    std::vector<const char*> directories;
    std::vector<File> files;
    const char* compiledIn = nullptr;
  };
  class Header;

  List& listOf(const Die& unit);

  UnitLayouts& layouts_;
  TextPool& texts_;
  std::unordered_map<const void*, List> lists_;  // cache, by the top DIEs of units
};
