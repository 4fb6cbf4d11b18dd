// Computes the sizes of types and array dimensions.
#pragma once

#include <cstdint>
#include <optional>

#include "debuginfo/die.h"

/// The number of elements in the array dimension `subrange`; empty if it has no bound.
std::optional<std::uint64_t> arrayExtent(const Die& subrange);

/// The size of `type` in bytes; empty if it has none or it cannot be determined.
std::optional<std::uint64_t> sizeOfType(const Die& type);

/// Whether objects of `type` may be larger than the type: it ends with a flexible array member.
bool hasOpenEnd(const Die& type);

/// The named type that is left without pointers, arrays, functions, references and qualifiers. None for void, vectors
/// and unnamed types.
Die namedTypeWithin(const Die& type);
