// A DWARF package: the .dwo files of a program put together into one file by the tool dwp (DWARF 5, section 7.3.5; its
// predecessor for DWARF 4 is described at gcc.gnu.org/wiki/DebugFissionDWP).
#pragma once

#include <elfutils/libdw.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "debuginfo/sectionBytes.h"
#include "src/uniqueFd.h"

class DwarfPackage {
 public:
  /// Opens the package `path`, or a single .dwo file, which may have a section for each type, of which libdw sees none.
  /// One that is missing, compressed or damaged holds no units.
  explicit DwarfPackage(const std::string& path);

  /// The top entry of the compilation unit whose id is `id`; its addr is null when the package does not hold it.
  Dwarf_Die unit(std::uint64_t id);
  /// The type whose signature the attribute `reference` of such a unit holds; its addr is null when the package does
  /// not hold it.
  Dwarf_Die type(const Dwarf_Attribute& reference);

 private:
  using ElfOwner = std::unique_ptr<Elf, int (*)(Elf*)>;
  using DwarfOwner = std::unique_ptr<Dwarf, int (*)(Dwarf*)>;

  // What a unit takes of a section.
  struct Contribution {
    std::uint64_t section;
    std::uint64_t offset;
    std::uint64_t size;
    std::size_t header = 0;  // number of its header; 0: there is but one section of that name
  };
  // libdw does not know packages, so each unit is shown to it as a file whose sections are cut to that unit.
  struct View {
    ElfOwner elf;
    DwarfOwner dwarf;
  };

  using Contributions = std::vector<Contribution>;
  using Index = std::unordered_map<std::uint64_t, Contributions>;

  ElfOwner openElf() const;
  static Index readIndex(Elf* elf, std::string_view name);
  void readSections(Elf* elf, std::uint64_t section);
  void readUnits(const SectionBytes& bytes, const Contribution& all);
  bool cutSections(Elf* elf, const Contributions& parts) const;
  Dwarf* openView(const Contributions& parts);

  UniqueFd file_;
  bool isPackage_ = false;
  Index units_;
  Index types_;
  std::unordered_map<std::uint64_t, Dwarf_Die> knownTypes_;
  std::vector<View> views_;
};
