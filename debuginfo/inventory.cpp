#include "debuginfo/inventory.h"

#include <algorithm>
#include <numeric>
#include <tuple>
#include <unordered_map>
#include <utility>

#include "debuginfo/debugFile.h"
#include "debuginfo/variables.h"

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

}  // namespace

Inventory readInventory(const std::string& path, const ReadOptions& options) {
  const DebugFile file(path);
  Inventory inventory;
  inventory.executable = path;
  inventory.buildId = file.image().buildId();
  for (const ImageSection& section : file.image().sections())
    inventory.sections.push_back({section.name, section.size});
  VariableReader reader(file, options, inventory);
  file.forEachUnit([&reader](const Unit& unit) { reader.read(unit); }, inventory.warnings);
  for (const std::string& each : reader.finish().sentences()) inventory.warnings.push_back(each);
  inventory.directory = reader.directory();
  sortAndUnite(inventory.variables);
  shortenFiles(inventory);
  // The sections' names are those of the file, which is closed now.
  for (Variable& variable : inventory.variables) variable.section = inventory.texts.intern(variable.section);
  return inventory;
}
