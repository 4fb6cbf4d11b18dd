// Debugging information entries (DIEs) as values: a thin wrapper of libdw, whose functions use out-parameters and their
// own error codes.
#pragma once

#include <elfutils/libdw.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

/// The number of references that are followed from one type to the next; a longer chain is a cycle.
inline constexpr int maxTypeDepth = 64;

/// The message of libdw for its latest error.
std::string dwarfError();

/// Resolves references into other files that libdw does not resolve.
class OtherFiles {
 public:
  OtherFiles() = default;
  OtherFiles(const OtherFiles&) = delete;
  OtherFiles& operator=(const OtherFiles&) = delete;
  virtual ~OtherFiles() = default;
  /// The type with the signature in `reference`; its addr is null if there is none.
  virtual Dwarf_Die type(const Dwarf_Attribute& reference) const = 0;
  /// The text in the supplementary file to which `reference` refers; null if there is none.
  virtual const char* sharedText(const Dwarf_Attribute& reference) const = 0;
};

/// A DIE, or none. Valid as long as the debugging information that contains it.
class Die {
 public:
  Die() = default;
  Die(const Dwarf_Die& die, const OtherFiles* units) : die_(die), units_(units) {}

  explicit operator bool() const { return die_.addr != nullptr; }
  /// Identifies the DIE: its address in memory.
  const void* id() const { return die_.addr; }
  /// The DIE at `address` in the same unit.
  Die sibling(const void* address) const;
  /// The top DIE of its unit.
  Die unit() const;
  /// Bytes of a target address in its unit.
  unsigned addressSize() const;

  int tag() const;
  bool has(unsigned name) const;
  /// Whether the flag is present and set.
  bool flag(unsigned name) const;
  /// The attribute as a number; empty if it is absent or not a number.
  std::optional<std::uint64_t> number(unsigned name) const;
  /// The attribute as a text; null if it is absent or not a text.
  const char* text(unsigned name) const;
  /// The name of the DIE; for a stub that refers to a type unit, the name there. Null if there is none.
  const char* name() const;
  /// The DIE to which an attribute refers; for a type in a type unit, the one there. None if there is none.
  Die reference(unsigned name) const;
  /// For a stub that refers to a type unit, the DIE of the type there; this DIE if it is not a stub, or if the type
  /// unit is missing.
  Die described() const;
  /// The DIE that this one completes: its declaration in a class or namespace (DW_AT_specification), or the abstract
  /// instance of an inlined function's DIE (DW_AT_abstract_origin). None if there is none.
  Die completed() const;

  class Children;
  Children children() const;

  /// The text of `attribute`, which belongs to a DIE in the same unit; null if it is not a text.
  const char* textOf(Dwarf_Attribute& attribute) const;

  const Dwarf_Die& raw() const { return die_; }

 private:
  Die target(unsigned name) const;

  // mutable because libdw's parameters are not const; it only updates its cached abbreviation.
  mutable Dwarf_Die die_{};
  const OtherFiles* units_ = nullptr;
};

/// The children of a DIE, for a range-based loop, which ends at the first damaged one.
class Die::Children {
 public:
  class Iterator {
   public:
    Iterator() = default;
    explicit Iterator(const Die& first) : at_(first) {}
    const Die& operator*() const { return at_; }
    Iterator& operator++();
    bool operator!=(const Iterator& other) const { return at_.id() != other.at_.id(); }

   private:
    Die at_;
  };

  explicit Children(const Die& first) : first_(first) {}
  Iterator begin() const { return Iterator(first_); }
  Iterator end() const { return {}; }

 private:
  Die first_;
};

/// The DIEs that together describe a variable or function: `die`, the one that it completes, and so on.
std::vector<Die> descriptions(const Die& die);

/// The name of the first DIE in `chain` that has one; null if none has.
const char* firstName(const std::vector<Die>& chain);

/// The linkage name of the first DIE in `chain` that has one; null if none has.
const char* firstLinkageName(const std::vector<Die>& chain);
