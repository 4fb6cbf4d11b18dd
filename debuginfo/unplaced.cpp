#include "debuginfo/unplaced.h"

#include <algorithm>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <utility>

#include "debuginfo/cxxNames.h"

namespace {

std::string_view withoutDirectory(std::string_view path) { return path.substr(path.rfind('/') + 1); }

// The longer of two names of one file; empty if they name different files. The names in a file shared by dwz may be
// relative to a directory that is not recorded there.
std::string_view commonFile(std::string_view a, std::string_view b) {
  if (a.size() < b.size()) std::swap(a, b);
  return a == b || a.ends_with(std::string("/").append(b)) ? a : "";
}

// Clears the fields of `facts` that contradict `other`.
void keepCommon(Variable& facts, const Variable& other) {
  if (facts.type != other.type) facts.type = {};
  if (facts.namedSize != other.namedSize) facts.namedSize.reset();
  facts.file = facts.line == other.line ? commonFile(facts.file, other.file) : "";
  if (facts.file.empty()) facts.line = 0;
}

// Fills in the fields that follow from the symbol. False if the program has nothing at its address.
bool assignSymbol(const ProgramImage& image, const ImageSymbol& symbol, Variable& variable) {
  const auto [isThreadLocal, address] = symbol.at;
  const ImageSection* section = isThreadLocal ? image.findThreadLocal(address) : image.find(address);
  if (section == nullptr) return false;
  variable.address = address;
  variable.size = symbol.size;
  variable.section = section->name;
  variable.threadLocal = isThreadLocal;
  variable.writable = image.isWritable(*section, address);
  return true;
}

// Candidates by the name of their symbol, or of the variable if the symbol is unknown.
class Candidates {
 public:
  explicit Candidates(const std::vector<UnplacedVariable>& unplaced) {
    for (const UnplacedVariable& each : unplaced) add(each);
  }

  // The candidates that `symbol` may belong to; null if there are none.
  const std::vector<UnplacedVariable>* named(const ImageSymbol& symbol) const {
    std::string_view name = symbol.name;
    // Suffixes with which compilers make names unique in the whole program.
    for (const std::string_view suffix : {".lto_priv.", ".llvm."}) name = name.substr(0, name.find(suffix));
    auto found = byName_.find(std::string(name));
    if (found == byName_.end()) found = byName_.find(variableOfSymbol(name));
    return found != byName_.end() ? &found->second : nullptr;
  }

 private:
  void add(UnplacedVariable candidate) {
    candidate.unit = withoutDirectory(candidate.unit);
    const Variable& variable = candidate.variable;
    auto& same = byName_[std::string(candidate.symbol.empty() ? variable.name : candidate.symbol)];
    const bool known = std::any_of(same.begin(), same.end(), [&](const UnplacedVariable& each) {
      return each.unit == candidate.unit && each.variable.type == variable.type &&
             each.variable.file == variable.file && each.variable.line == variable.line &&
             each.variable.linkage == variable.linkage;
    });
    if (!known) same.push_back(candidate);
  }

  std::unordered_map<std::string, std::vector<UnplacedVariable>> byName_;
};

bool fits(const UnplacedVariable& candidate, const ImageSymbol& symbol) {
  const Variable& variable = candidate.variable;
  return (variable.linkage == Linkage::External || symbol.isLocal) &&
         (symbol.unit == nullptr || candidate.unit.empty() || candidate.unit == symbol.unit) &&
         (candidate.isOpen || variable.size.value_or(symbol.size) == symbol.size);
}

// The fields of the variable at `symbol` on which all matching candidates agree; empty if no candidate matches.
std::optional<Variable> factsOf(const ImageSymbol& symbol, const std::vector<UnplacedVariable>& candidates) {
  std::optional<Variable> facts;
  for (const UnplacedVariable& each : candidates) {
    if (!fits(each, symbol)) continue;
    if (facts)
      keepCommon(*facts, each.variable);
    else
      facts = each.variable;
  }
  return facts;
}

}  // namespace

void placeBySymbols(const std::vector<UnplacedVariable>& unplaced, const ProgramImage& image,
                    std::vector<Variable>& variables) {
  if (unplaced.empty()) return;
  const Candidates candidates(unplaced);
  std::set<std::pair<ImageAddress, std::string_view>> listed;
  for (const Variable& each : variables)
    listed.emplace(ImageAddress{each.threadLocal.value_or(false), each.address.value_or(0)}, each.name);
  for (const ImageSymbol& symbol : image.symbols()) {
    const auto* named = symbol.size > 0 ? candidates.named(symbol) : nullptr;
    if (named == nullptr) continue;
    std::optional<Variable> facts = factsOf(symbol, *named);
    if (facts && listed.emplace(symbol.at, facts->name).second && assignSymbol(image, symbol, *facts))
      variables.push_back(*facts);
  }
}
