#include "debuginfo/typeSizes.h"

#include <dwarf.h>

namespace {

bool isQualifierOrName(int tag) {
  return tag == DW_TAG_typedef || tag == DW_TAG_const_type || tag == DW_TAG_volatile_type ||
         tag == DW_TAG_restrict_type || tag == DW_TAG_atomic_type;
}

bool isPointer(int tag) {
  return tag == DW_TAG_pointer_type || tag == DW_TAG_reference_type || tag == DW_TAG_rvalue_reference_type;
}

// `type` without typedefs and qualifiers.
Die bareType(Die type) {
  for (int depth = 0; depth < maxTypeDepth && isQualifierOrName(type.tag()); ++depth) {
    const Die inner = type.reference(DW_AT_type);
    if (!inner) break;
    type = inner;
  }
  return type;
}

// The number of elements in all dimensions of an array; empty if a dimension has no bound or the number overflows.
std::optional<std::uint64_t> elementCount(const Die& array) {
  std::uint64_t count = 1;
  for (const Die& child : array.children()) {
    if (child.tag() != DW_TAG_subrange_type) continue;
    const auto extent = arrayExtent(child);
    if (!extent || __builtin_mul_overflow(count, *extent, &count)) return {};
  }
  return count;
}

bool hasOpenEndWithin(const Die& type, int depth) {
  const Die bare = bareType(type);
  const int tag = bare.tag();
  if (tag == DW_TAG_array_type) return elementCount(bare).value_or(0) == 0;
  const bool holdsMembers = tag == DW_TAG_structure_type || tag == DW_TAG_class_type || tag == DW_TAG_union_type;
  if (!holdsMembers || depth == maxTypeDepth) return false;
  bool open = false;
  for (const Die& child : bare.children()) {
    const Die member = child.tag() == DW_TAG_member ? child.reference(DW_AT_type) : Die();
    if (!member || child.has(DW_AT_declaration) || child.has(DW_AT_external)) continue;
    open = hasOpenEndWithin(member, depth + 1) || (open && tag == DW_TAG_union_type);
  }
  return open;
}

// The size of a type without DW_AT_byte_size, which compilers omit for pointers. Pointers to members have the sizes of
// the Itanium ABI, which all compilers for ELF follow.
std::optional<std::uint64_t> impliedSize(const Die& type) {
  if (isPointer(type.tag())) return type.addressSize();
  if (type.tag() != DW_TAG_ptr_to_member_type) return {};
  const Die target = bareType(type.reference(DW_AT_type));
  return target && target.tag() == DW_TAG_subroutine_type ? 2 * type.addressSize() : type.addressSize();
}

// The lower bound of array dimensions without DW_AT_lower_bound in the language of `entry`.
std::uint64_t defaultLowerBound(const Die& entry) {
  const Die unit = entry.unit();
  Dwarf_Die top = unit.raw();
  Dwarf_Sword bound = 0;
  const bool known = unit && dwarf_default_lower_bound(dwarf_srclang(&top), &bound) == 0;
  return known ? static_cast<std::uint64_t>(bound) : 0;
}

}  // namespace

std::optional<std::uint64_t> arrayExtent(const Die& subrange) {
  if (const auto count = subrange.number(DW_AT_count)) return count;
  const auto upper = subrange.number(DW_AT_upper_bound);
  if (!upper) return {};
  // An empty array has the upper bound -1, which producers write with various numbers of bytes.
  if (*upper == ~std::uint64_t{0} || *upper == 0xffffffff) return 0;
  return *upper + 1 - subrange.number(DW_AT_lower_bound).value_or(defaultLowerBound(subrange));
}

std::optional<std::uint64_t> sizeOfType(const Die& type) {
  std::uint64_t count = 1;
  Die at = type;
  for (int depth = 0; at && depth < maxTypeDepth; ++depth) {
    auto size = at.number(DW_AT_byte_size);
    if (!size) size = impliedSize(at);
    if (size) {
      std::uint64_t all = 0;
      return __builtin_mul_overflow(*size, count, &all) ? std::nullopt : std::optional(all);
    }
    const int tag = at.tag();
    if (tag == DW_TAG_array_type) {
      const auto elements = elementCount(at);
      if (!elements || __builtin_mul_overflow(count, *elements, &count)) return {};
    } else if (!isQualifierOrName(tag) && tag != DW_TAG_enumeration_type && tag != DW_TAG_subrange_type) {
      return {};
    }
    at = at.reference(DW_AT_type);
  }
  return {};
}

bool hasOpenEnd(const Die& type) {
  const Die bare = bareType(type);
  return bare && bare.tag() != DW_TAG_array_type && hasOpenEndWithin(bare, 0);
}

Die namedTypeWithin(const Die& type) {
  Die at = type;
  for (int depth = 0; at && depth < maxTypeDepth; ++depth) {
    const int tag = at.tag();
    if (at.has(DW_AT_GNU_vector)) return {};
    if (!isPointer(tag) && tag != DW_TAG_array_type && tag != DW_TAG_subroutine_type &&
        (!isQualifierOrName(tag) || tag == DW_TAG_typedef))
      return firstName(descriptions(at)) != nullptr ? at : Die();
    at = at.reference(DW_AT_type);
  }
  return {};
}
