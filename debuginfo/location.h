// Evaluates the location expressions of variables with a fixed address.
#pragma once

#include <cstdint>
#include <optional>

#include "debuginfo/debugFile.h"
#include "debuginfo/unitLayout.h"

/// The result of evaluating a location expression.
struct Location {
  enum class Kind {
    None,         ///< not in memory, or on the stack
    Memory,       ///< at `address`
    ThreadLocal,  ///< at offset `address` in each thread's TLS block
    Computed,     ///< in memory, at an address that is known only at run time
    Unreadable    ///< the expression is damaged or not supported
  };
  Kind kind = Kind::None;
  std::uint64_t address = 0;  ///< in terms of the debugging information
  std::uint64_t base = 0;     ///< start of the object that contains it, to which the expression is relative
  bool isNarrowed = false;    ///< the value is computed from the memory at `address`, which is smaller than the type
  bool isApart = false;       ///< it is in pieces that are not adjacent; the first is at `address`
  std::optional<std::uint64_t> bytes{};  ///< for a variable in pieces, the total size of those in memory
};

/// Evaluates the location expression from `cursor` to its end. `sizes` are those of `unit`.
Location evaluate(ByteCursor cursor, const DebugFile& file, const Unit& unit, const FormSizes& sizes);
