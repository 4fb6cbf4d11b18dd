// Keeps the memory of a reader small that passes once over a file which is mapped into memory.
#pragma once

#include <cstdint>

class PassedPages {
 public:
  /// The reader is at `address` now. What it passed since the last call is given back to the system when that is much,
  /// and both places are in the same file; the file is read again where that is looked at later.
  void at(const void* address);

 private:
  std::uintptr_t from_ = 0;             // what was passed since has not been given back
  std::uintptr_t begin_ = 0, end_ = 0;  // of the mapped file that this is in
};
