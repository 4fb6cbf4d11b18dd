#include "debuginfo/unitScan.h"

#include <algorithm>
#include <functional>
#include <iterator>

namespace {

constexpr std::size_t deepestNesting = 512;  // of DIEs; more is treated as damage

// The sibling of the DIE whose attributes start at `cursor`; null if its sibling attribute is damaged.
const unsigned char* siblingOf(const UnitLayout& unit, const Abbreviation& abbreviation, ByteCursor cursor) {
  cursor.skip(abbreviation.siblingAt);
  const std::uint64_t offset = cursor.fixed(static_cast<std::size_t>(formSize(abbreviation.siblingForm, unit.sizes)));
  const auto all = static_cast<std::uint64_t>(unit.end - unit.header);
  // A sibling that does not come later would cause a cycle.
  return !cursor.failed() && offset < all && unit.header + offset > cursor.at() ? unit.header + offset : nullptr;
}

}  // namespace

void ScopeMap::clear() {
  scopes_.assign(1, {});
  spans_.assign(1, {nullptr, global});
}

ScopeMap::Id ScopeMap::add(Id parent, EntryKind kind, const unsigned char* entry) {
  Scope& scope = scopes_.emplace_back();
  scope.parent = parent;
  scope.kind = kind;
  scope.inFunction = kind == EntryKind::Function || scopes_[parent].inFunction;
  scope.entry = entry;
  return static_cast<Id>(scopes_.size() - 1);
}

ScopeMap::Id ScopeMap::around(const void* entry) const {
  const auto* byte = static_cast<const unsigned char*>(entry);
  const auto after =
      std::upper_bound(spans_.begin() + 1, spans_.end(), byte,
                       [](const unsigned char* wanted, const Span& span) { return std::less<>()(wanted, span.begin); });
  return std::prev(after)->scope;
}

void UnitScan::run(const UnitLayout& unit, const AbbreviationTable& table, ScanFor purpose) {
  scopes.clear();
  variables.clear();
  open_.clear();
  damaged = false;
  ByteCursor cursor = unit.cursor(unit.first);
  do {
    const unsigned char* entry = cursor.at();
    const std::uint64_t code = cursor.leb();
    if (code == 0) {
      if (!open_.empty()) open_.pop_back();
      continue;
    }
    const Abbreviation* abbreviation = table.find(code);
    if (abbreviation == nullptr || open_.size() > deepestNesting) {
      damaged = true;
      return;
    }
    const ScopeMap::Id scope = open_.empty() ? ScopeMap::global : open_.back();
    scopes.change(entry, scope);
    if (isWanted(abbreviation->kind, purpose, scope)) variables.push_back({entry, cursor.at(), abbreviation, scope});
    if (abbreviation->hasChildren)
      enter(unit, table, *abbreviation, entry, cursor);
    else
      table.skip(*abbreviation, cursor);
  } while (!open_.empty() && !cursor.atEnd());
  damaged = cursor.failed();
}

bool UnitScan::isWanted(EntryKind kind, ScanFor purpose, ScopeMap::Id scope) const {
  switch (kind) {
    case EntryKind::Located:
      return purpose != ScanFor::Scopes;
    case EntryKind::Unplaced:
      return purpose == ScanFor::Declared || (purpose == ScanFor::Located && !scopes[scope].inFunction);
    case EntryKind::Declared:
      return purpose == ScanFor::Declared;
    default:
      return false;
  }
}

// Moves `cursor` to the children of `entry`, or to its sibling if the children can be skipped.
void UnitScan::enter(const UnitLayout& unit, const AbbreviationTable& table, const Abbreviation& abbreviation,
                     const unsigned char* entry, ByteCursor& cursor) {
  if (abbreviation.siblingForm != 0) {
    if (const unsigned char* sibling = siblingOf(unit, abbreviation, cursor)) {
      cursor.skip(static_cast<std::uint64_t>(sibling - cursor.at()));
      return;
    }
  }
  table.skip(abbreviation, cursor);
  const ScopeMap::Id around = open_.empty() ? ScopeMap::global : open_.back();
  const bool isScope = abbreviation.kind == EntryKind::Namespace || abbreviation.kind == EntryKind::Class ||
                       abbreviation.kind == EntryKind::Function;
  open_.push_back(isScope ? scopes.add(around, abbreviation.kind, entry) : around);
}
