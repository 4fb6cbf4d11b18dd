// What several entries of the debugging information say together, and sizes of types.
#pragma once

#include <elfutils/libdw.h>

#include <cstdint>
#include <optional>
#include <vector>

// Entries are passed by value where libdw, which takes none as const, has to be called with them.

/// The entry that attribute `name` of `die` refers to; for a type in a type unit, that in the type unit. False when
/// there is none.
bool referredDie(Dwarf_Die& die, unsigned name, Dwarf_Die& result);

/// The name of `die`; where it only stands for a type in a type unit, the name there. Null when there is none.
const char* entryName(Dwarf_Die die);

/// The entries that together describe a variable or function: `die` first, then what it completes: the declaration in a
/// class or namespace, or the abstract description of what was inlined.
std::vector<Dwarf_Die> descriptions(const Dwarf_Die& die);

/// The name that the first of `chain` with a name has; null when none has.
const char* firstName(std::vector<Dwarf_Die> chain);

/// The type that the first of `chain` with a type has; its addr is null when none has.
Dwarf_Die typeOf(std::vector<Dwarf_Die> chain);

/// The number of elements that the dimension `subrange` of an array has; empty when it has no bound.
std::optional<std::uint64_t> arrayExtent(Dwarf_Die subrange);

/// Size of a type in bytes; empty when it has none or it cannot be told.
std::optional<std::uint64_t> sizeOfType(Dwarf_Die type);

/// Whether objects of this type may be larger than it is: a structure at whose end is an array without a bound.
bool hasOpenEnd(Dwarf_Die type);
