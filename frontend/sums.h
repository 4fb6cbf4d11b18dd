// Bytes of variables, summed up by what they have in common.
#pragma once

#include <array>
#include <string_view>
#include <utility>
#include <vector>

#include "frontend/fields.h"

/// What variables are put together by.
struct Grouping {
  std::string_view name;  ///< as --by takes it
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
  std::uint64_t bytes = 0;    ///< those that several variables share counted once
  std::uint64_t unsized = 0;  ///< variables whose size is not known
};

/// The sums of `rows`, in the order of the first variable of each group. The rows of a program are in the order of its
/// variables.
std::vector<Sum> sumsBy(const Grouping& grouping, const std::vector<Row>& rows);

/// The sum of all `rows`, which are in the same order.
Sum sumOf(const std::vector<Row>& rows);

/// The fields of a Sum; the first is named as `grouping`.
std::array<Field<Sum>, 4> sumFields(const Grouping& grouping);

/// The name of the namespace that holds the variable of `row`. Where the input does not say what in the name is a
/// namespace: what comes before its own name, classes too, but of a static of a function not that function.
std::string_view namespaceOf(const Row& row);
