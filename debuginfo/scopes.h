// The enclosing namespaces, classes and functions of variables and types, as they stand before names.
#pragma once

#include <string>
#include <unordered_map>

#include "debuginfo/die.h"
#include "debuginfo/unitScan.h"

class Scopes {
 public:
  /// Passes over `unit` and answers for its entries until the next call. Returns what was met.
  const UnitScan& enter(const UnitLayout& layout, const Die& unit, ScanFor purpose);
  /// The abbreviations of that unit.
  const AbbreviationTable& abbreviations() const { return *table_; }

  /// What stands before the name of the variable `entry`: "ns::Class::function::". In C (not `cxx`) only functions are
  /// scopes of variables.
  const std::string& ofVariable(const Die& entry, bool cxx);
  /// The length of the namespaces at the beginning of that in C++.
  std::uint32_t namespacesOf(const Die& entry) { return named(entry).namespaces; }
  /// What stands before the name of the type `entry` in C++: "ns::Class::". Scopes end at functions.
  const std::string& ofType(const Die& entry);
  /// Whether `entry` stands within a function.
  bool isInFunction(const Die& entry);
  /// The same of what stands within `scope` of the unit that was entered.
  bool isInFunction(ScopeMap::Id scope) const { return current_.scopes[scope].inFunction; }
  /// Whether one of the functions or classes around `entry` has a name that is not known.
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
  std::unordered_map<Dwarf_CU*, ScopeMap> foreign_;  // units that entries of others referred to
};
