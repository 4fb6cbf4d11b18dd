// Sums of the bytes of variables, by groups such as files or namespaces.
#pragma once

#include <array>
#include <string_view>
#include <utility>
#include <vector>

#include "frontend/fields.h"

/// A criterion by which variables are grouped.
struct Grouping {
  std::string_view name;  ///< in --by
  std::string_view header;
  Value (*get)(const Row& row);
};

/// All groupings.
extern const std::array<Grouping, 5> groupings;

/// A section and whether it is the one of a thread. Variables of a program share bytes when their addresses overlap in
/// one of these; views/sqlite.cpp says the same in SQL.
using AddressSpace = std::pair<std::string_view, bool>;
AddressSpace addressSpaceOf(const Variable& variable);

/// The variables of one group.
struct Sum {
  Value group;
  std::uint64_t variables = 0;
  std::uint64_t bytes = 0;    ///< bytes that several variables share count once
  std::uint64_t unsized = 0;  ///< variables of unknown size
};

/// The sums of `rows`, in the order in which the groups first appear. The rows of each program must be in the order of
/// its variables.
std::vector<Sum> sumsBy(const Grouping& grouping, const std::vector<Row>& rows);

/// The sum of all `rows`, which must be in that order too.
Sum sumOf(const std::vector<Row>& rows);

/// The fields of a Sum; the first has the name of `grouping`.
std::array<Field<Sum>, 4> sumFields(const Grouping& grouping);

/// The namespace of the variable of `row`. If the input does not tell namespaces from classes: all enclosing scopes,
/// except the function of a function-local static.
std::string_view namespaceOf(const Row& row);
