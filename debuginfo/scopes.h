// The enclosing namespaces, classes and functions of variables and types, as name prefixes.
#pragma once

#include <string>
#include <unordered_map>

#include "debuginfo/die.h"
#include "debuginfo/unitScan.h"

/// Names the scopes of DIEs, in the current unit and in others that it refers to.
class Scopes {
 public:
  /// Scans `unit`, which becomes the current unit until the next call. Returns the result of the scan.
  const UnitScan& enter(const UnitLayout& layout, const Die& unit, ScanFor purpose);
  /// The abbreviations of that unit.
  const AbbreviationTable& abbreviations() const { return *table_; }

  /// The prefix of the name of the variable `entry`: "ns::Class::function::". In C (not `cxx`) only
  /// functions are scopes.
  const std::string& ofVariable(const Die& entry, bool cxx);
  /// The length of the namespaces at the start of that prefix in C++.
  std::uint32_t namespacesOf(const Die& entry) { return named(entry).namespaces; }
  /// The prefix of the name of the type `entry` in C++: "ns::Class::". It starts after the innermost function.
  const std::string& ofType(const Die& entry);
  /// Whether `entry` is within a function.
  bool isInFunction(const Die& entry);
  /// Whether `scope` of the current unit is a function or within one.
  bool isInFunction(ScopeMap::Id scope) const { return current_.scopes[scope].inFunction; }
  /// Whether a function or class around `entry` is unnamed or its name is unknown.
  bool isInNameless(const Die& entry) { return named(entry).inNameless; }

  UnitLayouts& layouts() { return layouts_; }

 private:
  ScopeMap& mapOf(const Die& entry);
  ScopeMap::Scope& named(const Die& entry);
  void name(const Die& entry, ScopeMap& map, ScopeMap::Id id);

  UnitLayouts layouts_;
  AbbreviationTables tables_;
  const AbbreviationTable* table_ = nullptr;
  UnitScan current_;
  Dwarf_CU* unit_ = nullptr;                         // of `current_`
  std::unordered_map<Dwarf_CU*, ScopeMap> foreign_;  // other units that DIEs referred to
};
