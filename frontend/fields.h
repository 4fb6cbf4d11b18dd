// The fields of a variable: the one table from which the columns of every view, sorting, conditions, help and
// completion come. A new field is a line in it.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "debuginfo/inventory.h"

/// What a field holds, and so how its values are compared and written.
enum class Kind {
  Text,
  Bytes,    ///< a size
  Count,    ///< of things
  Number,   ///< a label, such as that of a line
  Flag,     ///< yes or no
  Address,  ///< written in hexadecimal
  Delta,    ///< a difference of bytes, as text with its sign
  Place     ///< a file and a line, for people
};

/// A value of a field.
struct Value {
  bool known = false;
  std::string_view text{};   ///< of a Text; file of a Place
  std::uint64_t number = 0;  ///< of all the others; 0 or 1 of a Flag; line of a Place, 0 when it is not known
};

/// Whether `a` is less than `b` (negative), equal, or greater (positive). Both are known and of `kind`.
int compareValues(Kind kind, const Value& a, const Value& b);

/// What is said of a field.
struct Column {
  std::string_view name;    ///< as options, CSV and JSON call it
  std::string_view header;  ///< as tables for people call it
  Kind kind;
  std::string_view meaning;  ///< for help
};

/// A column and how to get its value from a Record.
template <typename Record>
struct Field : Column {
  Value (*get)(const Record& record);
  /// How a variable gets it back, for results that are read again; the value's text lives as long as the variable.
  /// False when the value makes no sense. Null: it is no part of the variable itself.
  bool (*set)(Variable& variable, const Value& value) = nullptr;
};

/// A variable and the program that it is part of.
struct Row {
  const Inventory* program;
  const Variable* variable;
};

/// All fields of a variable.
extern const std::array<Field<Row>, 11> variableFields;
/// File and line in one, for tables.
extern const Field<Row> placeField;

/// Throws the UsageError that says that there is no column `name` among `columns`.
[[noreturn]] void refuseColumn(std::string_view name, const std::vector<std::string_view>& columns);

/// The one of `fields` that is called `name`. Throws UsageError when there is none.
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
