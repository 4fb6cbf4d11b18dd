// Where the bytes of a unit are, and the sizes of what stands in them.
#pragma once

#include <elfutils/libdw.h>

#include <cstdint>
#include <optional>
#include <unordered_map>

#include "debuginfo/byteCursor.h"
#include "debuginfo/sectionBytes.h"

/// Sizes that depend on the header of a unit.
struct FormSizes {
  unsigned version = 0;
  unsigned address = 0;  ///< bytes of an address
  unsigned offset = 0;   ///< bytes of an offset into a section

  bool operator==(const FormSizes&) const = default;
};

struct UnitLayout {
  FormSizes sizes;
  const unsigned char* header = nullptr;  ///< where offsets within the unit count from
  const unsigned char* first = nullptr;   ///< the top entry
  const unsigned char* end = nullptr;
  const unsigned char* abbreviations = nullptr;
  const unsigned char* abbreviationsEnd = nullptr;
  bool bigEndian = false;

  ByteCursor cursor(const unsigned char* from) const { return {from, end, bigEndian}; }
};

/// The bytes of the sections that entries and lines stand in.
struct DebugSections {
  SectionBytes info, types, abbreviations, lines, lineTexts, texts;
};

/// Finds the layouts of units.
class UnitLayouts {
 public:
  /// The layout of the unit with the top entry `top`; empty when its header is damaged.
  std::optional<UnitLayout> of(const Dwarf_Die& top);
  /// The sections of the file that `unit` is in.
  const DebugSections& sections(Dwarf_CU* unit);

 private:
  std::unordered_map<Dwarf*, DebugSections> sections_;
};

/// The bytes that a value of the form `form` takes are skipped. Forms that are not known fail.
void skipForm(unsigned form, const FormSizes& sizes, ByteCursor& cursor);

/// Bytes of a value of the form `form`; -1 when it tells its length itself or is not known.
int formSize(unsigned form, const FormSizes& sizes);
