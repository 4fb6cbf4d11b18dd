// Lines of objdump.1: parsed, against a slow reading of the same line.
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "expect.h"
#include "objRead.h"
#include "tolquin.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string line(reinterpret_cast<const char*>(data), size);
  line.resize(std::strlen(line.c_str()));
  if (line.size() >= RecordSize) return 0;
  std::vector<std::string> words;
  split(line, " ", words);
  std::vector<char> buffer(line.c_str(), line.c_str() + line.size() + 1);
  sobjdump1 record{};
  const int result = populate_sobjdump1(&record, buffer.data());
  EXPECT(result == (words.size() >= 3 ? 0 : -1));
  if (result != 0) return 0;
  EXPECT(words[0] == record.Address && words[2] == record.VariableName);
  EXPECT(words[1] != "<NULL>" || record.DataSize == -1);
  EXPECT(str_trim(record.VariableName) == record.VariableName);
  return 0;
}
