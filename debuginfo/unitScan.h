// One pass over the bytes of a unit that finds its variables and scopes. It does not use libdw, which would visit each
// DIE several times.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "debuginfo/abbreviations.h"

/// The scopes of a unit (its namespaces, classes and functions) and which DIEs are directly in each.
class ScopeMap {
 public:
  using Id = std::uint32_t;
  static constexpr Id global = 0;

  struct Scope {
    Id parent = global;
    EntryKind kind = EntryKind::Other;
    const unsigned char* entry = nullptr;
    bool isNamed = false;          // whether the fields below are filled in
    bool inFunction = false;       // is a function or within one; always filled in
    bool inNameless = false;       // one of its functions or classes is unnamed or its name is unknown
    std::uint32_t namespaces = 0;  // length of the namespaces at the start of `forVariables`, without the final "::"
    std::string forVariables;      // prefix of the names of variables, "ns::f::"
    std::string forVariablesC;     // the same in C, where only functions are scopes
    std::string forTypes;          // prefix of the names of types, from the innermost function on
  };

  ScopeMap() { clear(); }
  void clear();
  /// Adds a scope within `parent` with the DIE `entry`.
  Id add(Id parent, EntryKind kind, const unsigned char* entry);
  /// Records that DIEs from `entry` on are directly within `scope`.
  void change(const unsigned char* entry, Id scope) {
    if (spans_.back().scope != scope) spans_.push_back({entry, scope});
  }
  /// The scope that directly contains `entry`.
  Id around(const void* entry) const;
  Scope& operator[](Id id) { return scopes_[id]; }
  const Scope& operator[](Id id) const { return scopes_[id]; }

 private:
  struct Span {
    const unsigned char* begin;
    Id scope;
  };
  std::vector<Scope> scopes_;
  std::vector<Span> spans_;
};

/// A variable found in a scan.
struct MetVariable {
  const unsigned char* entry = nullptr;       ///< start of its bytes
  const unsigned char* attributes = nullptr;  ///< start of its attributes
  const Abbreviation* abbreviation = nullptr;
  ScopeMap::Id scope = ScopeMap::global;
};

/// Which variables a scan returns: none; those with a location and defined ones outside functions; all.
enum class ScanFor { Scopes, Located, Declared };

/// A scan of a unit and its results.
struct UnitScan {
  ScopeMap scopes;
  /// Those that `purpose` selects; ScanFor::Declared includes static members.
  std::vector<MetVariable> variables;
  bool damaged = false;  ///< the scan ended early

  /// Scans `unit`, whose abbreviations are `table`. Replaces earlier results.
  void run(const UnitLayout& unit, const AbbreviationTable& table, ScanFor purpose);

 private:
  bool isWanted(EntryKind kind, ScanFor purpose, ScopeMap::Id scope) const;
  void enter(const UnitLayout& unit, const AbbreviationTable& table, const Abbreviation& abbreviation,
             const unsigned char* entry, ByteCursor& cursor);

  std::vector<ScopeMap::Id> open_;  // for each DIE whose children are being read, the scope of these
};
