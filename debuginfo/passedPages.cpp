#include "debuginfo/passedPages.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cinttypes>
#include <cstdio>
#include <string>
#include <tuple>
#include <utility>

#include "src/io.h"

namespace {

// The mapping of a file that contains `address`; an empty range if there is none.
std::pair<std::uintptr_t, std::uintptr_t> mappedFileAround(std::uintptr_t address) {
  LineReader lines("/proc/self/maps");
  std::string_view line;
  while (lines.isOpen() && lines.next(line)) {
    std::uintptr_t begin = 0;
    std::uintptr_t end = 0;
    unsigned long inode = 0;
    // See proc(5): addresses, permissions, offset, device, inode, path.
    const int count =
        std::sscanf(std::string(line).c_str(), "%" SCNxPTR "-%" SCNxPTR " %*s %*s %*s %lu", &begin, &end, &inode);
    if (count == 3 && address >= begin && address < end)
      return inode != 0 ? std::pair(begin, end) : std::pair(end, end);
  }
  return {};
}

}  // namespace

// The pages may be dropped because libelf does not modify them: it does so only for object files, not for programs.
void PassedPages::advanceTo(const void* address) {
  constexpr std::uintptr_t much = std::uintptr_t{4} << 20;
  const auto now = reinterpret_cast<std::uintptr_t>(address);
  if (now < from_ || now - from_ < much) {
    if (now < from_) from_ = now;
    return;
  }
  if (from_ < begin_ || now >= end_) std::tie(begin_, end_) = mappedFileAround(now);
  if (from_ >= begin_ && now < end_) {
    const auto page = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
    const std::uintptr_t first = (from_ + page - 1) / page * page;
    // NOLINTNEXTLINE(performance-no-int-to-ptr)
    madvise(reinterpret_cast<void*>(first), now / page * page - first, MADV_DONTNEED);
  }
  from_ = now;
}
