// What the script of the page reads: the rows as columns, each a dictionary and the numbers of the rows' values in it.
#pragma once

#include <string>
#include <vector>

#include "frontend/views/html.h"

/// The data of a page, before it is deflated: the length of a description in JSON; the description; for each of its
/// "fields", then for where the rows begin when those that share bytes overlap, the length of the dictionary, the
/// dictionary, and a number for each row. A dictionary holds the known values in ascending order, a line each; of
/// numbers, the differences. A row's number is that of its value, from 1 (0: not known), as the difference from the row
/// before: 2n for n, 2n - 1 for -n. Lengths and numbers have seven bits a byte, the lowest first, the top bit set in
/// all but the last.
std::string pageData(const std::vector<const Inventory*>& programs, const std::vector<Row>& rows,
                     const PageOptions& options);
