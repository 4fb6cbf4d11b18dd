#include "suite/locator.h"

#include <algorithm>
#include <cstdlib>

#include "a2lControl.h"

Locator::Locator(const Inventory& inventory) : directory_(inventory.directory) {
  ranges_.reserve(inventory.variables.size());
  for (const Variable& variable : inventory.variables) {
    if (!variable.address || variable.threadLocal.value_or(false) || variable.line == 0) continue;
    // No row of tGlobalVarDef.tbl can hold such a name.
    if (variable.file.find_first_of("\t\n") != std::string::npos) continue;
    const std::uint64_t size = std::max<std::uint64_t>(variable.size.value_or(0), 1);
    const Range range{*variable.address, *variable.address + size, &variable};
    // Of several variables at one address, keep the first with a size, as tableMaker does.
    const bool sameAddress = !ranges_.empty() && ranges_.back().begin == *variable.address;
    if (!sameAddress)
      ranges_.push_back(range);
    else if (ranges_.back().variable->size == 0 && variable.size != 0)
      ranges_.back() = range;
  }
}

std::string Locator::pathOf(const Variable& variable) const {
  const bool inDirectory = !directory_.empty() && !variable.file.starts_with('/');
  return (inDirectory ? directory_ + "/" : "") + std::string(variable.file);
}

std::string Locator::locate(std::uint64_t address) const {
  const auto after = std::upper_bound(ranges_.begin(), ranges_.end(), address,
                                      [](std::uint64_t wanted, const Range& range) { return wanted < range.begin; });
  if (after == ranges_.begin() || address >= std::prev(after)->end) return "??:0";
  const Variable& variable = *std::prev(after)->variable;
  const std::string file = pathOf(variable);
  std::string answer = file + ":" + std::to_string(variable.line);
  // tolquin.exe must read back the same file and line.
  const SourceLocation read = parseLocation(answer);
  const bool readable = !file.empty() && read.file == file && read.line == variable.line;
  return readable && classifyReply(answer) == LineKind::Reply ? answer : "??:0";
}

void answerAddresses(const Locator& locator, std::FILE* in, std::FILE* out) {
  char chunk[100];
  while (std::fgets(chunk, sizeof chunk, in) != nullptr) {
    char* end = nullptr;
    const std::uint64_t address = std::strtoull(chunk, &end, 16);
    const std::string answer = end == chunk ? "??:0" : locator.locate(address);
    std::fprintf(out, "%s\n", answer.c_str());
    std::fflush(out);
  }
}
