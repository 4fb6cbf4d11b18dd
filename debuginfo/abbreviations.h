// The abbreviations of a unit: which attributes the entries of each kind have. Prepared so that entries which say
// nothing of variables are passed over quickly.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <unordered_map>
#include <vector>

#include "debuginfo/unitLayout.h"

/// The attributes of variables that are read.
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

/// An attribute as its abbreviation describes it.
struct AbbreviatedAttribute {
  std::uint16_t name = 0;
  std::uint16_t form = 0;
  Slot slot = Slot::None;
  std::int16_t size = -1;                   ///< bytes of the value; -1 when it tells its length itself
  const unsigned char* constant = nullptr;  ///< the value, if it stands here for all entries
};

/// What an entry can be of use for.
enum class EntryKind : std::uint8_t {
  Other,
  Located,   ///< a variable with a location
  Unplaced,  ///< a variable that is defined, but without one
  Declared,  ///< the declaration of a variable, or a static member
  Namespace,
  Class,
  Function
};

struct Abbreviation {
  EntryKind kind = EntryKind::Other;
  bool hasChildren = false;
  bool known = false;
  /// If what is within cannot hold a variable or scope: the bytes of attributes before that which tells the sibling,
  /// and its form. Form 0: there is none, or it is not at a fixed place.
  std::uint16_t siblingForm = 0;
  std::uint32_t siblingAt = 0;
  std::uint32_t firstAttribute = 0, endAttribute = 0;
  std::uint32_t firstStep = 0, endStep = 0;
};

/// A value of an attribute in the bytes of an entry.
struct RawValue {
  std::uint16_t form = 0;  ///< 0: the entry has no such attribute
  std::uint16_t name = 0;
  const unsigned char* at = nullptr;
};
/// The values of an entry by Slot.
class RawEntry {
 public:
  const RawValue& operator[](Slot slot) const { return values_[static_cast<std::size_t>(slot)]; }
  RawValue& operator[](Slot slot) { return values_[static_cast<std::size_t>(slot)]; }

 private:
  std::array<RawValue, slotCount> values_{};
};

class AbbreviationTable {
 public:
  /// Reads the table of a unit, as far as it can be read.
  explicit AbbreviationTable(const UnitLayout& unit);

  bool isFor(const UnitLayout& unit) const { return unit.abbreviations == begin_ && unit.sizes == sizes_; }
  /// The abbreviation with this code; null when there is none.
  const Abbreviation* find(std::uint64_t code) const {
    if (code < dense_.size()) return dense_[code].known ? &dense_[code] : nullptr;
    const auto found = others_.find(code);
    return found != others_.end() ? &found->second : nullptr;
  }
  /// Moves `cursor` from the attributes of an entry to what follows them.
  void skip(const Abbreviation& entry, ByteCursor& cursor) const {
    for (std::uint32_t i = entry.firstStep; i != entry.endStep; ++i) {
      cursor.skip(steps_[i].bytes);
      if (steps_[i].form != 0) skipValue(steps_[i].form, cursor);
    }
  }
  /// Reads the values of an entry whose attributes begin at `cursor`, which is moved behind them.
  RawEntry read(const Abbreviation& entry, ByteCursor& cursor) const;

 private:
  // So many bytes, then a value that tells its length itself (form 0: none).
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

/// The tables that were used last.
class AbbreviationTables {
 public:
  /// The table of `unit`, valid until the next call but one.
  const AbbreviationTable& of(const UnitLayout& unit);

 private:
  std::array<std::unique_ptr<AbbreviationTable>, 2> latest_;
};
