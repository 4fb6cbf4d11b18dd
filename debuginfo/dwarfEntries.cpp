#include "dwarfEntries.h"

#include <dwarf.h>

namespace {

constexpr int deepest = 64;  // entries on a way from one to the next; more go in circles

bool isQualifierOrName(int tag) {
  return tag == DW_TAG_typedef || tag == DW_TAG_const_type || tag == DW_TAG_volatile_type ||
         tag == DW_TAG_restrict_type || tag == DW_TAG_atomic_type;
}

// The type behind names and qualifiers.
Dwarf_Die bareType(Dwarf_Die type) {
  Dwarf_Die inner;
  for (int depth = 0; depth < deepest && isQualifierOrName(dwarf_tag(&type)); ++depth) {
    if (!referredDie(type, DW_AT_type, inner)) break;
    type = inner;
  }
  return type;
}

// The number of elements in all dimensions of an array; empty when one has no bound, or they are too many to count.
std::optional<std::uint64_t> elementCount(Dwarf_Die array) {
  std::uint64_t count = 1;
  Dwarf_Die child;
  for (int more = dwarf_child(&array, &child); more == 0; more = dwarf_siblingof(&child, &child)) {
    if (dwarf_tag(&child) != DW_TAG_subrange_type) continue;
    const auto extent = arrayExtent(child);
    if (!extent || __builtin_mul_overflow(count, *extent, &count)) return {};
  }
  return count;
}

bool hasOpenEndWithin(const Dwarf_Die& type, int depth) {
  Dwarf_Die bare = bareType(type);
  const int tag = dwarf_tag(&bare);
  if (tag == DW_TAG_array_type) return elementCount(bare).value_or(0) == 0;
  const bool holdsMembers = tag == DW_TAG_structure_type || tag == DW_TAG_class_type || tag == DW_TAG_union_type;
  if (!holdsMembers || depth == deepest) return false;
  bool open = false;
  Dwarf_Die child;
  for (int more = dwarf_child(&bare, &child); more == 0; more = dwarf_siblingof(&child, &child)) {
    Dwarf_Die member;
    if (dwarf_tag(&child) != DW_TAG_member || !referredDie(child, DW_AT_type, member)) continue;
    const bool ends = hasOpenEndWithin(member, depth + 1);
    open = ends || (open && tag == DW_TAG_union_type);
  }
  return open;
}

}  // namespace

bool referredDie(Dwarf_Die& die, unsigned name, Dwarf_Die& result) {
  Dwarf_Attribute attribute;
  Dwarf_Attribute* found = dwarf_attr(&die, name, &attribute);
  if (found == nullptr || dwarf_formref_die(found, &result) == nullptr) return false;
  // What a unit says of a type that has a unit of its own, is no more than the way there.
  Dwarf_Die own;
  found = dwarf_attr(&result, DW_AT_signature, &attribute);
  if (found != nullptr && dwarf_formref_die(found, &own) != nullptr) result = own;
  return true;
}

const char* entryName(Dwarf_Die die) {
  const char* name = dwarf_diename(&die);
  Dwarf_Die own;
  return name == nullptr && referredDie(die, DW_AT_signature, own) ? dwarf_diename(&own) : name;
}

std::vector<Dwarf_Die> descriptions(const Dwarf_Die& die) {
  constexpr std::size_t most = 8;
  std::vector<Dwarf_Die> chain{die};
  Dwarf_Die next;
  while (chain.size() < most && (referredDie(chain.back(), DW_AT_specification, next) ||
                                 referredDie(chain.back(), DW_AT_abstract_origin, next))) {
    chain.push_back(next);
  }
  return chain;
}

const char* firstName(std::vector<Dwarf_Die> chain) {
  for (Dwarf_Die& die : chain) {
    if (const char* name = dwarf_diename(&die)) return name;
  }
  return nullptr;
}

Dwarf_Die typeOf(std::vector<Dwarf_Die> chain) {
  Dwarf_Die type{};
  for (Dwarf_Die& die : chain) {
    if (referredDie(die, DW_AT_type, type)) return type;
  }
  return {};
}

std::optional<std::uint64_t> arrayExtent(Dwarf_Die subrange) {
  Dwarf_Attribute attribute;
  Dwarf_Word number = 0;
  const bool counted = dwarf_formudata(dwarf_attr(&subrange, DW_AT_count, &attribute), &number) == 0;
  if (!counted && dwarf_formudata(dwarf_attr(&subrange, DW_AT_upper_bound, &attribute), &number) != 0) return {};
  // An array without elements has the upper bound -1, in as many bytes as the producer liked.
  const bool none = !counted && (number == ~Dwarf_Word{0} || number == 0xffffffff);
  return none ? 0 : number + (counted ? 0 : 1);
}

// libdw does it for all types but arrays of what is in a type unit.
std::optional<std::uint64_t> sizeOfType(Dwarf_Die type) {
  std::uint64_t count = 1;
  for (int depth = 0; depth < deepest; ++depth) {
    Dwarf_Word size = 0;
    if (dwarf_aggregate_size(&type, &size) == 0) {
      if (__builtin_mul_overflow(size, count, &size)) return {};
      return size;
    }
    const int tag = dwarf_tag(&type);
    if (tag == DW_TAG_array_type && !dwarf_hasattr(&type, DW_AT_GNU_vector)) {
      const auto elements = elementCount(type);
      if (!elements || __builtin_mul_overflow(count, *elements, &count)) return {};
    } else if (!isQualifierOrName(tag)) {
      return {};
    }
    Dwarf_Die inner;
    if (!referredDie(type, DW_AT_type, inner)) return {};
    type = inner;
  }
  return {};
}

bool hasOpenEnd(Dwarf_Die type) {
  type = bareType(type);
  return dwarf_tag(&type) != DW_TAG_array_type && hasOpenEndWithin(type, 0);
}
