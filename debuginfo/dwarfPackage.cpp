#include "debuginfo/dwarfPackage.h"

#include <dwarf.h>
#include <fcntl.h>
#include <gelf.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>

#include "src/io.h"

namespace {

// Section names by their numbers in the index. DWARF 4 and 5 differ only in numbers that are not used here.
constexpr std::array<std::string_view, 9> sectionNames{"",
                                                       ".debug_info.dwo",
                                                       ".debug_types.dwo",
                                                       ".debug_abbrev.dwo",
                                                       ".debug_line.dwo",
                                                       ".debug_loclists.dwo",
                                                       ".debug_str_offsets.dwo",
                                                       ".debug_macro.dwo",
                                                       ".debug_rnglists.dwo"};
constexpr std::uint64_t infoSection = 1, typesSection = 2;
// The one section that all units share.
constexpr std::string_view sharedSection = ".debug_str.dwo";

// Cuts a section to `size` bytes at `offset`. False if they are not within the section.
bool cut(Elf_Scn* section, GElf_Shdr& header, std::uint64_t offset, std::uint64_t size) {
  if ((header.sh_flags & SHF_COMPRESSED) != 0 || offset > header.sh_size || size > header.sh_size - offset)
    return false;
  header.sh_offset += offset;
  header.sh_size = size;
  return gelf_update_shdr(section, &header) != 0;
}

// The type in `dwarf`, which consists of one type unit and may be null.
Dwarf_Die onlyType(Dwarf* dwarf) {
  Dwarf_Die type{};
  Dwarf_CU* unit = nullptr;
  Dwarf_Die top;
  if (dwarf == nullptr || dwarf_get_units(dwarf, nullptr, &unit, nullptr, nullptr, &top, &type) == 0) return type;
  // In DWARF 4 type units are in .debug_types, which libdw does not visit without a .debug_info section.
  Dwarf_Off next = 0;
  Dwarf_Off offset = 0;
  std::uint64_t signature = 0;
  if (dwarf_next_unit(dwarf, 0, &next, nullptr, nullptr, nullptr, nullptr, nullptr, &signature, &offset) != 0 ||
      dwarf_offdie_types(dwarf, offset, &type) == nullptr)
    return {};
  return type;
}

}  // namespace

DwarfPackage::DwarfPackage(const std::string& path) : file_(openFile(path.c_str(), O_RDONLY | O_NONBLOCK)) {
  if (!file_) return;
  const ElfOwner elf = openElf();
  if (!elf || elf_kind(elf.get()) != ELF_K_ELF) return;
  units_ = readIndex(elf.get(), ".debug_cu_index");
  types_ = readIndex(elf.get(), ".debug_tu_index");
  isPackage_ = !units_.empty() || !types_.empty();
  if (isPackage_) return;
  readSections(elf.get(), infoSection);
  readSections(elf.get(), typesSection);
}

// Maps the file privately, so that section headers can be changed in memory.
DwarfPackage::ElfOwner DwarfPackage::openElf() const {
  elf_version(EV_CURRENT);
  return {elf_begin(file_.get(), ELF_C_READ_MMAP_PRIVATE, nullptr), elf_end};
}

// Reads an index: a header of four numbers; a hash table of unit IDs and a parallel table of their row numbers; the
// section numbers; a table of offsets and one of sizes, with a row for each unit and a column for each section.
DwarfPackage::Index DwarfPackage::readIndex(Elf* elf, std::string_view name) {
  Index result;
  const SectionBytes index(elf, name);
  const auto number = [&index](std::uint64_t offset) { return index.number(offset, 4).value_or(0); };
  const bool known = index.number(0, 2) == 5 || number(0) == 2;
  const std::uint64_t columns = number(4);
  const std::uint64_t rows = number(8);
  const std::uint64_t slots = number(12);
  const std::uint64_t ids = 16;
  const std::uint64_t rowNumbers = ids + slots * 8;
  const std::uint64_t sections = rowNumbers + slots * 4;
  const std::uint64_t offsets = sections + columns * 4;
  const std::uint64_t sizes = offsets + rows * columns * 4;
  if (!known || columns == 0 || columns >= sectionNames.size() || !index.number(sizes + (rows * columns - 1) * 4, 4))
    return result;
  for (std::uint64_t slot = 0; slot < slots; ++slot) {
    const std::uint64_t row = number(rowNumbers + slot * 4);
    if (row == 0 || row > rows) continue;
    Contributions& unit = result[index.number(ids + slot * 8, 8).value_or(0)];
    unit.clear();
    for (std::uint64_t column = 0; column < columns; ++column) {
      const std::uint64_t at = ((row - 1) * columns + column) * 4;
      unit.push_back({number(sections + column * 4), number(offsets + at), number(sizes + at)});
    }
  }
  return result;
}

