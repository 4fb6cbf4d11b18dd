// Spells the types of debugging information as gdb does.
#pragma once

#include <elfutils/libdw.h>

#include <optional>
#include <string>
#include <unordered_map>

#include "scopes.h"

/// How a type is written around a name.
struct TypeText {
  std::string base;    ///< "const char"
  std::string prefix;  ///< "* const "; what stands between base and name
  std::string suffix;  ///< "[3]", ")(int)"; what stands behind the name
  bool apart = false;  ///< name and type are written apart: "int (*)(int) name"
  /// There are more types within it than any text could hold; the rest is empty.
  bool endless = false;

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

  /// The text of type `type` in a unit written in C++ (`cxx`) or C; empty for damaged information.
  const std::optional<TypeText>& spell(const Dwarf_Die& type, bool cxx);

 private:
  struct Builder;

  const Scopes& scopes_;
  const bool qualified_;
  std::unordered_map<const void*, std::optional<TypeText>> known_[2];
};
