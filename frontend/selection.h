// Selects and sorts the variables that a command shows.
#pragma once

#include <algorithm>
#include <string>
#include <vector>

#include "frontend/conditions.h"
#include "frontend/fields.h"

/// Which variables of the programs to keep.
struct Selection {
  std::vector<Condition> conditions;
  bool mutableOnly = false;  ///< only writable and thread-local ones
  bool duplicates = false;   ///< only those of which a program has several copies

  /// Whether all variables are kept.
  bool isWhole() const { return conditions.empty() && !mutableOnly && !duplicates; }
};

/// Whether the variable is known to be writable or thread-local.
bool isMutable(const Variable& variable);

/// Whether `selection` keeps the variable of `row`, `duplicates` not considered.
bool isSelected(const Row& row, const Selection& selection);

/// The selected variables of `programs`, in their order.
std::vector<Row> selectRows(const std::vector<const Inventory*>& programs, const Selection& selection);

/// The cost of variables that a program has at several addresses.
struct Waste {
  std::size_t definitions = 0;  ///< number of such variables
  std::uint64_t bytes = 0;      ///< that would be saved by having only one copy of each
};

/// Removes from `rows` all variables except those that have the same name, type, file and line as one at another
/// address in the same program. A variable for which one of these is unknown is removed too.
Waste keepDuplicates(std::vector<Row>& rows);

/// A field to sort by.
template <typename Record>
struct SortKey {
  const Field<Record>* field;
  bool descending;
};

/// Parses `list`, names of `fields` separated by commas; a leading '-' means descending order. Throws UsageError.
template <typename Record>
std::vector<SortKey<Record>> parseSortKeys(std::span<const Field<Record>> fields, std::string_view list) {
  std::vector<SortKey<Record>> keys;
  for (const std::string& word : splitList(list)) {
    const bool descending = word.starts_with('-');
    keys.push_back({&findField(fields, std::string_view(word).substr(descending ? 1 : 0)), descending});
  }
  return keys;
}

/// The order of `a` and `b` by `key`: negative, 0 or positive. Unknown values come last in both directions.
template <typename Record>
int compareByKey(const SortKey<Record>& key, const Value& a, const Value& b) {
  if (!a.known || !b.known) return static_cast<int>(b.known) - static_cast<int>(a.known);
  const int order = compareValues(key.field->kind, a, b);
  return key.descending ? -order : order;
}

/// Sorts `records` by `keys`; records with equal keys keep their order.
template <typename Record>
void sortRecords(std::vector<Record>& records, const std::vector<SortKey<Record>>& keys) {
  if (keys.empty()) return;
  struct Keyed {
    Value first;  // fetched only once, because the records are scattered in memory
    Record record;
  };
  std::vector<Keyed> sorted;
  sorted.reserve(records.size());
  for (const Record& record : records) sorted.push_back({keys[0].field->get(record), record});
  std::stable_sort(sorted.begin(), sorted.end(), [&keys](const Keyed& a, const Keyed& b) {
    int order = compareByKey(keys[0], a.first, b.first);
    for (std::size_t i = 1; order == 0 && i < keys.size(); ++i) {
      order = compareByKey(keys[i], keys[i].field->get(a.record), keys[i].field->get(b.record));
    }
    return order < 0;
  });
  for (std::size_t i = 0; i < records.size(); ++i) records[i] = sorted[i].record;
}
