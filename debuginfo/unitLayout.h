// Where the bytes of a unit are, and the sizes of attribute values in it.
#pragma once

#include <elfutils/libdw.h>

#include <cstdint>
#include <optional>
#include <unordered_map>

#include "debuginfo/byteCursor.h"
#include "debuginfo/sectionBytes.h"

/// The DWARF version and the sizes that the header of a unit determines.
struct FormSizes {
  unsigned version = 0;
  unsigned address = 0;  ///< bytes of an address
  unsigned offset = 0;   ///< bytes of an offset into a section

  bool operator==(const FormSizes&) const = default;
};

/// The byte ranges of a unit and of its abbreviation table.
struct UnitLayout {
  FormSizes sizes;
  const unsigned char* header = nullptr;  ///< start of the unit, to which offsets are relative
  const unsigned char* first = nullptr;   ///< the top DIE
  const unsigned char* end = nullptr;
  const unsigned char* abbreviations = nullptr;
  const unsigned char* abbreviationsEnd = nullptr;
  bool bigEndian = false;

  ByteCursor cursor(const unsigned char* from) const { return {from, end, bigEndian}; }
};

/// The debug sections that are read directly.
struct DebugSections {
  SectionBytes info, types, abbreviations, lines, lineTexts, texts;
};

/// Finds the layouts of units; caches the sections of each file.
class UnitLayouts {
 public:
  /// The layout of the unit with the top DIE `top`; empty if its header is damaged.
  std::optional<UnitLayout> of(const Dwarf_Die& top);
  /// The sections of the file that contains `unit`.
  const DebugSections& sections(Dwarf_CU* unit);

 private:
  std::unordered_map<Dwarf*, DebugSections> sections_;
};

/// Moves `cursor` past a value of form `form`. An unknown form makes the cursor fail.
void skipForm(unsigned form, const FormSizes& sizes, ByteCursor& cursor);

/// The size in bytes of a value of form `form`; -1 if it varies or the form is unknown.
int formSize(unsigned form, const FormSizes& sizes);
