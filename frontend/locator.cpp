#include "locator.h"

#include <algorithm>
#include <cstdlib>

#include "a2lControl.h"

Locator::Locator(const std::vector<GlobalVariable>& variables) {
  ranges_.reserve(variables.size());
  for (const GlobalVariable& variable : variables) {
    if (variable.file.empty() || variable.line == 0) continue;
    // No row of the result could hold such a name.
    if (variable.file.find_first_of("\t\n") != std::string::npos) continue;
    // Of several variables at one address the first counts, here as in the index.
    if (!ranges_.empty() && ranges_.back().begin == variable.address) continue;
    const std::uint64_t size = std::max<std::uint64_t>(variable.size.value_or(0), 1);
    ranges_.push_back({variable.address, variable.address + size, &variable});
  }
}

std::string Locator::locate(std::uint64_t address) const {
  const auto behind = std::upper_bound(ranges_.begin(), ranges_.end(), address,
                                       [](std::uint64_t wanted, const Range& range) { return wanted < range.begin; });
  if (behind == ranges_.begin() || address >= std::prev(behind)->end) return "??:0";
  const GlobalVariable& variable = *std::prev(behind)->variable;
  std::string answer = variable.file + ":" + std::to_string(variable.line);
  // A name that its reader would take apart wrongly.
  const auto read = kindOfReply(answer) == LineKind::Reply ? locationIn(answer) : std::nullopt;
  const bool clear = read && read->file == variable.file && read->line == variable.line;
  return clear ? answer : "??:0";
}

void answerAddresses(const Locator& locator, std::FILE* in, std::FILE* out) {
  char bite[100];
  while (std::fgets(bite, sizeof bite, in) != nullptr) {
    char* end = nullptr;
    const std::uint64_t address = std::strtoull(bite, &end, 16);
    const std::string answer = end == bite ? "??:0" : locator.locate(address);
    std::fprintf(out, "%s\n", answer.c_str());
    std::fflush(out);
  }
}
