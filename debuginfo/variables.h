// Reads the variables of one unit after another.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "debuginfo/debugFile.h"
#include "debuginfo/findings.h"
#include "debuginfo/inventory.h"
#include "debuginfo/location.h"
#include "debuginfo/scopes.h"
#include "debuginfo/sourceFiles.h"
#include "debuginfo/typeNames.h"

class VariableReader {
 public:
  /// Keeps texts in `texts`.
  VariableReader(const DebugFile& file, const ReadOptions& options, TextPool& texts);

  void read(const Unit& unit);
  /// What was found in the units read since the last call.
  Findings take() { return std::exchange(found_, {}); }

 private:
  struct TypeFacts {
    std::string_view text;
    bool endless = false;
    std::optional<std::uint64_t> size;
    bool open = false;  // its objects may be larger
    std::optional<std::uint64_t> namedSize;
    bool namedIncomplete = false;
  };
  struct Place {
    std::string_view file;
    int line = 0;
  };

  // A variable while it is read.
  struct Entry {
    Die die;
    RawEntry raw;
    std::vector<Die> completed;  // what it completes, the nearest first
    bool inFunction = false;
    std::string_view name;  // its own
    const char* linkageName = nullptr;
  };

  void noteDirectory(const Unit& unit);
  void readVariable(const MetVariable& met);
  Location locationOf(const RawEntry& raw) const;
  Entry entryOf(const MetVariable& met, const RawEntry& raw);
  bool isSet(const Entry& entry, Slot slot, unsigned name) const;
  void list(Entry& entry, const Location& location, const ImageSection* section);
  void noteUnplaced(const MetVariable& met, const RawEntry& raw);
  bool listMembers(const Entry& entry, const Location& location, const ImageSection* section);
  bool isLeftOut(const Entry& entry, const Location& location, const ImageSection* section);
  void describe(const Entry& entry, const Location& location, Variable& variable);
  std::string_view fullName(const Entry& entry, Variable& variable);
  std::string_view nameBySymbol(const Entry& entry, const Location& location);
  std::optional<std::string> scopesBySymbol(const Entry& entry, const Variable& variable) const;
  std::vector<std::string_view> symbolsOf(const Entry& entry, std::uint64_t address, bool threadLocal) const;
  void noteKnown(const MetVariable& met, const RawEntry& raw);
  Place placeOf(const Entry& entry);
  std::string_view ownFile(std::uint64_t number);
  std::string_view fileOf(const Die& die, std::uint64_t number);
  static Die typeEntry(const Entry& entry);
  const TypeFacts& typeOf(const Entry& entry);
  const TypeFacts& facts(const Die& type);
  std::string about(const Entry& entry);

  const char* text(const RawValue& value) const;
  std::optional<std::uint64_t> number(const RawValue& value) const;

  const DebugFile& file_;
  const ReadOptions options_;
  TextPool& texts_;
  Findings found_;
  Scopes scopes_;
  TypeNames types_;
  SourceFiles files_;

  // Of the unit that is being read.
  const Unit* unit_ = nullptr;
  UnitLayout layout_;
  const SectionBytes* names_ = nullptr;                              // the section of texts
  std::unordered_map<std::uint64_t, const TypeFacts*> typesInUnit_;  // by offset
  std::unordered_map<std::uint64_t, std::string_view> filesOfUnit_;  // by number
  bool cxx_ = false;
  int unionDepth_ = 0;                                   // of unnamed unions within each other
  std::unordered_map<const void*, TypeFacts> facts_[2];  // by the entry of the type, in C and in C++
  std::unordered_map<const void*, Die> skeletons_;       // by the top entry of the unit that was split off
};
