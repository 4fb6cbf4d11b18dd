// Entries of the debugging information as values: what libdw offers with out-parameters and results of its own, as
// plain questions.
#pragma once

#include <elfutils/libdw.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

/// What libdw reports of its latest failure.
std::string dwarfError();

/// Finds what is in other files, where libdw does not find it by itself.
class OtherFiles {
 public:
  OtherFiles() = default;
  OtherFiles(const OtherFiles&) = delete;
  OtherFiles& operator=(const OtherFiles&) = delete;
  virtual ~OtherFiles() = default;
  /// The type whose signature `reference` holds; its addr is null when there is none.
  virtual Dwarf_Die type(const Dwarf_Attribute& reference) const = 0;
  /// The text that `reference` names in the file shared by dwz; null when there is none.
  virtual const char* sharedText(const Dwarf_Attribute& reference) const = 0;
};

/// One entry, or none. Valid as long as the debugging information that it is part of.
class Die {
 public:
  Die() = default;
  Die(const Dwarf_Die& die, const OtherFiles* units) : die_(die), units_(units) {}

  explicit operator bool() const { return die_.addr != nullptr; }
  /// What tells it from all others.
  const void* id() const { return die_.addr; }
  /// The entry at `address` of the same unit.
  Die sibling(const void* address) const;
  /// The top entry of its unit.
  Die unit() const;
  /// Bytes of an address in its unit.
  unsigned addressSize() const;

  int tag() const;
  bool has(unsigned name) const;
  /// Whether the attribute is there and set.
  bool flag(unsigned name) const;
  /// The number of an attribute; empty when it has none.
  std::optional<std::uint64_t> number(unsigned name) const;
  /// The text of an attribute; null when it has none.
  const char* text(unsigned name) const;
  /// The name of the entry; where it only stands for a type in a type unit, the name there. Null when there is none.
  const char* name() const;
  /// The entry that an attribute refers to; for a type in a type unit, that in the type unit. None when there is none.
  Die reference(unsigned name) const;
  /// What this entry completes: the declaration in a class or namespace, or the abstract description of what was
  /// inlined. None when it completes nothing.
  Die completed() const;

  class Children;
  Children children() const;

  /// The text of `attribute`, of an entry in the same unit; null when it is none.
  const char* textOf(Dwarf_Attribute& attribute) const;

  const Dwarf_Die& raw() const { return die_; }

 private:
  Die target(unsigned name) const;

  // libdw takes none as const, although it changes nothing but what it remembers of the entry.
  mutable Dwarf_Die die_{};
  const OtherFiles* units_ = nullptr;
};

/// The children of an entry, for a range-based loop. A damaged one ends it.
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

/// The entries that together describe a variable or function: `die` first, then what it completes.
std::vector<Die> descriptions(const Die& die);

/// The name that the first of `chain` with a name has; null when none has.
const char* firstName(const std::vector<Die>& chain);
