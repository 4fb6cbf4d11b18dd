#include "debugFile.h"

#include <dwarf.h>
#include <elfutils/libdwelf.h>
#include <fcntl.h>
#include <gelf.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <set>
#include <string_view>

#include "src/io.h"
#include "src/userError.h"

namespace {

namespace fs = std::filesystem;

const Dwfl_Callbacks callbacks{.find_elf = dwfl_build_id_find_elf,
                               .find_debuginfo = dwfl_standard_find_debuginfo,
                               .section_address = dwfl_offline_section_address,
                               .debuginfo_path = nullptr};

// Refuses what libdwfl would take apart but what is no program: archives, object files, core files.
void expectProgram(const std::string& path) {
  const UniqueFd file = openFile(path.c_str(), O_RDONLY | O_NONBLOCK);  // which does not wait for a pipe's writer
  if (!file) throw UserError(path + ": cannot be opened: " + std::strerror(errno));
  elf_version(EV_CURRENT);
  const std::unique_ptr<Elf, int (*)(Elf*)> elf(elf_begin(file.get(), ELF_C_READ_MMAP, nullptr), elf_end);
  GElf_Ehdr header;
  if (!elf || elf_kind(elf.get()) != ELF_K_ELF || gelf_getehdr(elf.get(), &header) == nullptr) {
    throw UserError(path + ": is not an ELF file; an executable or shared object is wanted");
  }
  if (header.e_type != ET_EXEC && header.e_type != ET_DYN) {
    throw UserError(path + ": is neither an executable nor a shared object");
  }
  std::size_t sections = 0;
  if (elf_getshdrnum(elf.get(), &sections) != 0 || elf_nextscn(elf.get(), nullptr) == nullptr) {
    throw UserError(path + ": has no sections; the file is truncated, or was stripped of them");
  }
}

// The name of the .dwo file that a skeleton stands for.
std::string dwoName(Dwarf_Die& skeleton) {
  Dwarf_Attribute attribute;
  const unsigned code = dwarf_hasattr(&skeleton, DW_AT_dwo_name) ? DW_AT_dwo_name : DW_AT_GNU_dwo_name;
  const char* name = dwarf_formstring(dwarf_attr(&skeleton, code, &attribute));
  return name != nullptr ? name : "a .dwo file without a name";
}

}  // namespace

std::string dwarfError() {
  const int error = dwarf_errno();
  return error != 0 ? dwarf_errmsg(error) : "an entry is no entry";
}

DebugFile::DebugFile(const std::string& path) : session_(dwfl_begin(&callbacks), dwfl_end) {
  expectProgram(path);
  Dwfl_Module* module = dwfl_report_offline(session_.get(), "", path.c_str(), -1);
  if (module == nullptr) throw UserError(path + ": cannot be read: " + dwfl_errmsg(-1));
  dwfl_report_end(session_.get(), nullptr, nullptr);
  Dwarf_Addr elfBias = 0;
  Elf* elf = dwfl_module_getelf(module, &elfBias);
  Dwarf_Addr dwarfBias = 0;
  dwarf_ = dwfl_module_getdwarf(module, &dwarfBias);
  if (elf == nullptr || dwarf_ == nullptr) {
    throw UserError(path + ": has no debugging information that can be read (" + dwfl_errmsg(-1) +
                    "); compile it with -g, or put its debug file where gdb would find it");
  }
  bias_ = dwarfBias - elfBias;
  addresses_ = SectionBytes(dwarf_getelf(dwarf_), ".debug_addr");
  const char* debugPath = nullptr;
  dwfl_module_info(module, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, &debugPath);
  std::error_code ignored;
  std::set<std::string> places{path, fs::weakly_canonical(path, ignored).string()};
  if (debugPath != nullptr) places.insert(debugPath);
  for (const std::string& place : places) packages_.push_back(std::make_unique<DwarfPackage>(place + ".dwp"));
  readSections(elf);
  readSymbols(module, elfBias);
}

MissingParts DebugFile::forEachUnit(
    const std::function<void(const Dwarf_Die& top, const Dwarf_Die& skeleton)>& useUnit) const {
  MissingParts missing;
  const char* shared = nullptr;
  const void* id = nullptr;
  if (dwarf_getalt(dwarf_) == nullptr && dwelf_dwarf_gnu_debugaltlink(dwarf_, &shared, &id) > 0)
    missing.files.emplace_back(shared);
  for (Dwarf* dwarf : {dwarf_, dwarf_getalt(dwarf_)}) {
    Dwarf_CU* unit = nullptr;
    Dwarf_Die top;
    Dwarf_Die split;
    std::uint8_t type = 0;
    int result = dwarf != nullptr ? 0 : 1;
    while (result == 0 && (result = dwarf_get_units(dwarf, unit, &unit, nullptr, &type, &top, &split)) == 0) {
      if (type != DW_UT_skeleton) {
        useUnit(top, top);
      } else if (split.addr != nullptr || (split = packedUnit(top)).addr != nullptr) {
        useUnit(split, top);
      } else {
        missing.files.push_back(dwoName(top));
      }
    }
    if (result < 0) missing.damage = dwarfError();
  }
  return missing;
}

