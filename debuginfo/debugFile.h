// An executable or shared object with its debugging information, wherever it is: in the file itself, in a separate file
// found by build ID or debuglink, in .dwo files or a package of them, or in a supplementary file made by dwz.
#pragma once

#include <elfutils/libdw.h>
#include <elfutils/libdwfl.h>

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "debuginfo/die.h"
#include "debuginfo/dwarfPackage.h"
#include "debuginfo/programImage.h"
#include "debuginfo/sectionBytes.h"
#include "src/uniqueFd.h"

/// A unit of the debugging information. `skeleton` is its part in the linked program, with addresses and lines; the
/// same as `top` unless the unit is split (in a .dwo file).
struct Unit {
  Die top;
  Die skeleton;
};

/// A unit as listed in the program; for a skeleton, before its split unit has been looked up.
struct ListedUnit {
  Dwarf_Die top;
  bool isSkeleton = false;
  std::uint64_t cost = 0;  ///< relative cost of reading it, about its size in bytes
};

/// Opens a program and finds its units.
class DebugFile : public OtherFiles {
 public:
  /// Opens `path`. Throws UserError when it is not an ELF executable or shared object, is damaged, or has no readable
  /// debugging information.
  explicit DebugFile(const std::string& path);

  const ProgramImage& image() const { return *image_; }

  /// All units in file order: compilation units, partial units, type units, and those of the supplementary file. Adds
  /// sentences about missing or damaged units to `warnings`.
  std::vector<ListedUnit> units(std::vector<std::string>& warnings) const;

  /// Looks up the unit with the DIEs. If it is a split unit that cannot be found, returns nothing and adds a sentence
  /// about it to `missing`.
  std::optional<Unit> find(const ListedUnit& listed, std::vector<std::string>& missing) const;

  /// Converts an address in the debugging information to one in the executable. They differ only if one of the two
  /// files was prelinked.
  std::uint64_t toExecutable(std::uint64_t address) const { return address + bias_; }

  /// Entry `index` of the address table of `unit`, used by forms such as DW_FORM_addrx; empty if there is none.
  std::optional<std::uint64_t> indexedAddress(const Unit& unit, std::uint64_t index) const;

  Dwarf_Die type(const Dwarf_Attribute& reference) const override;
  const char* sharedText(const Dwarf_Attribute& reference) const override;

 private:
  void openShared(const std::string& path, Dwfl_Module* module);
  void openPackages(const std::string& path, Dwfl_Module* module);
  Dwarf_Die packedUnit(const Die& skeleton) const;
  DwarfPackage& splitFile(const std::string& path) const;

  std::string path_;
  UniqueFd sharedFile_;
  // The supplementary file, if libdw does not find it, or refuses it because it contains only texts.
  std::unique_ptr<Elf, int (*)(Elf*)> sharedElf_{nullptr, elf_end};
  std::unique_ptr<Dwarf, int (*)(Dwarf*)> shared_{nullptr, dwarf_end};
  SectionBytes sharedTexts_;
  std::unique_ptr<Dwfl, void (*)(Dwfl*)> session_;
  Dwarf* dwarf_ = nullptr;
  std::optional<ProgramImage> image_;
  SectionBytes addresses_;                                    // the address tables of all units
  std::vector<std::unique_ptr<DwarfPackage>> packages_;       // one for each path where a package may be
  mutable std::map<std::string, DwarfPackage> splitFiles_;    // .dwo files that libdw cannot read by itself, by path
  mutable std::unordered_map<Dwarf*, std::string> splitOff_;  // paths of the .dwo files that units were read from
  std::uint64_t bias_ = 0;
};
