// What a program has in memory when it runs, by its section headers, segments and symbols.
#pragma once

#include <elfutils/libdwfl.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "debuginfo/inventory.h"

/// A section that the program has in memory.
struct ImageSection {
  std::string name;
  std::uint64_t address = 0;
  std::uint64_t size = 0;
  bool writable = false;
  bool threadLocal = false;
};

/// A symbol of a variable.
struct ImageSymbol {
  std::uint64_t address = 0;  ///< of a thread-local one, the offset in the block
  std::uint64_t size = 0;
  const char* name = nullptr;
  bool threadLocal = false;
  bool isLocal = false;        ///< not known to other units
  const char* unit = nullptr;  ///< if local: the source file that it is of, without directory; may be null
};

class ProgramImage {
 public:
  /// Of the executable or shared object that `module` is. Its symbols are read when they are first asked for.
  explicit ProgramImage(Dwfl_Module* module);

  /// The sections in the order of the file.
  const std::vector<ImageSection>& sections() const { return sections_; }
  /// Hexadecimal; empty when there is none.
  const std::string& buildId() const { return buildId_; }

  /// The section that holds `address`, or at whose end it is; null when the program has nothing there.
  const ImageSection* find(std::uint64_t address) const;
  /// Turns what the debugging information has as the place of a thread-local variable into its offset in the block.
  /// Some compilers give an address in the template of the block instead.
  std::uint64_t threadLocalOffset(std::uint64_t place) const;
  /// The section that holds the byte `offset` of the block of thread-local variables; null when none does.
  const ImageSection* findThreadLocal(std::uint64_t offset) const;
  /// The place of the one thread-local variable that the symbol table has with this name; empty when it has none or
  /// several.
  std::optional<std::uint64_t> threadLocalNamed(std::string_view name, const char* linkageName) const;
  /// Whether the program may write to `address` in `section` when it runs.
  bool isWritable(const ImageSection& section, std::uint64_t address) const;

  /// Whether the symbol table has the name of a variable at `address` (`threadLocal`: in the block), or there is no
  /// such table. `linkageName`: that of the symbol as the debugging information gives it; may be null.
  bool mayBeAt(std::uint64_t address, bool threadLocal, std::string_view name, const char* linkageName) const;
  /// Size in bytes that the symbol table gives for the variable at `address`: that of the symbol with the variable's
  /// name, else that on which all symbols there agree. Empty when there is none.
  std::optional<std::uint64_t> symbolSize(std::uint64_t address, bool threadLocal, std::string_view name,
                                          const char* linkageName) const;
  /// The names of the symbols at `address`.
  std::vector<std::string_view> symbolNames(std::uint64_t address, bool threadLocal) const;
  /// Whether one of these is that of the variable `name`.
  bool hasNameAt(std::uint64_t address, bool threadLocal, std::string_view name, const char* linkageName) const;
  /// All symbols of variables, by address.
  const std::vector<ImageSymbol>& symbols() const;

 private:
  struct Range {
    std::uint64_t begin = 0, end = 0;
  };
  using Symbols = std::vector<ImageSymbol>;

  void readSections(Elf* elf);
  void readSegments(Elf* elf);
  std::pair<Symbols::const_iterator, Symbols::const_iterator> symbolsAt(std::uint64_t address, bool threadLocal) const;

  Dwfl_Module* module_;
  std::vector<ImageSection> sections_;
  std::vector<const ImageSection*> byAddress_;  // but for thread-local ones
  mutable const ImageSection* last_ = nullptr;  // that was found
  Range relro_;
  Range threadLocal_;  // the template of the block
  std::string buildId_;
  std::uint64_t bias_ = 0;                  // of addresses in libdwfl
  mutable std::optional<Symbols> symbols_;  // by address
  mutable bool hasLocalSymbols_ = false;    // the table is not just that of the dynamic linker
};
