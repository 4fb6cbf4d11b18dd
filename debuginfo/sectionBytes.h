// Finds sections of an ELF file and reads numbers from them.
#pragma once

#include <libelf.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

/// The first section of `elf` called `name`, only after the section `after` unless that is null; null if there is none.
Elf_Scn* findSection(Elf* elf, std::string_view name, Elf_Scn* after = nullptr);

/// The bytes of one section. Valid as long as its Elf.
class SectionBytes {
 public:
  SectionBytes() = default;
  /// The first non-empty section of `elf` called `name`; empty if there is none.
  SectionBytes(Elf* elf, std::string_view name);
  SectionBytes(Elf* elf, Elf_Scn* section);

  /// The unsigned number in the `width` bytes (at most 8) at `offset`, in the byte order of the file; empty if they are
  /// not all within the section.
  std::optional<std::uint64_t> number(std::uint64_t offset, std::size_t width) const;
  /// The same for the bytes at the memory address `at`.
  std::optional<std::uint64_t> numberAt(const void* at, std::size_t width) const;

  const unsigned char* begin() const { return bytes_; }
  const unsigned char* end() const { return bytes_ + size_; }
  bool bigEndian() const { return bigEndian_; }

 private:
  const unsigned char* bytes_ = nullptr;
  std::uint64_t size_ = 0;
  bool bigEndian_ = false;
};
