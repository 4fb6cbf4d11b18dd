// The reader of debugging information: a file in ELF, however damaged, gives an error or variables whose types can be
// spelled and whose places can be looked up.
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <string>

#include "cxxNames.h"
#include "debuginfo/inventory.h"
#include "expect.h"
#include "io.h"
#include "locator.h"
#include "userError.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const UniqueFd file(memfd_create("program", MFD_CLOEXEC));
  if (!writeAt(file.get(), data, size, 0)) return 0;
  try {
    const DebugFile program("/proc/self/fd/" + std::to_string(file.get()));
    const Variables variables = readVariables(program, Wanted::Places);
    TypeNames names(variables.scopes, true);
    std::uint64_t last = 0;
    for (const GlobalVariable& variable : variables.list) {
      EXPECT(variable.address >= last && !variable.name.empty());
      last = variable.address;
      if (variable.type.addr == nullptr) continue;
      const auto& text = names.spell(variable.type, variable.cxx);
      if (text) EXPECT(withoutScopes(text->declare(variable.name)).size() <= text->declare(variable.name).size());
    }
    const Locator locator(variables.list);
    EXPECT(!locator.locate(last).empty());
  } catch (const UserError&) {
  }
  return 0;
}
