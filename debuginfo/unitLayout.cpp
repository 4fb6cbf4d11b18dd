#include "debuginfo/unitLayout.h"

#include <dwarf.h>

#include <functional>
#include <string>

namespace {

// The section ".debug_`name`", also under its names in .dwo files and in the old compressed format.
SectionBytes debugSection(Elf* elf, const std::string& name) {
  for (const std::string& each : {".debug_" + name, ".debug_" + name + ".dwo", ".zdebug_" + name}) {
    if (SectionBytes bytes(elf, each); bytes.begin() != nullptr) return bytes;
  }
  return {};
}

bool holds(const SectionBytes& section, const void* address) {
  const auto* byte = static_cast<const unsigned char*>(address);
  return section.begin() != nullptr && !std::less<>()(byte, section.begin()) && std::less<>()(byte, section.end());
}

}  // namespace

const DebugSections& UnitLayouts::sections(Dwarf_CU* unit) {
  Dwarf* dwarf = dwarf_cu_getdwarf(unit);
  const auto [known, isNew] = sections_.try_emplace(dwarf);
  if (isNew) {
    Elf* elf = dwarf_getelf(dwarf);
    known->second = {debugSection(elf, "info"), debugSection(elf, "types"),    debugSection(elf, "abbrev"),
                     debugSection(elf, "line"), debugSection(elf, "line_str"), debugSection(elf, "str")};
  }
  return known->second;
}

std::optional<UnitLayout> UnitLayouts::of(const Dwarf_Die& top) {
  Dwarf_Die die = top;
  Dwarf_Half version = 0;
  Dwarf_Off abbreviations = 0;
  std::uint8_t addressSize = 0;
  std::uint8_t offsetSize = 0;
  if (dwarf_cu_die(top.cu, &die, &version, &abbreviations, &addressSize, &offsetSize, nullptr, nullptr) == nullptr)
    return {};
  const DebugSections& known = sections(top.cu);
  const SectionBytes& section = holds(known.info, die.addr) ? known.info : known.types;
  const auto* first = static_cast<const unsigned char*>(die.addr);
  if (!holds(section, first)) return {};
  const unsigned char* header = first - dwarf_cuoffset(&die);
  const unsigned lengthSize = offsetSize == 8 ? 12 : 4;
  const auto length = section.numberAt(header + (lengthSize - offsetSize), offsetSize);
  const auto rest = static_cast<std::uint64_t>(section.end() - header);
  const auto all = static_cast<std::uint64_t>(known.abbreviations.end() - known.abbreviations.begin());
  if (!length || rest < lengthSize || *length > rest - lengthSize || header + lengthSize + *length < first ||
      abbreviations > all)
    return {};
  return UnitLayout{{version, addressSize, offsetSize},
                    header,
                    first,
                    header + lengthSize + *length,
                    known.abbreviations.begin() + abbreviations,
                    known.abbreviations.end(),
                    section.bigEndian()};
}

int formSize(unsigned form, const FormSizes& sizes) {
  switch (form) {
    case DW_FORM_flag_present:
    case DW_FORM_implicit_const:
      return 0;
    case DW_FORM_data1:
    case DW_FORM_ref1:
    case DW_FORM_flag:
    case DW_FORM_strx1:
    case DW_FORM_addrx1:
      return 1;
    case DW_FORM_data2:
    case DW_FORM_ref2:
    case DW_FORM_strx2:
    case DW_FORM_addrx2:
      return 2;
    case DW_FORM_strx3:
    case DW_FORM_addrx3:
      return 3;
    case DW_FORM_data4:
    case DW_FORM_ref4:
    case DW_FORM_strx4:
    case DW_FORM_addrx4:
    case DW_FORM_ref_sup4:
      return 4;
    case DW_FORM_data8:
    case DW_FORM_ref8:
    case DW_FORM_ref_sig8:
    case DW_FORM_ref_sup8:
      return 8;
    case DW_FORM_data16:
      return 16;
    case DW_FORM_addr:
      return static_cast<int>(sizes.address);
    case DW_FORM_ref_addr:
      return static_cast<int>(sizes.version <= 2 ? sizes.address : sizes.offset);
    case DW_FORM_strp:
    case DW_FORM_line_strp:
    case DW_FORM_sec_offset:
    case DW_FORM_strp_sup:
    case DW_FORM_GNU_strp_alt:
    case DW_FORM_GNU_ref_alt:
      return static_cast<int>(sizes.offset);
    default:
      return -1;
  }
}

void skipForm(unsigned form, const FormSizes& sizes, ByteCursor& cursor) {
  switch (form) {
    case DW_FORM_string:
      cursor.text();
      return;
    case DW_FORM_udata:
    case DW_FORM_sdata:
    case DW_FORM_ref_udata:
    case DW_FORM_strx:
    case DW_FORM_addrx:
    case DW_FORM_loclistx:
    case DW_FORM_rnglistx:
    case DW_FORM_GNU_str_index:
    case DW_FORM_GNU_addr_index:
      cursor.leb();
      return;
    case DW_FORM_block1:
      return cursor.skip(cursor.fixed(1));
    case DW_FORM_block2:
      return cursor.skip(cursor.fixed(2));
    case DW_FORM_block4:
      return cursor.skip(cursor.fixed(4));
    case DW_FORM_block:
    case DW_FORM_exprloc:
      return cursor.skip(cursor.leb());
    default:
      break;
  }
  const int size = formSize(form, sizes);
  cursor.skip(size >= 0 ? static_cast<std::uint64_t>(size) : ~std::uint64_t{0});
}
