#include "debuginfo/programImage.h"

#include <elfutils/libdwelf.h>
#include <gelf.h>

#include <algorithm>
#include <tuple>

namespace {

// Whether `symbol` is the symbol of the variable `name`: possibly with a suffix (".0"), after the name of its function
// ("f.name"), or mangled.
bool isNameOf(std::string_view symbol, std::string_view name, const char* linkageName) {
  if (linkageName != nullptr && symbol == linkageName) return true;
  for (std::size_t at = symbol.find(name); at != std::string_view::npos; at = symbol.find(name, at + 1)) {
    const std::size_t end = at + name.size();
    if ((at == 0 || symbol[at - 1] == '.') && (end == symbol.size() || symbol[end] == '.')) return true;
  }
  return symbol.starts_with("_Z") && symbol.find(std::to_string(name.size()).append(name)) != std::string_view::npos;
}

// Whether `name`, from an STT_FILE symbol, names a source file. After link-time optimization it does not.
bool isSource(std::string_view name) { return !name.empty() && !name.starts_with('<') && !name.ends_with(".o"); }

// Whether `symbol` can be the symbol of `variable`.
bool isOf(const ImageSymbol& symbol, const SymbolTraits& variable) {
  const std::string_view unit = variable.unit.substr(variable.unit.rfind('/') + 1);
  return isNameOf(symbol.name, variable.name, variable.linkageName) &&
         (symbol.unit == nullptr || unit.empty() || unit == symbol.unit) &&
         (symbol.size == 0 || variable.size.value_or(symbol.size) == symbol.size);
}

bool comesBefore(const ImageSymbol& a, const ImageSymbol& b) { return a.at < b.at; }

std::string hexadecimal(const unsigned char* bytes, std::size_t count) {
  constexpr const char* digits = "0123456789abcdef";
  std::string text;
  for (std::size_t i = 0; i < count; ++i) {
    text += digits[bytes[i] >> 4];
    text += digits[bytes[i] & 15];
  }
  return text;
}

}  // namespace

ProgramImage::ProgramImage(Dwfl_Module* module) : module_(module) {
  Elf* elf = dwfl_module_getelf(module, &bias_);
  if (elf == nullptr) return;
  readSections(elf);
  readSegments(elf);
  const void* id = nullptr;
  const ssize_t length = dwelf_elf_gnu_build_id(elf, &id);
  if (length > 0) buildId_ = hexadecimal(static_cast<const unsigned char*>(id), static_cast<std::size_t>(length));
}

void ProgramImage::readSections(Elf* elf) {
  std::size_t names = 0;
  if (elf_getshdrstrndx(elf, &names) != 0) return;
  for (Elf_Scn* section = elf_nextscn(elf, nullptr); section != nullptr; section = elf_nextscn(elf, section)) {
    GElf_Shdr header;
    if (gelf_getshdr(section, &header) == nullptr || (header.sh_flags & SHF_ALLOC) == 0) continue;
    const char* name = elf_strptr(elf, names, header.sh_name);
    sections_.push_back({name != nullptr ? name : "", header.sh_addr, header.sh_size,
                         (header.sh_flags & SHF_WRITE) != 0, (header.sh_flags & SHF_TLS) != 0, elf_ndxscn(section)});
  }
  noteShared();
  for (const ImageSection& section : sections_) {
    if (!section.threadLocal) byAddress_.push_back(&section);
  }
  std::stable_sort(byAddress_.begin(), byAddress_.end(), [](const auto* a, const auto* b) {
    return std::tie(a->address, a->size) < std::tie(b->address, b->size);
  });
}

// Marks the sections whose addresses overlap.
void ProgramImage::noteShared() {
  std::vector<ImageSection*> sorted;
  for (ImageSection& section : sections_) {
    if (!section.threadLocal && section.size > 0) sorted.push_back(&section);
  }
  std::sort(sorted.begin(), sorted.end(), [](const auto* a, const auto* b) { return a->address < b->address; });
  ImageSection* furthest = nullptr;  // of the sections so far, the one with the highest end
  for (ImageSection* section : sorted) {
    if (furthest != nullptr && section->address - furthest->address < furthest->size)
      section->isShared = furthest->isShared = true;
    if (furthest == nullptr || section->address + section->size > furthest->address + furthest->size)
      furthest = section;
  }
}

void ProgramImage::readSegments(Elf* elf) {
  std::size_t count = 0;
  if (elf_getphdrnum(elf, &count) != 0) return;
  for (std::size_t i = 0; i < count; ++i) {
    GElf_Phdr segment;
    if (gelf_getphdr(elf, static_cast<int>(i), &segment) == nullptr) return;
    if (segment.p_type == PT_GNU_RELRO) relro_ = {segment.p_vaddr, segment.p_vaddr + segment.p_memsz};
    if (segment.p_type == PT_TLS) threadLocal_ = {segment.p_vaddr, segment.p_vaddr + segment.p_memsz};
  }
}

const ImageSection* ProgramImage::find(std::uint64_t address) const {
  if (last_ != nullptr && address >= last_->address && address - last_->address < last_->size) return last_;
  auto at = std::upper_bound(byAddress_.begin(), byAddress_.end(), address,
                             [](std::uint64_t wanted, const auto* section) { return wanted < section->address; });
  const ImageSection* ended = nullptr;
  while (at != byAddress_.begin()) {
    const ImageSection* section = *--at;
    const std::uint64_t offset = address - section->address;
    if (offset < section->size) return last_ = section;
    // A variable of size 0 may be at the end of a section.
    if (offset == section->size && ended == nullptr && section->size > 0) ended = section;
    if (section->size > 0) break;
  }
  return ended;
}

