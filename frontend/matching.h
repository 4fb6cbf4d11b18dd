// Which variable of one build is which of another: the first step of a comparison.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "frontend/fields.h"

/// Stands for the number of a variable that is not there.
constexpr std::size_t noRow = static_cast<std::size_t>(-1);

/// Finds for each of the variables `before` the one of `after` that belongs to it. Returns the numbers of those within
/// `after`, or noRow. Variables belong together if they have name, file, type, size and section in common; if nothing
/// is left that does, name, file, type and size; name and file; name and type; name and type but for the numbers of
/// elements of arrays. Those that have the same in common are paired in their order. Where there are several programs,
/// variables belong together only within programs whose files are called the same. What one of the builds does not tell
/// of any variable does not count. Files that FilePairs puts together are the same.
std::vector<std::size_t> matchRows(const std::vector<Row>& before, const std::vector<Row>& after);

/// The text of a type without the numbers of elements of its arrays: "char [4][2]" becomes "char [][]". Those within
/// template arguments stay, as they make another type.
std::string withoutBounds(std::string_view type);
