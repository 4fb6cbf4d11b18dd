// Parses C++ names and respells them as gdb does. Pure functions on texts.
#pragma once

#include <optional>
#include <string>
#include <string_view>

/// Respells `name` as gdb does: integer types ("long unsigned int" becomes "unsigned long"), also within template
/// arguments, and a space between consecutive closing angle brackets.
std::string canonicalName(std::string_view name);

/// Removes ABI tags: "name[abi:cxx11]" becomes "name".
std::string withoutTags(std::string name);

/// The arguments of an instance of a variable template, "<3>". Compilers give them only in the symbol name
/// `linkageName`, which may be null. Empty if `name` contains them already or there are none.
std::string templateArguments(std::string_view name, const char* linkageName);

/// The scopes before `name` in the name of its symbol: "ns::function::". Empty if they cannot be determined.
std::optional<std::string> scopesInSymbol(std::string_view symbol, std::string_view name);

/// The scopes of what is declared in the function with the symbol name `linkageName`, which may be null:
/// "ns::function::". Empty if they cannot be determined.
std::optional<std::string> scopesInFunction(const char* linkageName);

/// The variable whose mangled name `symbol` is, "ns::name"; empty if it is not the mangled name of a variable.
std::string variableOfSymbol(std::string_view symbol);

/// The name of the variable of a structured binding, "[a, b]", if `symbol` is the mangled name of one; otherwise empty.
std::string bindingInSymbol(std::string_view symbol);
