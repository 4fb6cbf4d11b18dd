// The memory image of a program: its sections, segments and symbols.
#pragma once

#include <elfutils/libdwfl.h>

#include <compare>
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
  std::size_t number = 0;  ///< index in the file
  bool isShared = false;   ///< another section overlaps its addresses, as with overlays
};

/// Where a variable is in the program. Ordered by address, with thread-local variables last.
struct ImageAddress {
  bool isThreadLocal = false;
  std::uint64_t value = 0;  ///< if thread-local, the offset in the TLS block

  // NOLINTNEXTLINE(modernize-use-nullptr): a mistake of clang-tidy 14
  friend auto operator<=>(const ImageAddress&, const ImageAddress&) = default;
};

/// A symbol of a variable.
struct ImageSymbol {
  ImageAddress at;
  std::uint64_t size = 0;
  const char* name = nullptr;
  bool isLocal = false;        ///< not visible to other units
  const char* unit = nullptr;  ///< if local: its source file, without directory; null if unknown
  std::size_t section = 0;     ///< index of its section in the file
};

/// The properties of a variable by which its symbol is recognized.
struct SymbolTraits {
  ImageAddress at{};
  std::string_view name{};
  const char* linkageName = nullptr;  ///< the name of its symbol in the debugging information; may be null
  std::string_view unit{};            ///< source file of its unit; may be empty
  std::optional<std::uint64_t> size{};
};

/// Looks up sections and symbols by address.
class ProgramImage {
 public:
  /// Reads the sections and segments of `module`, which must outlive this object. Symbols are read on first use.
  explicit ProgramImage(Dwfl_Module* module);

  /// The sections in the order of the file.
  const std::vector<ImageSection>& sections() const { return sections_; }
  /// The build ID in hexadecimal; empty if there is none.
  const std::string& buildId() const { return buildId_; }

  /// The section that contains `address` or ends at it; null if the program has nothing there.
  const ImageSection* find(std::uint64_t address) const;
  /// Converts `location`, the location of a thread-local variable in the debugging information, to its offset in the
  /// TLS block. Some compilers give an address in the TLS segment instead of the offset.
  std::uint64_t threadLocalOffset(std::uint64_t location) const;
  /// The section that contains the byte `offset` of the TLS block; null if there is none.
  const ImageSection* findThreadLocal(std::uint64_t offset) const;
  /// The offset of the thread-local variable with this name in the symbol table; empty unless there is exactly one.
  std::optional<std::uint64_t> threadLocalNamed(std::string_view name, const char* linkageName) const;
  /// Where several sections contain the address of `variable`, the one that its symbol is in; null if unknown.
  const ImageSection* sectionOf(const SymbolTraits& variable) const;
  /// Whether the program can write to `address` in `section` at run time.
  bool isWritable(const ImageSection& section, std::uint64_t address) const;

  /// Whether the symbol table has a symbol of `variable` at its address, or does not exist.
  bool mayBeThere(const SymbolTraits& variable) const;
  /// The size in bytes of the variable at `at` in the symbol table: that of the symbol with the variable's name,
  /// or else that on which all symbols there agree. Empty if there is none.
  std::optional<std::uint64_t> symbolSize(const ImageAddress& at, std::string_view name, const char* linkageName) const;
  /// The names of the symbols at `at`.
  std::vector<std::string_view> symbolNames(const ImageAddress& at) const;
  /// Whether one of them is the symbol of the variable `name`.
  bool hasNameAt(const ImageAddress& at, std::string_view name, const char* linkageName) const;
  /// All symbols of variables, by address.
  const std::vector<ImageSymbol>& symbols() const;

 private:
  struct Range {
    std::uint64_t begin = 0, end = 0;
  };
  using Symbols = std::vector<ImageSymbol>;

  void readSections(Elf* elf);
  void noteShared();
  void readSegments(Elf* elf);
  std::vector<const ImageSymbol*> symbolsOf(const SymbolTraits& variable) const;
  std::pair<Symbols::const_iterator, Symbols::const_iterator> symbolsAt(const ImageAddress& at) const;

  Dwfl_Module* module_;
  std::vector<ImageSection> sections_;
  std::vector<const ImageSection*> byAddress_;  // without thread-local ones
  mutable const ImageSection* last_ = nullptr;  // cached result of find
  Range relro_;
  Range threadLocal_;  // the TLS segment
  std::string buildId_;
  std::uint64_t bias_ = 0;                  // added by libdwfl to addresses
  mutable std::optional<Symbols> symbols_;  // by address
  mutable bool hasLocalSymbols_ = false;    // the table is not only the dynamic symbol table
};
