// Limits the memory of a reader that makes one pass over a memory-mapped file. Used by debugFile and sharedReading.
#pragma once

#include <cstdint>

/// Releases the pages of a mapped file that have been read.
class PassedPages {
 public:
  /// Reports that the reader has reached `address`. Releases the pages read since the last release once they are many
  /// and belong to the same file. The system reads them again if they are accessed later.
  void advanceTo(const void* address);

 private:
  std::uintptr_t from_ = 0;             // start of the pages not yet released
  std::uintptr_t begin_ = 0, end_ = 0;  // of the mapping that contains them
};
