#include "debuginfo/inventory.h"

#include <algorithm>
#include <numeric>
#include <tuple>
#include <unordered_set>
#include <utility>

#include "debuginfo/debugFile.h"
#include "debuginfo/findings.h"
#include "debuginfo/sharedReading.h"

namespace {

// Where a variable belongs in the order of the inventory: by address, thread-local ones last, and those whose address
// is not known behind them.
std::tuple<bool, bool, std::uint64_t> placeInOrder(const Variable& variable) {
  return {!variable.address.has_value(), variable.threadLocal.value_or(false), variable.address.value_or(0)};
}

std::size_t knownFields(const Variable& variable) {
  return std::size_t{!variable.type.empty()} + std::size_t{variable.size.has_value()} +
         std::size_t{!variable.file.empty()} + std::size_t{variable.line != 0};
}

// Whether two descriptions are of one variable, as far as they say.
bool isSame(const Variable& a, const Variable& b) {
  return a.name == b.name && a.linkage == b.linkage && (a.type == b.type || a.type.empty() || b.type.empty());
}

// Sorts the variables; of what several units describe alike, the best description stays.
void sortAndUnite(std::vector<Variable>& variables) {
  std::vector<std::uint32_t> order(variables.size());
  std::iota(order.begin(), order.end(), 0);
  std::sort(order.begin(), order.end(), [&variables](std::uint32_t a, std::uint32_t b) {
    return std::pair(placeInOrder(variables[a]), a) < std::pair(placeInOrder(variables[b]), b);
  });
  std::vector<Variable> sorted;
  sorted.reserve(variables.size());
  std::size_t atAddress = 0;  // where those at the address of the latest begin
  for (const std::uint32_t each : order) {
    const Variable& variable = variables[each];
    if (sorted.empty() || placeInOrder(sorted.back()) != placeInOrder(variable)) atAddress = sorted.size();
    const auto same = std::find_if(sorted.begin() + static_cast<std::ptrdiff_t>(atAddress), sorted.end(),
                                   [&variable](const Variable& other) { return isSame(variable, other); });
    if (same == sorted.end() || !variable.address)
      sorted.push_back(variable);
    else if (knownFields(variable) > knownFields(*same))
      *same = variable;
  }
  variables = std::move(sorted);
}

// Names the files within `inventory.directory` from there.
void shortenFiles(Inventory& inventory) {
  if (inventory.directory.empty()) return;
  const std::string begin = inventory.directory + "/";
  for (Variable& variable : inventory.variables) {
    if (variable.file.starts_with(begin)) variable.file.remove_prefix(begin.size());
  }
}

// Of the units that cannot be found, a few are named.
void warnOfMissing(const std::vector<std::string>& missing, std::vector<std::string>& warnings) {
  constexpr std::size_t most = 3;
  for (std::size_t i = 0; i < missing.size() && i < most; ++i) warnings.push_back(missing[i]);
  if (missing.size() > most)
    warnings.push_back(std::to_string(missing.size() - most) + " more .dwo files cannot be used either");
}

// What has no name is named in a warning, unless another variable has its place: a member of an unnamed union.
void warnOfNameless(Findings& found) {
  if (found.nameless.empty()) return;
  std::unordered_set<std::uint64_t> addresses;
  for (const Variable& variable : found.variables) addresses.insert(variable.address.value_or(0));
  for (const auto& [address, what] : found.nameless) {
    if (!addresses.contains(address)) found.warnings.add("without a name", what);
  }
}

// Moves what was found in all units to `inventory`.
void complete(Findings found, Inventory& inventory) {
  warnOfMissing(found.missing, inventory.warnings);
  warnOfNameless(found);
  for (const std::string& each : found.warnings.sentences()) inventory.warnings.push_back(each);
  inventory.directory = found.directory.path();
  inventory.variables = std::move(found.variables);
  inventory.known = std::move(found.known);
}

}  // namespace

Inventory readInventory(const std::string& path, const ReadOptions& options) {
  const DebugFile file(path);
  Inventory inventory;
  inventory.executable = path;
  inventory.buildId = file.image().buildId();
  for (const ImageSection& section : file.image().sections())
    inventory.sections.push_back({section.name, section.size});
  const std::vector<ListedUnit> units = file.units(inventory.warnings);
  complete(readUnits(file, units, options, inventory.texts), inventory);
  sortAndUnite(inventory.variables);
  shortenFiles(inventory);
  // The sections' names are those of the file, which is closed now.
  for (Variable& variable : inventory.variables) variable.section = inventory.texts.intern(variable.section);
  return inventory;
}
