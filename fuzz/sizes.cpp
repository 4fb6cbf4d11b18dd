// Lookups in sizes.tbl: the first line of the input is the type, the rest the table. A size comes from a line that
// begins with the type, and asking twice gives the same.
#include <cstdint>
#include <string>

#include "expect.h"
#include "tolquin.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string input(reinterpret_cast<const char*>(data), size);
  const std::size_t newline = std::min(input.find('\n'), size);
  const std::string type = input.substr(0, newline);
  std::string table = input.substr(newline) + "\n";
  FILE* file = fmemopen(table.data(), table.size(), "r");
  int found[2] = {77, 78};
  char buffer[RecordSize];
  for (int& answer : found) get_Dsize(file, &answer, buffer, type.c_str());
  std::fclose(file);
  EXPECT(found[0] == found[1] && found[0] >= -1);
  const std::string bare = type.substr(0, type.find_first_of("* \t\v\f\r"));
  EXPECT(found[0] == -1 || bare == "static" || input.find('\0') != std::string::npos ||
         table.find(bare) != std::string::npos);
  return 0;
}
