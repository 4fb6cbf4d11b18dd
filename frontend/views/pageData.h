// The data that the script of the page reads: the rows as dictionary-encoded columns.
#pragma once

#include <string>
#include <vector>

#include "frontend/views/html.h"

/// The data of a page, before it is deflated: the length of a description in JSON; the description; and a column for
/// each of its "fields", then one for the offsets of the rows in a layout where only rows that share bytes overlap. A
/// column is the length of its dictionary, the dictionary, and a number for each row. The dictionary has the known
/// values in ascending order, one per line; for numbers, the differences between them. The number of a row is that of
/// its value, from 1 (0: unknown), encoded as the difference from the previous row: 2n for n, 2n - 1 for -n. Lengths
/// and numbers are in LEB128.
std::string pageData(const std::vector<const Inventory*>& programs, const std::vector<Row>& rows,
                     const PageOptions& options);
