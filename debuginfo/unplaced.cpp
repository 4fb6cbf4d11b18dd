#include "debuginfo/unplaced.h"

#include <algorithm>
#include <optional>
#include <set>
#include <tuple>

#include "debuginfo/cxxNames.h"

namespace {

std::string_view withoutDirectory(std::string_view path) { return path.substr(path.rfind('/') + 1); }

// Whether symbols local to `unit` say where they come from: not after optimisation at link time.
bool isSource(const char* unit) {
  const std::string_view name = unit != nullptr ? unit : "";
  return !name.empty() && !name.starts_with('<') && !name.ends_with(".o");
}

// Leaves out of `facts` what `other` contradicts.
void keepCommon(Variable& facts, const Variable& other) {
  if (facts.type != other.type) facts.type = {};
  if (facts.namedSize != other.namedSize) facts.namedSize.reset();
  if (facts.file != other.file || facts.line != other.line) std::tie(facts.file, facts.line) = std::tuple("", 0);
}

bool place(const ProgramImage& image, const ImageSymbol& symbol, Variable& variable) {
  const ImageSection* section = symbol.threadLocal ? image.findThreadLocal(symbol.address) : image.find(symbol.address);
  if (section == nullptr) return false;
  variable.address = symbol.address;
  variable.size = symbol.size;
  variable.section = section->name;
  variable.threadLocal = symbol.threadLocal;
  variable.writable = image.isWritable(*section, symbol.address);
  return true;
}

}  // namespace

void UnplacedVariables::add(const Variable& variable, std::string_view symbol, std::string_view unit, bool isOpen) {
  Candidates& same = byName_[std::string(symbol.empty() ? variable.name : symbol)];
  const Candidate candidate{variable, withoutDirectory(unit), isOpen};
  const bool known = std::any_of(same.begin(), same.end(), [&](const Candidate& each) {
    return each.unit == candidate.unit && each.variable.type == variable.type && each.variable.file == variable.file &&
           each.variable.line == variable.line && each.variable.linkage == variable.linkage;
  });
  if (!known) same.push_back(candidate);
}

const UnplacedVariables::Candidates* UnplacedVariables::named(const ImageSymbol& symbol) const {
  std::string_view name = symbol.name;
  // What compilers put behind a name that they made unique in the whole program.
  for (const std::string_view suffix : {".lto_priv.", ".llvm."}) name = name.substr(0, name.find(suffix));
  auto found = byName_.find(std::string(name));
  if (found == byName_.end()) found = byName_.find(variableOfSymbol(name));
  return found != byName_.end() ? &found->second : nullptr;
}

void UnplacedVariables::list(const ProgramImage& image, Inventory& inventory) {
  if (byName_.empty()) return;
  std::set<std::tuple<bool, std::uint64_t, std::string_view>> listed;
  for (const Variable& each : inventory.variables)
    listed.emplace(each.threadLocal.value_or(false), each.address.value_or(0), each.name);
  for (const ImageSymbol& symbol : image.symbols()) {
    const Candidates* candidates = symbol.size > 0 ? named(symbol) : nullptr;
    if (candidates == nullptr) continue;
    std::optional<Variable> facts;
    for (const Candidate& each : *candidates) {
      const bool fits = (each.variable.linkage == Linkage::External || symbol.isLocal) &&
                        (!isSource(symbol.unit) || each.unit.empty() || each.unit == symbol.unit) &&
                        (each.isOpen || each.variable.size.value_or(symbol.size) == symbol.size);
      if (!fits) continue;
      if (facts) keepCommon(*facts, each.variable);
      if (!facts) facts = each.variable;
    }
    if (facts && listed.emplace(symbol.threadLocal, symbol.address, facts->name).second && place(image, symbol, *facts))
      inventory.variables.push_back(*facts);
  }
}
