// gdb's answers: the first line of the input is the name asked for, the rest the answer.
#include <cstdint>
#include <string>

#include "expect.h"
#include "objRead.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string input(reinterpret_cast<const char*>(data), size);
  std::size_t start = std::min(input.find('\n'), size);
  const std::string name = input.substr(0, start);
  std::string type;
  AnswerReader answer(name, type);
  while (start < size) {
    const std::size_t end = std::min(input.find('\n', ++start), size);
    answer(input.substr(start, end - start));
    start = end;
  }
  EXPECT(answer.found() || type.empty());
  EXPECT(!type.ends_with(' ') && type.find('\n') == std::string::npos);
  EXPECT(remove_all_scopes(remove_all_scopes(name)) == remove_all_scopes(name));
  return 0;
}
