// An executable or shared object with its debugging information, wherever that lies: in the file itself, in a separate
// file found by build-id or debuglink, in .dwo files or a package of them, or in a file shared by dwz.
#pragma once

#include <elfutils/libdw.h>
#include <elfutils/libdwfl.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "dwarfPackage.h"
#include "sectionBytes.h"

/// What libdw says of its latest failure.
std::string dwarfError();

/// What the debugging information lacks.
struct MissingParts {
  std::vector<std::string> files;  ///< names of .dwo files, and of a file shared by dwz, that cannot be found
  std::string damage;              ///< why the walk over the units ended early; empty when it did not
};

class DebugFile {
 public:
  /// Opens `path`. Throws UserError when it is no executable or shared object in ELF, is damaged, or has no debugging
  /// information.
  explicit DebugFile(const std::string& path);

  /// Calls `useUnit` with the top entry of every unit: compilation units (of skeletons, the unit in the .dwo file
  /// or package), partial units, type units, and those of the file shared by dwz; `skeleton` is the top entry of the
  /// skeleton, or `top` again.
  MissingParts forEachUnit(const std::function<void(const Dwarf_Die& top, const Dwarf_Die& skeleton)>& useUnit) const;

  /// Turns an address of the debugging information into one of the executable. They differ only when one of two files
  /// was prelinked.
  std::uint64_t toExecutable(std::uint64_t address) const { return address + bias_; }

  /// The address with the number `index` in the list of addresses of the unit whose top entry, or that of its skeleton,
  /// is `skeleton`; empty when there is none.
  std::optional<std::uint64_t> listedAddress(Dwarf_Die skeleton, std::uint64_t index) const;

  /// Whether `address` lies in a section that the program has in memory and that is no thread-local template. Debugging
  /// information of what the linker threw away has addresses outside.
  bool isInMemory(std::uint64_t address) const;

  struct ProgramSection {
    std::string name;
    std::uint64_t address, size;
    bool writable, threadLocal;
  };
  const std::vector<ProgramSection>& sections() const { return programSections_; }
  const ProgramSection* sectionAt(std::uint64_t address) const;
  bool isRelro(std::uint64_t address) const { return address >= relro_.begin && address < relro_.end; }
  const std::string& buildId() const { return buildId_; }

  /// Size in bytes that the symbol table gives for the variable at `address` whose symbol is called `name`, also with
  /// a suffix such as ".0" behind it; empty when there is none.
  std::optional<std::uint64_t> symbolSize(std::uint64_t address, std::string_view name) const;

  /// Size in bytes on which all symbols at `address` agree; empty when there are none or they do not.
  std::optional<std::uint64_t> onlySymbolSize(std::uint64_t address) const;

 private:
  struct Range {
    std::uint64_t begin, end;
  };
  struct Symbol {
    const char* name;
    std::uint64_t size;
  };

  void readSections(Elf* elf);
  void readSymbols(Dwfl_Module* module, std::uint64_t elfBias);

  Dwarf_Die packedUnit(const Dwarf_Die& skeleton) const;

  std::unique_ptr<Dwfl, void (*)(Dwfl*)> session_;
  Dwarf* dwarf_ = nullptr;
  SectionBytes addresses_;                               // the lists that units refer to by number
  std::vector<std::unique_ptr<DwarfPackage>> packages_;  // of all places where one may be
  std::uint64_t bias_ = 0;
  std::vector<Range> sections_;
  std::vector<ProgramSection> programSections_;
  Range relro_{0, 0};
  std::string buildId_;
  std::unordered_multimap<std::uint64_t, Symbol> symbols_;
};
