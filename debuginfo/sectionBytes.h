// The bytes of one section of an ELF file.
#pragma once

#include <libelf.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

/// The section of `elf` that is called `name`; null when there is none.
Elf_Scn* findSection(Elf* elf, std::string_view name);

/// Unsigned numbers in the byte order of the file. Valid as long as the Elf that it was made from.
class SectionBytes {
 public:
  SectionBytes() = default;
  /// Holds nothing when `elf` has no section called `name`.
  SectionBytes(Elf* elf, std::string_view name);

  /// The number in the `width` bytes (at most 8) at byte `offset`; empty when they are not all within the section.
  std::optional<std::uint64_t> number(std::uint64_t offset, std::size_t width) const;

 private:
  const unsigned char* bytes_ = nullptr;
  std::uint64_t size_ = 0;
  bool bigEndian_ = false;
};
