// Lookups in sizes.tbl: the first line of the input is the type, the rest the table; against a slow reading.
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "expect.h"
#include "tolquin.h"

namespace {

// What the table says, by the description of the format; lines fit into a record here.
int slowLookup(const std::string& table, std::string type) {
  type.resize(std::min(type.find('*'), type.size()));
  type.resize(type.find_last_not_of(" \t\n\v\f\r") + 1);
  type.erase(0, std::min(type.find_first_not_of(" \t\n\v\f\r"), type.size()));
  if (type.starts_with("static ")) type.erase(0, 7);
  for (std::size_t start = 0; start < table.size();) {
    const std::size_t end = std::min(table.find('\n', start), table.size() - 1);
    const std::string line = table.substr(start, end + 1 - start);
    start = end + 1;
    const std::size_t tab = line.find('\t');
    if (tab == std::string::npos || line.find_first_not_of('\t') == std::string::npos) continue;
    if (!line.substr(0, tab).starts_with(type)) continue;
    const long size = std::strtol(line.c_str() + tab + 1, nullptr, 10);
    return static_cast<int>(std::min<long>(std::max<long>(size, -1), INT_MAX));
  }
  return -1;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string input(reinterpret_cast<const char*>(data), size);
  const std::size_t newline = input.find('\n');
  if (newline == std::string::npos || input.find('\0') != std::string::npos || size >= RecordSize) return 0;
  const std::string type = input.substr(0, newline);
  std::string table = input.substr(newline + 1);
  if (table.empty()) return 0;
  FILE* file = fmemopen(table.data(), table.size(), "r");
  int found = 77;
  char buffer[RecordSize];
  get_Dsize(file, &found, buffer, type.c_str());
  std::fclose(file);
  EXPECT(found == slowLookup(table, type));
  return 0;
}
