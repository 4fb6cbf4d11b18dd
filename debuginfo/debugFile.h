// An executable or shared object with its debugging information, wherever that lies: in the file itself, in a separate
// file found by build-id or debuglink, in .dwo files or a package of them, or in a file shared by dwz.
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

/// A unit of the debugging information. `skeleton` is what the linked program holds of it, with addresses and lines;
/// the same as `top` unless the unit was split off.
struct Unit {
  Die top;
  Die skeleton;
};

/// A unit as it stands in the file, before it is looked for where it may have been split off to.
struct ListedUnit {
  Dwarf_Die top;
  bool isSkeleton = false;
  std::uint64_t cost = 0;  ///< of reading it, compared with others: bytes
};

class DebugFile : public OtherFiles {
 public:
  /// Opens `path`. Throws UserError when it is no executable or shared object in ELF, is damaged, or has no debugging
  /// information that can be read.
  explicit DebugFile(const std::string& path);

  const ProgramImage& image() const { return *image_; }

  /// All units in their order: compilation units, partial units, type units, and those of the file shared by dwz.
  /// Sentences about what is missing or damaged are added to `warnings`.
  std::vector<ListedUnit> units(std::vector<std::string>& warnings) const;

  /// The unit with its entries. When these were split off and cannot be found, it is empty, and a sentence about that
  /// is added to `missing`.
  std::optional<Unit> find(const ListedUnit& listed, std::vector<std::string>& missing) const;

  /// Turns an address of the debugging information into one of the executable. They differ only when one of two files
  /// was prelinked.
  std::uint64_t toExecutable(std::uint64_t address) const { return address + bias_; }

  /// The address with the number `index` in the list of addresses of `unit`; empty when there is none.
  std::optional<std::uint64_t> listedAddress(const Unit& unit, std::uint64_t index) const;

  Dwarf_Die type(const Dwarf_Attribute& reference) const override;
  const char* sharedText(const Dwarf_Attribute& reference) const override;

 private:
  void openShared(const std::string& path, Dwfl_Module* module);
  void openPackages(const std::string& path, Dwfl_Module* module);
  Dwarf_Die packedUnit(const Die& skeleton) const;
  DwarfPackage& splitFile(const std::string& path) const;

  std::string path_;
  UniqueFd sharedFile_;
  // What dwz took out, if libdw did not find it, or will not read it because it consists of texts alone.
  std::unique_ptr<Elf, int (*)(Elf*)> sharedElf_{nullptr, elf_end};
  std::unique_ptr<Dwarf, int (*)(Dwarf*)> shared_{nullptr, dwarf_end};
  SectionBytes sharedTexts_;
  std::unique_ptr<Dwfl, void (*)(Dwfl*)> session_;
  Dwarf* dwarf_ = nullptr;
  std::optional<ProgramImage> image_;
  SectionBytes addresses_;                                    // the lists that units refer to by number
  std::vector<std::unique_ptr<DwarfPackage>> packages_;       // of all places where one may be
  mutable std::map<std::string, DwarfPackage> splitFiles_;    // .dwo files that libdw does not read alone, by path
  mutable std::unordered_map<Dwarf*, std::string> splitOff_;  // the .dwo files that units were read from
  std::uint64_t bias_ = 0;
};
