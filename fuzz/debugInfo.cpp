// Fuzzes the reader of debugging information: any ELF file, however damaged, gives either an error, or variables in
// ascending order of addresses with well-formed texts.
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <string>

#include "debuginfo/inventory.h"
#include "expect.h"
#include "src/io.h"
#include "src/userError.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const UniqueFd file(memfd_create("program", MFD_CLOEXEC));
  if (!writeAt(file.get(), data, size, 0)) return 0;
  try {
    const std::string path = "/proc/self/fd/" + std::to_string(file.get());
    const Inventory inventory = readInventory(path, {.artificial = true, .declarations = true});
    std::uint64_t last = 0;
    for (const Variable& variable : inventory.variables) {
      EXPECT(!variable.name.empty());
      EXPECT(withoutScopes(variable.name).size() <= variable.name.size() && !scopesOf(variable.name).empty());
      EXPECT(variable.namespaceLength.value_or(0) <= variable.name.size());
      EXPECT(declare(variable.type, "x").size() >= variable.type.size());
      EXPECT(variable.line == 0 || !variable.file.empty());
      if (!variable.address || variable.threadLocal.value_or(true)) continue;
      EXPECT(*variable.address >= last);
      last = *variable.address;
    }
  } catch (const UserError&) {
  }
  return 0;
}
