// Spells types as C or C++ declares them, in the same way as gdb.
#pragma once

#include <string_view>
#include <unordered_map>

#include "debuginfo/die.h"
#include "debuginfo/inventory.h"
#include "debuginfo/scopes.h"

/// Spells types. Results are cached by DIE.
class TypeNames {
 public:
  TypeNames(Scopes& scopes, TextPool& texts) : scopes_(scopes), texts_(texts) {}

  /// The text of `type` in a unit in C++ (`cxx`) or C: "int (*)(int)". Empty if the debugging information is damaged,
  /// or if the type contains too many types to spell.
  std::string_view spell(const Die& type, bool cxx);

 private:
  struct Builder;

  Scopes& scopes_;
  TextPool& texts_;
  std::unordered_map<const void*, std::string_view> spelled_[2];  // in C and in C++
};
