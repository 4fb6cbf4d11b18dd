#include "debuginfo/scopes.h"

#include <algorithm>
#include <iterator>

#include "debuginfo/cxxNames.h"

namespace {

// Whether `name` contains a compiler's substitute for the name of an unnamed class. Several classes may share one.
bool isMadeUp(std::string_view name) {
  constexpr std::string_view words[] = {"<lambda",  "(lambda",  "{lambda", "<unnamed",
                                        "(unnamed", "{unnamed", "$_",      "._"};
  return std::any_of(std::begin(words), std::end(words),
                     [name](std::string_view word) { return name.find(word) != std::string_view::npos; });
}

}  // namespace

const UnitScan& Scopes::enter(const UnitLayout& layout, const Die& unit, ScanFor purpose) {
  unit_ = unit.raw().cu;
  table_ = &tables_.of(layout);
  current_.run(layout, *table_, purpose);
  return current_;
}

const std::string& Scopes::ofVariable(const Die& entry, bool cxx) {
  const ScopeMap::Scope& scope = named(entry);
  return cxx ? scope.forVariables : scope.forVariablesC;
}

const std::string& Scopes::ofType(const Die& entry) { return named(entry).forTypes; }

bool Scopes::isInFunction(const Die& entry) { return named(entry).inFunction; }

// The scopes of the unit that contains `entry`; another unit than the current one is scanned for them.
ScopeMap& Scopes::mapOf(const Die& entry) {
  Dwarf_CU* unit = entry.raw().cu;
  if (unit == unit_) return current_.scopes;
  const auto [known, isNew] = foreign_.try_emplace(unit);
  const Die top = isNew ? entry.unit() : Die();
  if (const auto layout = top ? layouts_.of(top.raw()) : std::nullopt) {
    const AbbreviationTable table(*layout);
    UnitScan scan;
    scan.run(*layout, table, ScanFor::Scopes);
    known->second = std::move(scan.scopes);
  }
  return known->second;
}

// The scope that directly contains `entry`, with its names filled in.
ScopeMap::Scope& Scopes::named(const Die& entry) {
  ScopeMap& map = mapOf(entry);
  const ScopeMap::Id id = map.around(entry.id());
  if (!map[id].isNamed) name(entry, map, id);
  return map[id];
}

void Scopes::name(const Die& entry, ScopeMap& map, ScopeMap::Id id) {
  map[id].isNamed = true;  // set first, because damaged information may contain cycles
  if (id == ScopeMap::global) return;
  const std::vector<Die> chain = descriptions(entry.sibling(map[id].entry).described());
  const char* own = firstName(chain);
  // The enclosing scopes are those of the DIE that it completes.
  const ScopeMap::Scope outer = named(chain.back());
  ScopeMap::Scope& scope = map[id];
  const bool isFunction = scope.kind == EntryKind::Function;
  const bool isNamespace = scope.kind == EntryKind::Namespace;
  std::string text = own != nullptr ? withoutTags(canonicalName(own)) : isNamespace ? "(anonymous namespace)" : "";
  if (!text.empty()) text += "::";
  scope.inNameless = (own != nullptr ? isMadeUp(own) : !isNamespace) || outer.inNameless;
  scope.inFunction = isFunction || outer.inFunction;
  const bool isInNamespaces = outer.forVariables.empty() || outer.forVariables.size() == outer.namespaces + 2;
  scope.namespaces = isNamespace && isInNamespaces && !text.empty()
                         ? static_cast<std::uint32_t>(outer.forVariables.size() + text.size()) - 2
                         : outer.namespaces;
  scope.forVariables = outer.forVariables + text;
  if (const auto scopes = isFunction && scope.inNameless ? scopesInFunction(firstLinkageName(chain)) : std::nullopt) {
    scope.forVariables = *scopes;
    scope.inNameless = false;
  }
  scope.forVariablesC = outer.forVariablesC + (isFunction ? text : "");
  scope.forTypes = isFunction ? "" : outer.forTypes + text;
}
