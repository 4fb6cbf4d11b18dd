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

/// The units in a package or .dwo file.
class DwarfPackage {
 public:
  /// Opens the package `path`, or a single .dwo file, which may have a section for each type, which libdw does not
  /// support. A file that is missing, compressed or damaged has no units.
  explicit DwarfPackage(const std::string& path);

  /// The top DIE of the compilation unit with the ID `id`; its addr is null if the package does not contain it.
  Dwarf_Die unit(std::uint64_t id);
  /// The type with the signature in `reference`, an attribute in such a unit; its addr is null if the package does not
  /// contain it.
  Dwarf_Die type(const Dwarf_Attribute& reference);

 private:
  using ElfOwner = std::unique_ptr<Elf, int (*)(Elf*)>;
  using DwarfOwner = std::unique_ptr<Dwarf, int (*)(Dwarf*)>;

  // The part of a section that belongs to a unit.
  struct Contribution {
    std::uint64_t section;
    std::uint64_t offset;
    std::uint64_t size;
    std::size_t header = 0;  // index of its section header; 0: there is only one section with that name
  };
  // libdw does not support packages, so each unit is presented to it as a file whose sections are cut to that unit.
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
