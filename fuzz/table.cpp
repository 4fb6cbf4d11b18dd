// Fuzzes damaged table files: the input is a sequence of changes to a valid table of several nodes, each three bytes of
// offset and one of value. Opening, looking up and checking end with a result or with Error, in bounded time, and an
// item that is found is the right one.
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <string>

#include "btree.h"
#include "expect.h"
#include "io.h"

namespace {

struct Failed {};

struct Item {
  char KeyField[51]{};
  char text[2500]{};
  bool isValid() const { return std::memchr(text, 0, sizeof text) != nullptr; }
};
using Table = BTTableClass<char[51], Item>;

Item item(int number) {
  Item made;
  std::snprintf(made.KeyField, sizeof made.KeyField, "%-50d", 100 + number);
  return made;
}

constexpr int items = 80;

std::string goodTable(const std::string& path, int file) {
  {
    Table table('w', path.c_str());
    for (int i = 0; i < items; ++i) table.Insert(item(i));
  }
  std::string bytes(static_cast<std::size_t>(lseek(file, 0, SEEK_END)), '\0');
  EXPECT(readAt(file, bytes.data(), bytes.size(), 0));
  return bytes;
}

}  // namespace

// Replaces the program's own Error, which would end the process.
void Error(const char*) { throw Failed(); }

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const UniqueFd file(memfd_create("table", MFD_CLOEXEC));
  static const std::string path = "/proc/self/fd/" + std::to_string(file.get());
  static const std::string good = goodTable(path, file.get());
  std::string bytes = good;
  for (std::size_t at = 0; at + 4 <= size; at += 4) {
    const unsigned where = static_cast<unsigned>(data[at] << 16 | data[at + 1] << 8 | data[at + 2]);
    const std::size_t place = where % bytes.size();
    // A change to the first four bytes truncates the file instead.
    if (place < 4)
      bytes.resize(bytes.size() - data[at + 3] * 100u);
    else
      bytes[place] = static_cast<char>(data[at + 3]);
  }
  if (ftruncate(file.get(), 0) != 0 || !writeAt(file.get(), bytes.data(), bytes.size(), 0)) return 0;
  try {
    Table table('r', path.c_str());
    Item found;
    for (int i = 0; i < items; ++i) {
      if (table.Retrieve(item(i).KeyField, found)) EXPECT(std::strcmp(found.KeyField, item(i).KeyField) == 0);
    }
    table.Check();
  } catch (const Failed&) {
  }
  return 0;
}
