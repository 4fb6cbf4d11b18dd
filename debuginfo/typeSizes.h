// Sizes of types.
#pragma once

#include <cstdint>
#include <optional>

#include "debuginfo/die.h"

/// The number of elements that the dimension `subrange` of an array has; empty when it has no bound.
std::optional<std::uint64_t> arrayExtent(const Die& subrange);

/// Size of a type in bytes; empty when it has none or it cannot be told.
std::optional<std::uint64_t> sizeOfType(const Die& type);

/// Whether objects of this type may be larger than it is: a structure at whose end is an array without a bound.
bool hasOpenEnd(const Die& type);

/// The type behind all pointers, arrays, functions, references and qualifiers. None when that is void or a vector.
Die namedTypeWithin(const Die& type);
