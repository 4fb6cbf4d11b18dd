// The bytes of one section of an ELF file.
#pragma once

#include <libelf.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

/// The first section of `elf` behind the section `after` (null: of all) that is called `name`; null when there is none.
Elf_Scn* findSection(Elf* elf, std::string_view name, Elf_Scn* after = nullptr);

/// Unsigned numbers in the byte order of the file. Valid as long as the Elf that it was made from.
class SectionBytes {
 public:
  SectionBytes() = default;
  /// Of the first section of `elf` called `name` that is not empty; holds nothing when there is none.
  SectionBytes(Elf* elf, std::string_view name);
  SectionBytes(Elf* elf, Elf_Scn* section);

  /// The number in the `width` bytes (at most 8) at byte `offset`; empty when they are not all within the section.
  std::optional<std::uint64_t> number(std::uint64_t offset, std::size_t width) const;
  /// The same at the address `at` in memory.
  std::optional<std::uint64_t> numberAt(const void* at, std::size_t width) const;

  const unsigned char* begin() const { return bytes_; }
  const unsigned char* end() const { return bytes_ + size_; }
  bool bigEndian() const { return bigEndian_; }

 private:
  const unsigned char* bytes_ = nullptr;
  std::uint64_t size_ = 0;
  bool bigEndian_ = false;
};
