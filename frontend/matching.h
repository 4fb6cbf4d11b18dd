// Pairs the variables of two builds: the first step of a comparison.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "frontend/fields.h"

/// In place of an index: no such variable.
constexpr std::size_t noRow = static_cast<std::size_t>(-1);

/// Finds the counterpart in `after` of each variable in `before`. Returns its index in `after`, or noRow. Variables
/// with the same name, file, type, size and section are paired first; then those with the same name, file, type and
/// size; name and file; name and type; and finally name and type regardless of array bounds. Variables with equal keys
/// are paired in order. Names are compared without the numbers of lambdas and unnamed types. If there are several
/// programs, only variables of programs with the same file name are paired. A field that one of the builds does not
/// know for any variable is ignored. Files that FilePairs pairs are the same file.
std::vector<std::size_t> matchRows(const std::vector<Row>& before, const std::vector<Row>& after);

/// The text of a type without its array bounds: "char [4][2]" becomes "char [][]". Bounds within template arguments
/// stay, because they make a different type.
std::string withoutBounds(std::string_view type);

/// The name of a variable without the numbers by which compilers tell lambdas and unnamed types apart, which change
/// when another one is added before: "$_1::operator()::n" becomes "$_::operator()::n".
std::string withoutCounters(std::string_view name);
