// The table of the fields of a variable, from which the columns of every view, sorting, conditions, help and completion
// are derived. CONTRIBUTING.md lists all that adding a field requires.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "debuginfo/inventory.h"

/// The kind of value in a field, which determines how values are compared and written.
enum class Kind {
  Text,
  Bytes,    ///< a size
  Count,    ///< a number of items
  Number,   ///< an ordinal, such as a line number
  Flag,     ///< true or false
  Address,  ///< written in hexadecimal
  Delta,    ///< a difference in bytes, as text with a sign
  Place     ///< a source location: file and line, for tables
};

/// A value of a field.
struct Value {
  bool known = false;
  std::string_view text{};   ///< of a Text or Delta; the file of a Place
  std::uint64_t number = 0;  ///< of all other kinds; 0 or 1 for a Flag; the line of a Place, 0 if unknown
};

/// Negative if `a` is less than `b`, 0 if they are equal, positive if it is greater. Both are known and of `kind`.
int compareValues(Kind kind, const Value& a, const Value& b);

/// The description of a field.
struct Column {
  std::string_view name;    ///< in options, CSV and JSON
  std::string_view header;  ///< in tables
  Kind kind;
  std::string_view meaning;  ///< for help texts
};

/// A column with the function that gets its value from a Record.
template <typename Record>
struct Field : Column {
  Value (*get)(const Record& record);
  /// Sets the field of a variable when results are read back. The text of `value` must outlive the variable. Returns
  /// false when the value is invalid. Null for a field that is not part of the variable itself.
  bool (*set)(Variable& variable, const Value& value) = nullptr;
};

/// A variable and its program.
struct Row {
  const Inventory* program;
  const Variable* variable;
};

/// All fields of a variable.
extern const std::array<Field<Row>, 11> variableFields;
/// File and line in one column, for tables.
extern const Field<Row> placeField;

/// Throws the UsageError for a column `name` that is not among `columns`.
[[noreturn]] void refuseColumn(std::string_view name, const std::vector<std::string_view>& columns);

/// The field of `fields` called `name`. Throws UsageError when there is none.
template <typename Record>
const Field<Record>& findField(std::span<const Field<Record>> fields, std::string_view name) {
  std::vector<std::string_view> names;
  for (const Field<Record>& field : fields) {
    if (field.name == name) return field;
    names.push_back(field.name);
  }
  refuseColumn(name, names);
}

/// `text` split at its commas.
std::vector<std::string> splitList(std::string_view text);
