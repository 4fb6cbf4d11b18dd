// One pass over the bytes of a unit: its variables, and the scopes in it. Entries of other kinds are passed over
// without libdw, which would look at each several times.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "debuginfo/abbreviations.h"

/// The scopes of a unit: its namespaces, classes and functions.
class ScopeMap {
 public:
  using Id = std::uint32_t;
  static constexpr Id global = 0;

  struct Scope {
    Id parent = global;
    EntryKind kind = EntryKind::Other;
    const unsigned char* entry = nullptr;
    bool isNamed = false;          // whether the rest is filled in
    bool inFunction = false;       // it is one or is within one; known from the beginning
    bool inNameless = false;       // of these functions or classes one has a name that is not known
    std::uint32_t namespaces = 0;  // of `forVariables`, the bytes that are namespaces, without "::" behind them
    std::string forVariables;      // what stands before the names of variables, "ns::f::"
    std::string forVariablesC;     // the same in C, where functions alone are scopes
    std::string forTypes;          // before those of types: scopes end at functions
  };

  ScopeMap() { clear(); }
  void clear();
  /// A scope within `parent` whose entry is `entry`.
  Id add(Id parent, EntryKind kind, const unsigned char* entry);
  /// From `entry` on, entries stand directly within `scope`.
  void change(const unsigned char* entry, Id scope) {
    if (spans_.back().scope != scope) spans_.push_back({entry, scope});
  }
  /// The scope around `entry`.
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

/// A variable that was met.
struct MetVariable {
  const unsigned char* entry = nullptr;       ///< where its bytes begin
  const unsigned char* attributes = nullptr;  ///< and those of its attributes
  const Abbreviation* abbreviation = nullptr;
  ScopeMap::Id scope = ScopeMap::global;
};

/// What a pass is for.
enum class ScanFor { Scopes, Located, Declared };

struct UnitScan {
  ScopeMap scopes;
  /// Those with a location, and what is defined outside functions without one; for ScanFor::Declared, all, and static
  /// members.
  std::vector<MetVariable> variables;
  bool damaged = false;  ///< the pass ended early

  /// Passes over `unit`, whose abbreviations are `table`, in place of what was here before.
  void run(const UnitLayout& unit, const AbbreviationTable& table, ScanFor purpose);

 private:
  bool isWanted(EntryKind kind, ScanFor purpose, ScopeMap::Id scope) const;
  void enter(const UnitLayout& unit, const AbbreviationTable& table, const Abbreviation& abbreviation,
             const unsigned char* entry, ByteCursor& cursor);

  std::vector<ScopeMap::Id> open_;  // the scopes of the entries whose children are being read
};
