// The names of source files, as the tables of line numbers list them. Only the headers of these are read; libdw would
// read the lines too.
#pragma once

#include <cstdint>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "debuginfo/die.h"
#include "debuginfo/inventory.h"
#include "debuginfo/unitLayout.h"

class SourceFiles {
 public:
  SourceFiles(UnitLayouts& layouts, TextPool& texts) : layouts_(layouts), texts_(texts) {}

  /// The path, without "." and "..", of the file with the number `number` in the list of `unit`, the top entry of a
  /// unit (that of the skeleton if it was split off). `directory`: where the unit was compiled, if it does not say so
  /// itself; may be null. Empty when there is none.
  std::string_view name(const Die& unit, std::uint64_t number, const char* directory);

 private:
  struct File {
    const char* name = "";
    std::uint64_t directory = 0;
    std::string_view path;  // put together when it is first asked for
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
  std::unordered_map<const void*, List> lists_;  // of the units asked for latest, by their top entries
};
