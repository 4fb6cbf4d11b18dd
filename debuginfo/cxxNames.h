// The texts that C++ names consist of, taken apart and put together as gdb does.
#pragma once

#include <optional>
#include <string>
#include <string_view>

/// Spells the integer types in `name` as gdb does ("long unsigned int" becomes "unsigned long"), also within template
/// arguments, whose closing brackets are kept apart by blanks.
std::string canonicalName(std::string_view name);

/// Removes the tags that compilers put behind names: "name[abi:cxx11]" becomes "name".
std::string withoutTags(std::string name);

/// The arguments of an instance of a variable template, "<3>", which compilers give in the symbol's name `linkageName`
/// (may be null) alone; empty when `name` holds them or has none.
std::string templateArguments(std::string_view name, const char* linkageName);

/// What stands before `name` in the name of its symbol: "ns::function::". Empty when that is not known.
std::optional<std::string> scopesInSymbol(std::string_view symbol, std::string_view name);

/// The variable that `symbol` is a mangled name of, "ns::name"; empty when it is of something else, or not mangled.
std::string variableOfSymbol(std::string_view symbol);

/// What the variable is called whose parts a structured binding names, "[a, b]", by the name of its symbol; empty when
/// that is no such name.
std::string bindingInSymbol(std::string_view symbol);
