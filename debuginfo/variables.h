// Reads the variables of units, one unit at a time. Used by sharedReading.
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

/// Collects the variables of units of one program. Caches types and files across units.
class VariableReader {
 public:
  /// Texts are stored in `texts`.
  VariableReader(const DebugFile& file, const ReadOptions& options, TextPool& texts);

  void read(const Unit& unit);
  /// The findings in the units read since the last call.
  Findings takeFindings() { return std::exchange(found_, {}); }

 private:
  struct TypeFacts {
    std::string_view text;
    std::optional<std::uint64_t> size;
    bool open = false;  // its objects may be larger, see hasOpenEnd
    std::optional<std::uint64_t> namedSize;
    bool namedIncomplete = false;
  };
  struct SourceLocation {
    std::string_view file;
    int line = 0;
  };

  // A variable that is being read.
  struct Entry {
    Die die;
    RawEntry raw;
    std::vector<Die> completed;  // the DIEs that it completes, the nearest first
    bool inFunction = false;
    std::string_view name;  // without scopes
    const char* linkageName = nullptr;
  };

  void noteDirectory(const Unit& unit);
  void readVariable(const MetVariable& met);
  Location locationOf(const RawEntry& raw) const;
  ImageAddress inExecutable(const Location& location) const;
  Entry entryOf(const MetVariable& met, const RawEntry& raw);
  bool isSet(const Entry& entry, Slot slot, unsigned name) const;
  void addVariable(Entry& entry, const Location& location, const ImageSection* section);
  void noteUnplaced(const MetVariable& met, const RawEntry& raw);
  bool addMembers(const Entry& entry, const Location& location, const ImageSection* section);
  bool isOmitted(const Entry& entry, const Location& location, const ImageSection* section);
  SymbolTraits traitsOf(const Entry& entry, const Location& location);
  void describe(const Entry& entry, const Location& location, Variable& variable);
  std::string_view fullName(const Entry& entry, const Location& location, Variable& variable);
  std::string_view nameBySymbol(const Entry& entry, const Location& location);
  std::optional<std::string> scopesBySymbol(const Entry& entry, const Location& location) const;
  std::vector<std::string_view> symbolsOf(const Entry& entry, const Location& location) const;
  void noteDeclaration(const MetVariable& met, const RawEntry& raw);
  SourceLocation sourceLocationOf(const Entry& entry);
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

  // State of the unit that is being read.
  const Unit* unit_ = nullptr;
  UnitLayout layout_;
  const SectionBytes* names_ = nullptr;                              // .debug_str
  std::unordered_map<std::uint64_t, const TypeFacts*> typesInUnit_;  // by offset
  std::unordered_map<std::uint64_t, std::string_view> filesOfUnit_;  // by number
  bool cxx_ = false;
  int unionDepth_ = 0;                                   // nesting of unnamed unions
  std::unordered_map<const void*, TypeFacts> facts_[2];  // by the DIE of the type, in C and in C++
  std::unordered_map<const void*, Die> skeletons_;       // by the top DIE of the split unit
};
