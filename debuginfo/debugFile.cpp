#include "debuginfo/debugFile.h"

#include <dwarf.h>
#include <elfutils/libdwelf.h>
#include <fcntl.h>
#include <gelf.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <set>
#include <string_view>

#include "debuginfo/byteCursor.h"
#include "debuginfo/passedPages.h"
#include "src/io.h"
#include "src/userError.h"

namespace {

namespace fs = std::filesystem;

const Dwfl_Callbacks callbacks{.find_elf = dwfl_build_id_find_elf,
                               .find_debuginfo = dwfl_standard_find_debuginfo,
                               .section_address = dwfl_offline_section_address,
                               .debuginfo_path = nullptr};

bool isArchive(Elf* elf) {
  std::size_t size = 0;
  const char* content = elf_rawfile(elf, &size);
  // libelf does not recognize thin archives.
  return elf_kind(elf) == ELF_K_AR || (content != nullptr && std::string_view(content, size).starts_with("!<thin>\n"));
}

// Throws UserError unless `path` is a program: libdwfl also accepts archives, object files and core files.
void expectProgram(const std::string& path) {
  const UniqueFd file = openFile(path.c_str(), O_RDONLY | O_NONBLOCK);  // does not block on a pipe
  if (!file) throw UserError(path + ": cannot open: " + std::strerror(errno));
  elf_version(EV_CURRENT);
  const std::unique_ptr<Elf, int (*)(Elf*)> elf(elf_begin(file.get(), ELF_C_READ_MMAP, nullptr), elf_end);
  if (elf && isArchive(elf.get())) {
    throw UserError(path + ": is an archive of object files; specify a program or shared object that they are linked " +
                    "into");
  }
  GElf_Ehdr header;
  if (!elf || elf_kind(elf.get()) != ELF_K_ELF || gelf_getehdr(elf.get(), &header) == nullptr) {
    throw UserError(path + ": is not an ELF file; expected an executable or shared object");
  }
  if (header.e_type == ET_REL) {
    throw UserError(path + ": is an object file, whose variables have no addresses yet; specify a program or shared " +
                    "object that it is linked into");
  }
  if (header.e_type != ET_EXEC && header.e_type != ET_DYN) {
    throw UserError(path + ": is neither an executable nor a shared object");
  }
  std::size_t sections = 0;
  if (elf_getshdrnum(elf.get(), &sections) != 0 || elf_nextscn(elf.get(), nullptr) == nullptr) {
    throw UserError(path + ": has no section headers; the file is truncated or they were stripped");
  }
}

// The compression method of the section `name`, which libdw could not read; empty if it is missing or not compressed.
std::string compressionMethod(Elf* elf, std::string_view name) {
  Elf_Scn* section = elf != nullptr ? findSection(elf, name) : nullptr;
  GElf_Shdr header;
  GElf_Chdr compression;
  if (section == nullptr || gelf_getshdr(section, &header) == nullptr || (header.sh_flags & SHF_COMPRESSED) == 0 ||
      gelf_getchdr(section, &compression) == nullptr)
    return "";
  constexpr unsigned zstd = 2;
  return compression.ch_type == zstd ? "zstd" : "method " + std::to_string(compression.ch_type);
}

// Throws the UserError for a program whose debugging information libdw cannot find or read.
[[noreturn]] void refuse(const std::string& path, Dwfl_Module* module) {
  const std::string reason = dwfl_errmsg(-1);
  const char* debugPath = nullptr;
  dwfl_module_info(module, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, &debugPath);
  for (const std::string& place : {path, std::string(debugPath != nullptr ? debugPath : "")}) {
    const UniqueFd file = openFile(place.c_str(), O_RDONLY | O_NONBLOCK);
    const std::unique_ptr<Elf, int (*)(Elf*)> elf(elf_begin(file.get(), ELF_C_READ_MMAP, nullptr), elf_end);
    const std::string method = compressionMethod(elf.get(), ".debug_info");
    if (method.empty()) continue;
    throw UserError(std::string(place).append(": its debugging information is compressed with ").append(method) +
                    ", which this libdw cannot read; decompress it with objcopy --decompress-debug-sections");
  }
  throw UserError(path + ": has no debugging information that can be read (" + reason +
                  "); compile it with -g, or install its debug symbols (its -dbgsym package) where gdb finds them");
}

// The name of the .dwo file to which a skeleton refers.
std::string dwoName(const Die& skeleton) {
  for (const unsigned code : {DW_AT_dwo_name, DW_AT_GNU_dwo_name}) {
    if (const char* name = skeleton.text(code)) return name;
  }
  return "an unnamed .dwo file";
}

// The path where the compiler put that file.
std::string dwoPath(const Die& skeleton) {
  const char* directory = skeleton.text(DW_AT_comp_dir);
  return fs::path(directory != nullptr ? directory : "") / dwoName(skeleton);
}

// Why a .dwo file cannot be used, as the end of a sentence; empty if it does not exist.
std::string dwoFault(const Die& skeleton) {
  const std::string path = dwoPath(skeleton);
  const UniqueFd file = openFile(path.c_str(), O_RDONLY | O_NONBLOCK);
  if (!file) return "";
  const std::unique_ptr<Elf, int (*)(Elf*)> elf(elf_begin(file.get(), ELF_C_READ_MMAP, nullptr), elf_end);
  if (!elf || elf_kind(elf.get()) != ELF_K_ELF) return "is damaged";
  int sections = 0;
  for (Elf_Scn* section = nullptr; (section = findSection(elf.get(), ".debug_info.dwo", section)) != nullptr;)
    ++sections;
  const std::string method = compressionMethod(elf.get(), ".debug_info.dwo");
  if (!method.empty() && method == "zstd")
    return "is compressed with zstd, which this libdw cannot read; decompress it with objcopy "
           "--decompress-debug-sections";
  if (sections > 1)
    return "has a compressed section for each type, which cannot be read; compile without -gz or without "
           "-fdebug-types-section";
  return "does not belong to this program, because it was recompiled since, or is damaged";
}

// Adds the units of `dwarf` to `listed`. False if one is damaged.
bool listUnits(Dwarf* dwarf, std::vector<ListedUnit>& listed) {
  constexpr std::uint64_t costOfFile = std::uint64_t{64} * 1024;  // of opening a .dwo file
  Dwarf_CU* unit = nullptr;
  std::uint8_t type = 0;
  std::uint64_t last = 0;
  ListedUnit next{};
  PassedPages pages;
  int result = 0;
  while ((result = dwarf_get_units(dwarf, unit, &unit, nullptr, &type, &next.top, nullptr)) == 0) {
    pages.advanceTo(next.top.addr);
    next.isSkeleton = type == DW_UT_skeleton;
    // A unit ends where the next one in the same section starts.
    const std::uint64_t offset = dwarf_dieoffset(&next.top);
    if (last != 0 && offset > last) listed.back().cost += offset - last;
    last = offset;
    next.cost = next.isSkeleton ? costOfFile : 0;
    listed.push_back(next);
  }
  return result > 0;
}

}  // namespace

