// The abbreviation table of a unit, preprocessed so that DIEs without information about variables are skipped quickly.
// Used by unitScan and variables.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <unordered_map>
#include <vector>

#include "debuginfo/unitLayout.h"

/// The attributes of variables that are read, and the sibling reference.
enum class Slot : std::uint8_t {
  Name,
  Type,
  File,
  Line,
  Location,
  External,
  Specification,
  Origin,
  LinkageName,
  Artificial,
  Declaration,
  Sibling,
  None
};
constexpr std::size_t slotCount = static_cast<std::size_t>(Slot::None);

/// An attribute in an abbreviation.
struct AbbreviatedAttribute {
  std::uint16_t name = 0;
  std::uint16_t form = 0;
  Slot slot = Slot::None;
  std::int16_t size = -1;                   ///< bytes of the value; -1 if its encoding determines the length
  const unsigned char* constant = nullptr;  ///< for DW_FORM_implicit_const, the value in the abbreviation
};

/// The role of a DIE for the reader.
enum class EntryKind : std::uint8_t {
  Other,
  Located,   ///< a variable with a location
  Unplaced,  ///< a variable that is defined, but has no location
  Declared,  ///< the declaration of a variable, or a static member
  Namespace,
  Class,
  Function
};

/// An abbreviation: its attributes and the steps that skip them, as ranges in the table.
struct Abbreviation {
  EntryKind kind = EntryKind::Other;
  bool hasChildren = false;
  bool isDefined = false;
  /// If the children cannot contain a variable or scope: the form of the sibling attribute and its byte offset among
  /// the attributes. Form 0: there is no such attribute, or its offset is not fixed.
  std::uint16_t siblingForm = 0;
  std::uint32_t siblingAt = 0;
  std::uint32_t firstAttribute = 0, endAttribute = 0;
  std::uint32_t firstStep = 0, endStep = 0;
};

/// The value of an attribute in the bytes of a DIE.
struct RawValue {
  std::uint16_t form = 0;  ///< 0: the DIE does not have the attribute
  std::uint16_t name = 0;
  const unsigned char* at = nullptr;
};
/// The attribute values of a DIE by Slot.
class RawEntry {
 public:
  const RawValue& operator[](Slot slot) const { return values_[static_cast<std::size_t>(slot)]; }
  RawValue& operator[](Slot slot) { return values_[static_cast<std::size_t>(slot)]; }

 private:
  std::array<RawValue, slotCount> values_{};
};

/// The abbreviation table of one or more units.
class AbbreviationTable {
 public:
  /// Reads the table of `unit`, up to the first malformed abbreviation.
  explicit AbbreviationTable(const UnitLayout& unit);

  bool isFor(const UnitLayout& unit) const { return unit.abbreviations == begin_ && unit.sizes == sizes_; }
  /// The abbreviation with this code; null when there is none.
  const Abbreviation* find(std::uint64_t code) const {
    if (code < dense_.size()) return dense_[code].isDefined ? &dense_[code] : nullptr;
    const auto found = others_.find(code);
    return found != others_.end() ? &found->second : nullptr;
  }
  /// Moves `cursor` from the attributes of a DIE past them.
  void skip(const Abbreviation& entry, ByteCursor& cursor) const {
    for (std::uint32_t i = entry.firstStep; i != entry.endStep; ++i) {
      cursor.skip(steps_[i].bytes);
      if (steps_[i].form != 0) skipValue(steps_[i].form, cursor);
    }
  }
  /// Reads the attributes of a DIE at `cursor` and moves it past them.
  RawEntry read(const Abbreviation& entry, ByteCursor& cursor) const;

 private:
  // A number of bytes, then a value of variable length (form 0: none).
  struct Step {
    std::uint32_t bytes;
    std::uint32_t form;
  };

  void readAttributes(ByteCursor& cursor, unsigned tag, Abbreviation& entry);
  void noteSibling(Abbreviation& entry) const;
  void addStep(unsigned form, std::uint32_t& bytes);
  void skipValue(unsigned form, ByteCursor& cursor) const;

  const unsigned char* begin_;
  FormSizes sizes_;
  std::vector<Abbreviation> dense_;  // by code
  std::unordered_map<std::uint64_t, Abbreviation> others_;
  std::vector<AbbreviatedAttribute> attributes_;
  std::vector<Step> steps_;
};

/// Caches the two most recently used tables, because consecutive units often share one.
class AbbreviationTables {
 public:
  /// The table of `unit`, valid until the second next call.
  const AbbreviationTable& of(const UnitLayout& unit);

 private:
  std::array<std::unique_ptr<AbbreviationTable>, 2> latest_;
};
