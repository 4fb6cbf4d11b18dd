// Where a variable is, as far as one place can be told for the whole run of the program.
#pragma once

#include <cstdint>
#include <optional>

#include "debuginfo/debugFile.h"
#include "debuginfo/unitLayout.h"

struct Location {
  enum class Kind {
    None,         ///< it has no place of its own, or one in registers or on the stack
    Memory,       ///< at `address`
    ThreadLocal,  ///< at byte `address` of the block of each thread
    Scattered,    ///< in pieces, of which the first in memory is at `address`
    Computed,     ///< in memory, at a place that is found out only when the program runs
    Unreadable    ///< the information is damaged
  };
  Kind kind = Kind::None;
  std::uint64_t address = 0;  ///< as the debugging information has it
  std::uint64_t base = 0;     ///< the address that it is relative to: where the object begins that it is a part of
  bool isNarrowed = false;    ///< what is at `address` is smaller than the type: its value is computed from that
};

/// The location that the expression in the bytes from `cursor` on describes.
Location evaluate(ByteCursor cursor, const DebugFile& file, const Unit& unit, const FormSizes& sizes);
