// Lines of objdump.txt: whatever they hold, an item has whole texts and a key of the right form.
#include <cstdint>
#include <cstring>
#include <string_view>

#include "expect.h"
#include "objRead.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const TMAP listed{{"8049f40", 0}, {"8049f44", 0}, {"abcd", 0}, {std::string(50, 'e'), 0}};
  std::string_view text(reinterpret_cast<const char*>(data), size);
  while (!text.empty()) {
    const std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(line.size() + 1, text.size()));
    ItemType item;
    if (!itemFromDeclaration(line, listed, item)) continue;
    EXPECT(line.ends_with("*/;") && item.isWhole() && std::strlen(item.KeyField) == KeyFieldMax);
    const std::string key(item.KeyField, std::strcspn(item.KeyField, " "));
    EXPECT(listed.contains(key) && line.find(key) != std::string_view::npos);
    const std::string_view name = item.DataField.getVarName();
    EXPECT(name.find_first_of(" \t[") == std::string_view::npos && !name.starts_with('*'));
  }
  return 0;
}