// Reads the units in all sections of a .dwo file with the section number `section`.
void DwarfPackage::readSections(Elf* elf, std::uint64_t section) {
  for (Elf_Scn* at = nullptr; (at = findSection(elf, sectionNames[section], at)) != nullptr;) {
    const SectionBytes bytes(elf, at);
    readUnits(bytes, {section, 0, static_cast<std::uint64_t>(bytes.end() - bytes.begin()), elf_ndxscn(at)});
  }
}

// Reads the units in the section `all` that have their ID in the header: compilation units of DWARF 5, and type units.
void DwarfPackage::readUnits(const SectionBytes& bytes, const Contribution& all) {
  for (Contribution unit = all; unit.offset < all.size;) {
    const std::uint64_t begin = unit.offset;
    const bool isLong = bytes.number(begin, 4) == 0xffffffff;
    const std::uint64_t width = isLong ? 8 : 4;
    const std::uint64_t version = begin + (isLong ? 12 : 4);
    const auto length = bytes.number(version - width, width);
    if (!length || *length > all.size - version) return;
    const bool isNew = bytes.number(version, 2) == 5;
    const std::uint64_t kind = isNew ? bytes.number(version + 2, 1).value_or(0) : 0;
    const auto id = bytes.number(version + (isNew ? 4 : 3) + width, 8);
    unit.size = version + *length - begin;
    const bool isType = kind == DW_UT_split_type || (!isNew && all.section == typesSection);
    if (id && (isType || kind == DW_UT_split_compile)) (isType ? types_ : units_)[*id] = {unit};
    unit.offset = begin + unit.size;
  }
}

// Cuts the sections of `elf` to the contributions `parts` of one unit.
bool DwarfPackage::cutSections(Elf* elf, const Contributions& parts) const {
  std::size_t names = 0;
  if (elf_getshdrstrndx(elf, &names) != 0) return false;
  for (Elf_Scn* section = elf_nextscn(elf, nullptr); section != nullptr; section = elf_nextscn(elf, section)) {
    GElf_Shdr header;
    const char* read = gelf_getshdr(section, &header) != nullptr ? elf_strptr(elf, names, header.sh_name) : nullptr;
    const std::string_view name = read != nullptr ? read : "";
    if (!name.starts_with(".debug_") || name == sharedSection) continue;
    const bool holdsUnits = name == sectionNames[infoSection] || name == sectionNames[typesSection];
    if (!isPackage_ && !holdsUnits) continue;
    Contribution part{0, 0, 0};
    for (const Contribution& each : parts) {
      if (each.section < sectionNames.size() && sectionNames[each.section] == name &&
          (each.header == 0 || each.header == elf_ndxscn(section)))
        part = each;
    }
    // libdw ignores sections in groups.
    header.sh_flags &= ~GElf_Xword{SHF_GROUP};
    // libdw would not treat a file with an index as a .dwo file.
    if (!name.ends_with(".dwo")) header.sh_name = 0;
    if (!cut(section, header, part.offset, part.size)) return false;
  }
  return true;
}

// The debugging information of one unit; null if libdw cannot read it.
Dwarf* DwarfPackage::openView(const Contributions& parts) {
  View view{openElf(), {nullptr, dwarf_end}};
  if (!view.elf || !cutSections(view.elf.get(), parts)) return nullptr;
  view.dwarf.reset(dwarf_begin_elf(view.elf.get(), DWARF_C_READ, nullptr));
  if (!view.dwarf) return nullptr;
  views_.push_back(std::move(view));
  return views_.back().dwarf.get();
}

Dwarf_Die DwarfPackage::unit(std::uint64_t id) {
  Dwarf_Die top{};
  Dwarf_CU* unit = nullptr;
  const auto found = units_.find(id);
  Dwarf* dwarf = found != units_.end() ? openView(found->second) : nullptr;
  if (dwarf == nullptr || dwarf_get_units(dwarf, nullptr, &unit, nullptr, nullptr, &top, nullptr) != 0)
    return Dwarf_Die{};
  return top;
}

Dwarf_Die DwarfPackage::type(const Dwarf_Attribute& reference) {
  std::optional<std::uint64_t> signature;
  for (const char* name : {".debug_info.dwo", ".debug_types.dwo"}) {
    const SectionBytes bytes(dwarf_getelf(dwarf_cu_getdwarf(reference.cu)), name);
    if (!signature) signature = bytes.numberAt(reference.valp, 8);
  }
  const auto found = signature ? types_.find(*signature) : types_.end();
  if (found == types_.end()) return {};
  const auto [known, isNew] = knownTypes_.try_emplace(*signature);
  if (isNew) known->second = onlyType(openView(found->second));
  return known->second;
}
