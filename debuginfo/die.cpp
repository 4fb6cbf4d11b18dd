#include "debuginfo/die.h"

#include <dwarf.h>

std::string dwarfError() {
  const int error = dwarf_errno();
  return error != 0 ? dwarf_errmsg(error) : "malformed DIE";
}

Die Die::sibling(const void* address) const {
  Die result = *this;
  result.die_.addr = const_cast<void*>(address);
  result.die_.abbrev = nullptr;
  return result;
}

Die Die::unit() const {
  Die result({}, units_);
  if (dwarf_diecu(&die_, &result.die_, nullptr, nullptr) == nullptr) return {};
  return result;
}

unsigned Die::addressSize() const {
  Dwarf_Die unit;
  std::uint8_t size = 0;
  return dwarf_diecu(&die_, &unit, &size, nullptr) != nullptr ? size : 0;
}

int Die::tag() const { return dwarf_tag(&die_); }

bool Die::has(unsigned name) const { return dwarf_hasattr(&die_, name) != 0; }

bool Die::flag(unsigned name) const {
  Dwarf_Attribute attribute;
  bool value = false;
  return dwarf_formflag(dwarf_attr(&die_, name, &attribute), &value) == 0 && value;
}

std::optional<std::uint64_t> Die::number(unsigned name) const {
  Dwarf_Attribute attribute;
  Dwarf_Word value = 0;
  if (dwarf_formudata(dwarf_attr(&die_, name, &attribute), &value) != 0) return {};
  return value;
}

const char* Die::text(unsigned name) const {
  Dwarf_Attribute attribute;
  return dwarf_attr(&die_, name, &attribute) != nullptr ? textOf(attribute) : nullptr;
}

const char* Die::textOf(Dwarf_Attribute& attribute) const {
  const char* text = dwarf_formstring(&attribute);
  const bool isShared = attribute.form == DW_FORM_GNU_strp_alt || attribute.form == DW_FORM_strp_sup;
  return text == nullptr && isShared && units_ != nullptr ? units_->sharedText(attribute) : text;
}

const char* Die::name() const {
  const char* own = text(DW_AT_name);
  if (own != nullptr) return own;
  const Die type = target(DW_AT_signature);
  return type ? type.text(DW_AT_name) : nullptr;
}

// The DIE to which the attribute refers directly.
Die Die::target(unsigned name) const {
  Dwarf_Attribute attribute;
  Dwarf_Attribute* found = dwarf_attr(&die_, name, &attribute);
  Die result({}, units_);
  if (found == nullptr) return {};
  if (dwarf_formref_die(found, &result.die_) != nullptr) return result;
  if (units_ == nullptr || found->form != DW_FORM_ref_sig8) return {};
  return {units_->type(*found), units_};
}

Die Die::reference(unsigned name) const { return target(name).described(); }

Die Die::described() const {
  // If a type has its own type unit, the DIE in another unit is only a stub that refers to it.
  const Die own = *this && has(DW_AT_signature) ? target(DW_AT_signature) : Die();
  return own ? own : *this;
}

Die Die::completed() const {
  const Die declaration = reference(DW_AT_specification);
  return declaration ? declaration : reference(DW_AT_abstract_origin);
}

Die::Children Die::children() const {
  Die first({}, units_);
  return Children(dwarf_child(&die_, &first.die_) == 0 ? first : Die());
}

Die::Children::Iterator& Die::Children::Iterator::operator++() {
  // libdw refuses a sibling that does not come later, which would cause a cycle.
  if (dwarf_siblingof(&at_.die_, &at_.die_) != 0) at_ = Die();
  return *this;
}

std::vector<Die> descriptions(const Die& die) {
  constexpr std::size_t most = 8;
  std::vector<Die> chain;
  for (Die each = die; each && chain.size() < most; each = each.completed()) chain.push_back(each);
  return chain;
}

const char* firstName(const std::vector<Die>& chain) {
  for (const Die& die : chain) {
    if (const char* name = die.name()) return name;
  }
  return nullptr;
}

const char* firstLinkageName(const std::vector<Die>& chain) {
  for (const Die& die : chain) {
    for (const unsigned each : {DW_AT_linkage_name, DW_AT_MIPS_linkage_name}) {
      if (const char* name = die.text(each)) return name;
    }
  }
  return nullptr;
}