DebugFile::DebugFile(const std::string& path) : path_(path), session_(dwfl_begin(&callbacks), dwfl_end) {
  expectProgram(path);
  Dwfl_Module* module = dwfl_report_offline(session_.get(), "", path.c_str(), -1);
  if (module == nullptr) throw UserError(path + ": cannot be read: " + dwfl_errmsg(-1));
  dwfl_report_end(session_.get(), nullptr, nullptr);
  Dwarf_Addr elfBias = 0;
  Elf* elf = dwfl_module_getelf(module, &elfBias);
  Dwarf_Addr dwarfBias = 0;
  dwarf_ = dwfl_module_getdwarf(module, &dwarfBias);
  if (elf == nullptr || dwarf_ == nullptr) refuse(path, module);
  bias_ = dwarfBias - elfBias;
  for (const char* name : {".debug_addr", ".zdebug_addr"}) {  // libdw has decompressed the latter
    if (addresses_.begin() == nullptr) addresses_ = SectionBytes(dwarf_getelf(dwarf_), name);
  }
  openShared(path, module);
  openPackages(path, module);
  image_.emplace(module);
}

// Opens the supplementary file. libdw resolves a relative name against the working directory instead of the program's.
void DebugFile::openShared(const std::string& path, Dwfl_Module* module) {
  const char* name = nullptr;
  const void* id = nullptr;
  const ssize_t length = dwelf_dwarf_gnu_debugaltlink(dwarf_, &name, &id);
  if (length <= 0 || dwarf_getalt(dwarf_) != nullptr) return;
  const char* debugPath = nullptr;
  dwfl_module_info(module, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, &debugPath);
  std::error_code ignored;
  const fs::path from = fs::weakly_canonical(debugPath != nullptr ? debugPath : path.c_str(), ignored).parent_path();
  sharedFile_ = openFile((from / name).c_str(), O_RDONLY | O_NONBLOCK);
  if (!sharedFile_) return;
  sharedElf_.reset(elf_begin(sharedFile_.get(), ELF_C_READ_MMAP, nullptr));
  const void* found = nullptr;
  if (!sharedElf_ || dwelf_elf_gnu_build_id(sharedElf_.get(), &found) != length ||
      std::memcmp(found, id, static_cast<std::size_t>(length)) != 0)
    return;
  shared_.reset(dwarf_begin_elf(sharedElf_.get(), DWARF_C_READ, nullptr));
  if (shared_)
    dwarf_setalt(dwarf_, shared_.get());
  else
    sharedTexts_ = SectionBytes(sharedElf_.get(), ".debug_str");
}

