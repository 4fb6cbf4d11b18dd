#include "debuginfo/sectionBytes.h"

#include <gelf.h>

#include <functional>

Elf_Scn* findSection(Elf* elf, std::string_view name, Elf_Scn* after) {
  std::size_t names = 0;
  if (elf_getshdrstrndx(elf, &names) != 0) return nullptr;
  for (Elf_Scn* section = elf_nextscn(elf, after); section != nullptr; section = elf_nextscn(elf, section)) {
    GElf_Shdr header;
    const bool readable = gelf_getshdr(section, &header) != nullptr;
    const char* found = readable ? elf_strptr(elf, names, header.sh_name) : nullptr;
    if (found != nullptr && found == name) return section;
  }
  return nullptr;
}

SectionBytes::SectionBytes(Elf* elf, std::string_view name) {
  for (Elf_Scn* section = nullptr; begin() == nullptr && (section = findSection(elf, name, section)) != nullptr;)
    *this = SectionBytes(elf, section);
}

SectionBytes::SectionBytes(Elf* elf, Elf_Scn* section) {
  const Elf_Data* data = elf_rawdata(section, nullptr);
  const char* identification = elf_getident(elf, nullptr);
  if (data == nullptr || data->d_buf == nullptr || identification == nullptr) return;
  bytes_ = static_cast<const unsigned char*>(data->d_buf);
  size_ = data->d_size;
  bigEndian_ = identification[EI_DATA] == ELFDATA2MSB;
}

std::optional<std::uint64_t> SectionBytes::number(std::uint64_t offset, std::size_t width) const {
  if (offset > size_ || width > size_ - offset) return {};
  std::uint64_t value = 0;
  for (std::size_t i = 0; i < width; ++i) {
    value = value << 8 | bytes_[offset + (bigEndian_ ? i : width - 1 - i)];
  }
  return value;
}

std::optional<std::uint64_t> SectionBytes::numberAt(const void* at, std::size_t width) const {
  const auto* byte = static_cast<const unsigned char*>(at);
  if (bytes_ == nullptr || std::less<>()(byte, begin()) || std::less<>()(end(), byte)) return {};
  return number(static_cast<std::uint64_t>(byte - bytes_), width);
}
