// Spells the types of debugging information as gdb does, and takes the texts apart that C++ names consist of.
#pragma once

#include <elfutils/libdw.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

/// Spells the integer types in `name` as gdb does ("long unsigned int" becomes "unsigned long"), also within template
/// arguments, whose closing brackets are kept apart by blanks.
std::string canonicalName(std::string_view name);

/// Removes every scope from `name`, also within template arguments: "a::B<c::D>" becomes "B<D>".
std::string withoutScopes(std::string_view name);

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

/// How a type is written around a name.
struct TypeText {
  std::string base;    ///< "const char"
  std::string prefix;  ///< "* const "; what stands between base and name
  std::string suffix;  ///< "[3]", ")(int)"; what stands behind the name
  bool apart = false;  ///< name and type are written apart: "int (*)(int) name"

  /// The type alone: "int (*)(int)".
  std::string type() const;
  /// The declaration of `name`.
  std::string declare(const std::string& name) const;
};

/// Spells types. Results are remembered by entry.
class TypeNames {
 public:
  /// With `qualified`, names of C++ types have their scopes in front. `scopes` must outlive this object.
  TypeNames(const Scopes& scopes, bool qualified) : scopes_(scopes), qualified_(qualified) {}

  /// The text of type `type` in a unit written in C++ (`cxx`) or C; empty for damaged information and for a
  /// type too large for a table.
  const std::optional<TypeText>& spell(const Dwarf_Die& type, bool cxx);

 private:
  struct Builder;

  const Scopes& scopes_;
  const bool qualified_;
  std::unordered_map<const void*, std::optional<TypeText>> known_[2];
};