// The unit that belongs to `skeleton` in one of the packages; its addr is null when none holds it.
Dwarf_Die DebugFile::packedUnit(const Dwarf_Die& skeleton) const {
  std::uint64_t id = 0;
  Dwarf_Die unit{};
  if (dwarf_cu_info(skeleton.cu, nullptr, nullptr, nullptr, nullptr, &id, nullptr, nullptr) != 0) return unit;
  for (const auto& package : packages_) {
    if (unit.addr == nullptr) unit = package->unit(id);
  }
  return unit;
}

std::optional<std::uint64_t> DebugFile::listedAddress(Dwarf_Die skeleton, std::uint64_t index) const {
  Dwarf_Word base = 0;
  for (const unsigned name : {DW_AT_addr_base, DW_AT_GNU_addr_base}) {
    Dwarf_Attribute attribute;
    if (dwarf_formudata(dwarf_attr(&skeleton, name, &attribute), &base) == 0) break;
  }
  Dwarf_Die unit;
  std::uint8_t width = 0;
  if (dwarf_diecu(&skeleton, &unit, &width, nullptr) == nullptr) return {};
  return addresses_.number(base + index * width, width);
}

bool DebugFile::isInMemory(std::uint64_t address) const {
  return std::any_of(sections_.begin(), sections_.end(),
                     [=](const Range& range) { return address >= range.begin && address < range.end; });
}

std::optional<std::uint64_t> DebugFile::symbolSize(std::uint64_t address, std::string_view name) const {
  const auto [begin, end] = symbols_.equal_range(address);
  for (auto at = begin; at != end; ++at) {
    const std::string_view symbol = at->second.name;
    if (symbol.starts_with(name) && (symbol.size() == name.size() || symbol[name.size()] == '.'))
      return at->second.size;
  }
  return {};
}

std::optional<std::uint64_t> DebugFile::onlySymbolSize(std::uint64_t address) const {
  const auto [begin, end] = symbols_.equal_range(address);
  if (begin == end) return {};
  const std::uint64_t size = begin->second.size;
  const auto differs = [size](const auto& entry) { return entry.second.size != size; };
  return std::any_of(begin, end, differs) ? std::nullopt : std::optional(size);
}

const DebugFile::ProgramSection* DebugFile::sectionAt(std::uint64_t address) const {
  for (const ProgramSection& section : programSections_) {
    if (!section.threadLocal && address >= section.address && address - section.address < section.size) return &section;
  }
  return nullptr;
}

void DebugFile::readSections(Elf* elf) {
  std::size_t names = 0;
  elf_getshdrstrndx(elf, &names);
  std::size_t segments = 0;
  elf_getphdrnum(elf, &segments);
  for (std::size_t i = 0; i < segments; ++i) {
    GElf_Phdr segment;
    if (gelf_getphdr(elf, static_cast<int>(i), &segment) != nullptr && segment.p_type == PT_GNU_RELRO)
      relro_ = {segment.p_vaddr, segment.p_vaddr + segment.p_memsz};
  }
  const void* id = nullptr;
  const ssize_t length = dwelf_elf_gnu_build_id(elf, &id);
  for (ssize_t i = 0; i < length; ++i) {
    char digits[3];
    std::snprintf(digits, sizeof digits, "%02x", static_cast<const unsigned char*>(id)[i]);
    buildId_ += digits;
  }
  for (Elf_Scn* section = elf_nextscn(elf, nullptr); section != nullptr; section = elf_nextscn(elf, section)) {
    GElf_Shdr header;
    if (gelf_getshdr(section, &header) == nullptr) continue;
    const char* name = elf_strptr(elf, names, header.sh_name);
    if ((header.sh_flags & SHF_ALLOC) != 0 && name != nullptr)
      programSections_.push_back(
          {name, header.sh_addr, header.sh_size, (header.sh_flags & SHF_WRITE) != 0, (header.sh_flags & SHF_TLS) != 0});
    const bool inMemory = (header.sh_flags & SHF_ALLOC) != 0 && (header.sh_flags & SHF_TLS) == 0;
    // One byte more: a variable without a size may stand at the end of a section.
    if (inMemory && header.sh_addr != 0) sections_.push_back({header.sh_addr, header.sh_addr + header.sh_size + 1});
  }
}

void DebugFile::readSymbols(Dwfl_Module* module, std::uint64_t elfBias) {
  const int count = dwfl_module_getsymtab(module);
  for (int i = 0; i < count; ++i) {
    GElf_Sym symbol;
    const char* name = dwfl_module_getsym(module, i, &symbol, nullptr);
    const int type = GELF_ST_TYPE(symbol.st_info);
    if (name == nullptr || symbol.st_size == 0 || (type != STT_OBJECT && type != STT_COMMON)) continue;
    symbols_.insert({symbol.st_value - elfBias, {name, symbol.st_size}});
  }
}
