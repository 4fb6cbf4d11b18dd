#include "debuginfo/abbreviations.h"

#include <dwarf.h>

#include <algorithm>
#include <utility>

namespace {

constexpr std::uint64_t largestDense =
    1 << 16;  // compilers number abbreviations from 1; larger codes go to a hash table

Slot slotOf(unsigned name) {
  switch (name) {
    case DW_AT_name:
      return Slot::Name;
    case DW_AT_type:
      return Slot::Type;
    case DW_AT_decl_file:
      return Slot::File;
    case DW_AT_decl_line:
      return Slot::Line;
    case DW_AT_location:
      return Slot::Location;
    case DW_AT_external:
      return Slot::External;
    case DW_AT_specification:
      return Slot::Specification;
    case DW_AT_abstract_origin:
      return Slot::Origin;
    case DW_AT_linkage_name:
    case DW_AT_MIPS_linkage_name:
      return Slot::LinkageName;
    case DW_AT_artificial:
      return Slot::Artificial;
    case DW_AT_declaration:
      return Slot::Declaration;
    case DW_AT_sibling:
      return Slot::Sibling;
    default:
      return Slot::None;
  }
}

EntryKind kindOf(unsigned tag, bool located, bool declaration) {
  switch (tag) {
    case DW_TAG_variable:
      return located ? EntryKind::Located : declaration ? EntryKind::Declared : EntryKind::Unplaced;
    case DW_TAG_member:
      return EntryKind::Declared;
    case DW_TAG_namespace:
    case DW_TAG_module:
      return EntryKind::Namespace;
    case DW_TAG_structure_type:
    case DW_TAG_class_type:
    case DW_TAG_union_type:
    case DW_TAG_interface_type:
      return EntryKind::Class;
    case DW_TAG_subprogram:
      return EntryKind::Function;
    default:
      return EntryKind::Other;
  }
}

// Whether DIEs with this tag never contain variables or scopes.
bool isClosed(unsigned tag) {
  return tag == DW_TAG_enumeration_type || tag == DW_TAG_array_type || tag == DW_TAG_subroutine_type ||
         tag == DW_TAG_call_site || tag == DW_TAG_GNU_call_site;
}

}  // namespace

AbbreviationTable::AbbreviationTable(const UnitLayout& unit) : begin_(unit.abbreviations), sizes_(unit.sizes) {
  ByteCursor cursor(unit.abbreviations, unit.abbreviationsEnd, unit.bigEndian);
  while (const std::uint64_t code = cursor.leb()) {
    const auto tag = static_cast<unsigned>(cursor.leb());
    Abbreviation entry;
    entry.hasChildren = cursor.byte() != 0;
    readAttributes(cursor, tag, entry);
    if (cursor.failed()) break;
    entry.isDefined = true;
    if (code >= largestDense) {
      others_.try_emplace(code, entry);
      continue;
    }
    if (code >= dense_.size()) dense_.resize(std::max<std::size_t>(code + 1, dense_.size() * 2));
    if (!dense_[code].isDefined) dense_[code] = entry;
  }
}

void AbbreviationTable::readAttributes(ByteCursor& cursor, unsigned tag, Abbreviation& entry) {
  entry.firstAttribute = static_cast<std::uint32_t>(attributes_.size());
  entry.firstStep = static_cast<std::uint32_t>(steps_.size());
  bool located = false;
  bool declaration = false;
  std::uint32_t bytes = 0;
  while (!cursor.failed()) {
    const auto name = static_cast<std::uint16_t>(cursor.leb());
    const auto form = static_cast<std::uint16_t>(cursor.leb());
    if (name == 0 && form == 0) break;
    const unsigned char* constant = cursor.at();
    if (form == DW_FORM_implicit_const) cursor.signedLeb();
    attributes_.push_back({name, form, slotOf(name), static_cast<std::int16_t>(formSize(form, sizes_)), constant});
    located = located || name == DW_AT_location;
    declaration = declaration || name == DW_AT_declaration;
    addStep(form, bytes);
  }
  if (bytes > 0) steps_.push_back({bytes, 0});
  entry.endAttribute = static_cast<std::uint32_t>(attributes_.size());
  entry.endStep = static_cast<std::uint32_t>(steps_.size());
  entry.kind = kindOf(tag, located, declaration);
  const bool declaredFunction = tag == DW_TAG_subprogram && declaration;
  if (entry.hasChildren && (declaredFunction || isClosed(tag))) noteSibling(entry);
}

void AbbreviationTable::noteSibling(Abbreviation& entry) const {
  std::uint32_t bytes = 0;
  for (std::uint32_t i = entry.firstAttribute; i != entry.endAttribute; ++i) {
    const AbbreviatedAttribute& attribute = attributes_[i];
    if (attribute.size < 0) return;
    if (attribute.slot == Slot::Sibling) {
      const bool isInUnit = attribute.form == DW_FORM_ref1 || attribute.form == DW_FORM_ref2 ||
                            attribute.form == DW_FORM_ref4 || attribute.form == DW_FORM_ref8;
      entry.siblingForm = isInUnit ? attribute.form : 0;
      entry.siblingAt = bytes;
      return;
    }
    bytes += static_cast<std::uint32_t>(attribute.size);
  }
}

void AbbreviationTable::addStep(unsigned form, std::uint32_t& bytes) {
  const int size = formSize(form, sizes_);
  if (size >= 0)
    bytes += static_cast<std::uint32_t>(size);
  else
    steps_.push_back({std::exchange(bytes, 0), form});
}

void AbbreviationTable::skipValue(unsigned form, ByteCursor& cursor) const {
  for (int depth = 0; form == DW_FORM_indirect && depth < 4; ++depth) form = static_cast<unsigned>(cursor.leb());
  skipForm(form, sizes_, cursor);
}

RawEntry AbbreviationTable::read(const Abbreviation& entry, ByteCursor& cursor) const {
  RawEntry result;
  for (std::uint32_t i = entry.firstAttribute; i != entry.endAttribute; ++i) {
    const AbbreviatedAttribute& attribute = attributes_[i];
    std::uint16_t form = attribute.form;
    for (int depth = 0; form == DW_FORM_indirect && depth < 4; ++depth) form = static_cast<std::uint16_t>(cursor.leb());
    const unsigned char* at = form == DW_FORM_implicit_const ? attribute.constant : cursor.at();
    const int size = form == attribute.form ? attribute.size : formSize(form, sizes_);
    if (size >= 0)
      cursor.skip(static_cast<std::uint64_t>(size));
    else
      skipForm(form, sizes_, cursor);
    if (cursor.failed()) break;
    if (attribute.slot != Slot::None && result[attribute.slot].form == 0)
      result[attribute.slot] = {form, attribute.name, at};
  }
  return result;
}

const AbbreviationTable& AbbreviationTables::of(const UnitLayout& unit) {
  if (latest_[1] && latest_[1]->isFor(unit)) std::swap(latest_[0], latest_[1]);
  if (!latest_[0] || !latest_[0]->isFor(unit)) {
    std::swap(latest_[0], latest_[1]);
    latest_[0] = std::make_unique<AbbreviationTable>(unit);
  }
  return *latest_[0];
}
