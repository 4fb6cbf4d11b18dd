// Spells the types of debugging information as C or C++ declares them, in gdb's words.
#pragma once

#include <string_view>
#include <unordered_map>

#include "debuginfo/die.h"
#include "debuginfo/inventory.h"
#include "debuginfo/scopes.h"

struct TypeText {
  std::string_view text;  ///< "int (*)(int)"; empty for damaged information
  bool endless = false;   ///< there are more types within it than any text could hold
};

/// Spells types. Results are remembered by entry.
class TypeNames {
 public:
  TypeNames(Scopes& scopes, TextPool& texts) : scopes_(scopes), texts_(texts) {}

  /// The text of type `type` in a unit written in C++ (`cxx`) or C.
  const TypeText& spell(const Die& type, bool cxx);

 private:
  struct Builder;

  Scopes& scopes_;
  TextPool& texts_;
  std::unordered_map<const void*, TypeText> known_[2];
};