std::uint64_t ProgramImage::threadLocalOffset(std::uint64_t location) const {
  const bool isAddress = location >= threadLocal_.end - threadLocal_.begin && location >= threadLocal_.begin &&
                         location < threadLocal_.end;
  return isAddress ? location - threadLocal_.begin : location;
}

const ImageSection* ProgramImage::findThreadLocal(std::uint64_t offset) const {
  for (const ImageSection& section : sections_) {
    const std::uint64_t within = threadLocal_.begin + offset - section.address;
    if (section.threadLocal && within < section.size) return &section;
  }
  return nullptr;
}

std::optional<std::uint64_t> ProgramImage::threadLocalNamed(std::string_view name, const char* linkageName) const {
  std::optional<std::uint64_t> offset;
  for (const ImageSymbol& symbol : symbols()) {
    if (!symbol.at.isThreadLocal || !isNameOf(symbol.name, name, linkageName)) continue;
    if (offset) return {};
    offset = symbol.at.value;
  }
  return offset;
}

bool ProgramImage::isWritable(const ImageSection& section, std::uint64_t address) const {
  return section.threadLocal || (section.writable && (address < relro_.begin || address >= relro_.end));
}

bool ProgramImage::mayBeThere(const SymbolTraits& variable) const {
  const bool hasSymbol = !symbolsOf(variable).empty();
  return hasSymbol || !hasLocalSymbols_;
}

const ImageSection* ProgramImage::sectionOf(const SymbolTraits& variable) const {
  const std::vector<const ImageSymbol*> symbols = symbolsOf(variable);
  const auto isAmong = [&](const ImageSection& section) {
    const auto isIn = [&](const ImageSymbol* symbol) { return symbol->section == section.number; };
    return !symbols.empty() && std::all_of(symbols.begin(), symbols.end(), isIn);
  };
  const auto found = std::find_if(sections_.begin(), sections_.end(), isAmong);
  return found != sections_.end() ? &*found : nullptr;
}

std::vector<const ImageSymbol*> ProgramImage::symbolsOf(const SymbolTraits& variable) const {
  std::vector<const ImageSymbol*> found;
  const auto [begin, end] = symbolsAt(variable.at);
  for (auto at = begin; at != end; ++at) {
    if (isOf(*at, variable)) found.push_back(&*at);
  }
  return found;
}

bool ProgramImage::hasNameAt(const ImageAddress& at, std::string_view name, const char* linkageName) const {
  const auto [begin, end] = symbolsAt(at);
  return std::any_of(begin, end, [&](const ImageSymbol& each) { return isNameOf(each.name, name, linkageName); });
}

std::optional<std::uint64_t> ProgramImage::symbolSize(const ImageAddress& at, std::string_view name,
                                                      const char* linkageName) const {
  const auto [begin, end] = symbolsAt(at);
  std::optional<std::uint64_t> agreed;
  bool differ = false;
  for (auto symbol = begin; symbol != end; ++symbol) {
    if (symbol->size == 0) continue;
    if (isNameOf(symbol->name, name, linkageName)) return symbol->size;
    differ = differ || (agreed && *agreed != symbol->size);
    agreed = symbol->size;
  }
  return differ ? std::nullopt : agreed;
}

std::vector<std::string_view> ProgramImage::symbolNames(const ImageAddress& at) const {
  std::vector<std::string_view> names;
  const auto [begin, end] = symbolsAt(at);
  for (auto symbol = begin; symbol != end; ++symbol) names.emplace_back(symbol->name);
  return names;
}

const std::vector<ImageSymbol>& ProgramImage::symbols() const {
  if (symbols_) return *symbols_;
  symbols_.emplace();
  const int count = dwfl_module_getsymtab(module_);
  const char* unit = nullptr;
  for (int i = 0; i < count; ++i) {
    GElf_Sym symbol;
    GElf_Addr address = 0;
    GElf_Word section = 0;
    const char* name = dwfl_module_getsym_info(module_, i, &symbol, &address, &section, nullptr, nullptr);
    if (name == nullptr) continue;
    const int type = GELF_ST_TYPE(symbol.st_info);
    const bool isLocal = i > 0 && GELF_ST_BIND(symbol.st_info) == STB_LOCAL;
    hasLocalSymbols_ = hasLocalSymbols_ || isLocal;
    // The STT_FILE symbol of a source file precedes its local symbols.
    if (type == STT_FILE) unit = isSource(name) ? name : nullptr;
    if (*name == '\0' || section == SHN_UNDEF) continue;
    // libdw adds the bias to thread-local offsets, too.
    if (type == STT_OBJECT || type == STT_COMMON || type == STT_TLS || type == STT_NOTYPE)
      symbols_->push_back(
          {{type == STT_TLS, address - bias_}, symbol.st_size, name, isLocal, isLocal ? unit : nullptr, section});
  }
  std::stable_sort(symbols_->begin(), symbols_->end(), comesBefore);
  return *symbols_;
}

std::pair<ProgramImage::Symbols::const_iterator, ProgramImage::Symbols::const_iterator> ProgramImage::symbolsAt(
    const ImageAddress& at) const {
  return std::equal_range(symbols().begin(), symbols().end(), ImageSymbol{.at = at}, comesBefore);
}
