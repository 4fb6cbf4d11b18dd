#include "debuginfo/inventory.h"

#include <algorithm>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "debuginfo/debugFile.h"
#include "debuginfo/findings.h"
#include "debuginfo/sharedReading.h"
#include "debuginfo/unplaced.h"
#include "src/userError.h"

namespace {

// The sort key of a variable: by address, then thread-local ones by offset, then those of unknown address.
struct Position {
  std::uint64_t address;
  std::uint32_t number;  // the order in which they were read
  std::uint32_t group;

  Position(const Variable& variable, std::size_t at)
      : address(variable.address.value_or(0)),
        number(static_cast<std::uint32_t>(at)),
        group(!variable.address                      ? 2U
              : variable.threadLocal.value_or(false) ? 1U
                                                     : 0U) {}
  bool isSamePlace(const Position& other) const { return group == other.group && address == other.address; }
  bool operator<(const Position& other) const {
    if (group != other.group) return group < other.group;
    return address != other.address ? address < other.address : number < other.number;
  }
};

std::size_t knownFields(const Variable& variable) {
  return std::size_t{!variable.type.empty()} + std::size_t{variable.size.has_value()} +
         std::size_t{!variable.file.empty()} + std::size_t{variable.line != 0};
}

// Whether two descriptions at the same address are of the same variable, as far as is known. Several units may define
// an external variable; internal ones may be different variables whose equal values the linker merged.
bool isSame(const Variable& a, const Variable& b) {
  if (a.name != b.name || a.linkage != b.linkage) return false;
  if (a.type != b.type && !a.type.empty() && !b.type.empty()) return false;
  const bool placed = !a.file.empty() && !b.file.empty();
  return a.linkage == Linkage::External || !placed || (a.file == b.file && a.line == b.line);
}

std::vector<Position> sortedPositions(const std::vector<Variable>& variables) {
  std::vector<Position> positions;
  positions.reserve(variables.size());
  for (std::size_t i = 0; i < variables.size(); ++i) positions.emplace_back(variables[i], i);
  std::sort(positions.begin(), positions.end());
  return positions;
}

// Moves the variable with index `positions[i].number` to index i, in place: for large lists, allocating a second one
// would take longer than the sorting.
void arrange(std::vector<Variable>& variables, std::vector<Position>& positions) {
  for (std::size_t start = 0; start < positions.size(); ++start) {
    if (positions[start].number == start) continue;
    const Variable first = variables[start];
    std::size_t at = start;
    for (std::size_t from = positions[at].number; from != start; from = positions[at].number) {
      variables[at] = variables[from];
      positions[at].number = static_cast<std::uint32_t>(at);
      at = from;
    }
    variables[at] = first;
    positions[at].number = static_cast<std::uint32_t>(at);
  }
}

// Sorts the variables. Of several descriptions of the same variable, the most complete one is kept.
void sortAndUnite(std::vector<Variable>& variables) {
  std::vector<Position> positions = sortedPositions(variables);
  arrange(variables, positions);
  auto end = variables.begin();                               // end of those kept so far
  std::unordered_multimap<std::string_view, Variable*> kept;  // those at the current address, by name, if several
  bool isNext = true;                                         // whether the next is the first at its address
  for (std::size_t i = 0; i < variables.size(); ++i) {
    const Variable& variable = variables[i];
    const bool isLast = i + 1 == variables.size() || !positions[i].isSamePlace(positions[i + 1]);
    const bool isFirst = std::exchange(isNext, isLast);
    if (isFirst && isLast) {
      *end++ = variable;
      continue;
    }
    if (isFirst) kept.clear();
    const auto [begin, after] = kept.equal_range(variable.name);
    const auto same =
        std::find_if(begin, after, [&variable](const auto& other) { return isSame(variable, *other.second); });
    if (same == after) {
      if (variable.address) kept.emplace(variable.name, &*end);
      *end++ = variable;
    } else if (knownFields(variable) > knownFields(*same->second)) {
      *same->second = variable;
    }
  }
  variables.erase(end, variables.end());
}

// Makes the names of files within `inventory.directory` relative to it.
void shortenFiles(Inventory& inventory) {
  if (inventory.directory.empty()) return;
  const std::string begin = inventory.directory + "/";
  for (Variable& variable : inventory.variables) {
    if (variable.file.starts_with(begin)) variable.file.remove_prefix(begin.size());
  }
}

// Copies the names of sections into the inventory: so far they refer to the DebugFile.
void keepSectionNames(Inventory& inventory) {
  std::string_view latest;
  std::string_view kept;
  for (Variable& variable : inventory.variables) {
    if (variable.section.data() != latest.data()) {
      latest = variable.section;
      kept = inventory.texts.intern(latest);
    }
    variable.section = kept;
  }
}

// Adds warnings about units that cannot be found; only the first few are named.
void warnOfMissing(const std::vector<std::string>& missing, std::vector<std::string>& warnings) {
  constexpr std::size_t most = 3;
  for (std::size_t i = 0; i < missing.size() && i < most; ++i) warnings.push_back(missing[i]);
  if (missing.size() > most)
    warnings.push_back(std::to_string(missing.size() - most) + " more .dwo files cannot be used either");
}

// Adds warnings about unnamed variables, except those at the address of a listed one, a member of an unnamed union.
void warnOfNameless(Findings& found) {
  if (found.nameless.empty()) return;
  std::unordered_set<std::uint64_t> addresses;
  for (const Variable& variable : found.variables) addresses.insert(variable.address.value_or(0));
  for (const auto& [address, what] : found.nameless) {
    if (!addresses.contains(address)) found.warnings.add("it has no name", what);
  }
}

// Whether the split units of all skeletons are missing and no variable was found elsewhere.
bool isAllMissing(const Findings& found, const std::vector<ListedUnit>& units) {
  const auto split = std::count_if(units.begin(), units.end(), [](const ListedUnit& each) { return each.isSkeleton; });
  return split > 0 && std::cmp_equal(found.missing.size(), split) && found.variables.empty();
}

// Moves the findings of all `units` to `inventory`.
void complete(Findings found, const std::vector<ListedUnit>& units, const ProgramImage& image, Inventory& inventory) {
  const bool isEmpty = found.variables.empty() && found.unplaced.empty();
  placeBySymbols(found.unplaced, image, found.variables);
  if (isAllMissing(found, units))
    throw UserError(inventory.executable + ": " + found.missing.front() +
                    (found.missing.size() > 1 ? "; the other .dwo files cannot be used either" : ""));
  warnOfMissing(found.missing, inventory.warnings);
  warnOfNameless(found);
  for (const std::string& each : found.warnings.sentences()) inventory.warnings.push_back(each);
  if (isEmpty && inventory.warnings.empty())
    inventory.warnings.emplace_back("its debugging information describes no variables, as with -g1");
  inventory.directory = found.directory.path();
  inventory.variables = std::move(found.variables);
  inventory.declarations = std::move(found.declarations);
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
  complete(readUnits(file, units, options, inventory.texts), units, file.image(), inventory);
  sortAndUnite(inventory.variables);
  shortenFiles(inventory);
  keepSectionNames(inventory);
  return inventory;
}