void DebugFile::openPackages(const std::string& path, Dwfl_Module* module) {
  const char* debugPath = nullptr;
  dwfl_module_info(module, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, &debugPath);
  std::error_code ignored;
  std::set<fs::path> places;
  for (const fs::path& program :
       {fs::path(path), fs::weakly_canonical(path, ignored), fs::path(debugPath != nullptr ? debugPath : path)})
    places.insert(fs::weakly_canonical(fs::path(program).concat(".dwp"), ignored));
  for (const fs::path& place : places) packages_.push_back(std::make_unique<DwarfPackage>(place.string()));
}

std::vector<ListedUnit> DebugFile::units(std::vector<std::string>& warnings) const {
  const char* shared = nullptr;
  const void* id = nullptr;
  if (dwarf_getalt(dwarf_) == nullptr && sharedTexts_.begin() == nullptr &&
      dwelf_dwarf_gnu_debugaltlink(dwarf_, &shared, &id) > 0)
    warnings.push_back(std::string(shared) + ", to which dwz moved part of the debugging information, cannot be found");
  std::vector<ListedUnit> listed;
  for (Dwarf* dwarf : {dwarf_, dwarf_getalt(dwarf_)}) {
    if (dwarf == nullptr || listUnits(dwarf, listed)) continue;
    warnings.push_back("the debugging information is damaged, so variables may be missing: " + dwarfError());
  }
  return listed;
}

std::optional<Unit> DebugFile::find(const ListedUnit& listed, std::vector<std::string>& missing) const {
  const Die skeleton(listed.top, this);
  if (!listed.isSkeleton) return Unit{skeleton, skeleton};
  Dwarf_Die split{};
  dwarf_cu_info(listed.top.cu, nullptr, nullptr, nullptr, &split, nullptr, nullptr, nullptr);
  if (split.addr == nullptr) split = packedUnit(skeleton);
  if (split.addr != nullptr) {
    splitOff_.try_emplace(dwarf_cu_getdwarf(split.cu), dwoPath(skeleton));
    return Unit{Die(split, this), skeleton};
  }
  const std::string fault = dwoFault(skeleton);
  missing.push_back("the debugging information in " + dwoName(skeleton) + " is missing: the file " +
                    (fault.empty() ? "is neither where the compiler put it nor in " + path_ + ".dwp" : fault));
  return {};
}

// The unit of `skeleton` in a package or in its .dwo file; its addr is null if there is none.
Dwarf_Die DebugFile::packedUnit(const Die& skeleton) const {
  std::uint64_t id = 0;
  Dwarf_Die unit{};
  if (dwarf_cu_info(skeleton.raw().cu, nullptr, nullptr, nullptr, nullptr, &id, nullptr, nullptr) != 0) return unit;
  for (const auto& package : packages_) {
    if (unit.addr == nullptr) unit = package->unit(id);
  }
  if (unit.addr == nullptr) unit = splitFile(dwoPath(skeleton)).unit(id);
  return unit;
}

DwarfPackage& DebugFile::splitFile(const std::string& path) const {
  return splitFiles_.try_emplace(path, path).first->second;
}

Dwarf_Die DebugFile::type(const Dwarf_Attribute& reference) const {
  Dwarf_Die type{};
  for (const auto& package : packages_) {
    if (type.addr == nullptr) type = package->type(reference);
  }
  const auto known = splitOff_.find(dwarf_cu_getdwarf(reference.cu));
  if (type.addr == nullptr && known != splitOff_.end()) {
    const std::string path = known->second;
    type = splitFile(path).type(reference);
    // The type may refer to other types in the same file.
    if (type.addr != nullptr) splitOff_.try_emplace(dwarf_cu_getdwarf(type.cu), path);
  }
  return type;
}

const char* DebugFile::sharedText(const Dwarf_Attribute& reference) const {
  std::uint8_t width = 0;
  if (sharedTexts_.begin() == nullptr ||
      dwarf_cu_info(reference.cu, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, &width) != 0)
    return nullptr;
  const SectionBytes bytes(dwarf_getelf(dwarf_cu_getdwarf(reference.cu)), ".debug_info");
  const auto offset = bytes.numberAt(reference.valp, width);
  ByteCursor text(sharedTexts_.begin(), sharedTexts_.end(), false);
  text.skip(offset.value_or(~std::uint64_t{0}));
  const char* found = text.text();
  return text.failed() ? nullptr : found;
}

std::optional<std::uint64_t> DebugFile::indexedAddress(const Unit& unit, std::uint64_t index) const {
  std::uint64_t base = 0;
  for (const unsigned name : {DW_AT_addr_base, DW_AT_GNU_addr_base}) {
    if (const auto found = unit.skeleton.number(name)) base = *found;
  }
  const unsigned width = unit.skeleton.addressSize();
  std::uint64_t offset = 0;
  if (__builtin_mul_overflow(index, width, &offset) || __builtin_add_overflow(offset, base, &offset)) return {};
  return addresses_.number(offset, width);
}
