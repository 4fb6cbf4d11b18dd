// The texts that C++ names consist of, taken apart and put together as gdb does.
#pragma once

#include <string>
#include <string_view>

/// Spells the integer types in `name` as gdb does ("long unsigned int" becomes "unsigned long"), also within template
/// arguments, whose closing brackets are kept apart by blanks.
std::string canonicalName(std::string_view name);
