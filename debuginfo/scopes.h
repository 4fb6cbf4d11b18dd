// The enclosing namespaces, classes and functions of variables and types.
#pragma once

#include <elfutils/libdw.h>

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

/// The enclosing namespaces, classes and functions of the entries that have any.
class Scopes {
 public:
  using Id = std::uint32_t;
  static constexpr Id global = 0;

  /// A scope `name` within `parent`; the text must outlive this object. Returns its id.
  Id enter(Id parent, const char* name) {
    scopes_.push_back({parent, name});
    return static_cast<Id>(scopes_.size());
  }
  /// Notes that `die` stands directly within `scope`.
  void note(const Dwarf_Die& die, Id scope) {
    if (scope != global) scopeOf_.emplace(die.addr, scope);
  }
  /// The scope of `die`, or `otherwise` when none was noted.
  Id of(const Dwarf_Die& die, Id otherwise = global) const {
    const auto found = scopeOf_.find(die.addr);
    return found == scopeOf_.end() ? otherwise : found->second;
  }
  /// The names of a scope and those around it, outermost first.
  std::vector<std::string> path(Id scope) const;
  /// The same as it stands before a name: "a::b::".
  std::string prefix(Id scope) const;

 private:
  struct Scope {
    Id parent;
    const char* name;
  };
  std::vector<Scope> scopes_;
  std::unordered_map<const void*, Id> scopeOf_;
};
