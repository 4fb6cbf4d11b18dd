// Which variables are shown, and in which order.
#pragma once

#include <algorithm>
#include <string>
#include <vector>

#include "frontend/conditions.h"
#include "frontend/fields.h"

/// What is kept of the variables of all programs.
struct Selection {
  std::vector<Condition> conditions;
  bool mutableOnly = false;  ///< those that the program may change, and thread-local ones
  bool duplicates = false;   ///< those that the program has several times

  /// Whether everything is kept.
  bool isWhole() const { return conditions.empty() && !mutableOnly && !duplicates; }
};

/// Whether the program may change the variable, or each thread has one.
bool isMutable(const Variable& variable);

/// Whether the conditions of `selection` hold for the variable of `row`, duplicates apart.
bool isSelected(const Row& row, const Selection& selection);

/// The selected variables of `programs`, in their order.
std::vector<Row> selectRows(const std::vector<const Inventory*>& programs, const Selection& selection);

/// The variables of one definition that a program has at several addresses, summed up.
struct Waste {
  std::size_t definitions = 0;
  std::uint64_t bytes = 0;  ///< that one of each would spare
};

/// Removes from `rows` all but those that share name, type, file and line with one at another address of the same
/// program. Those of which one of these is not known are removed too.
Waste keepDuplicates(std::vector<Row>& rows);

/// A field to sort by.
template <typename Record>
struct SortKey {
  const Field<Record>* field;
  bool descending;
};

/// The keys in `list`: names of `fields` separated by commas, with '-' in front in descending order. Throws UsageError.
template <typename Record>
std::vector<SortKey<Record>> parseSortKeys(std::span<const Field<Record>> fields, std::string_view list) {
  std::vector<SortKey<Record>> keys;
  for (const std::string& word : splitList(list)) {
    const bool descending = word.starts_with('-');
    keys.push_back({&findField(fields, std::string_view(word).substr(descending ? 1 : 0)), descending});
  }
  return keys;
}

/// How `a` and `b` are ordered by `key`: negative, 0 or positive. What is not known comes last.
template <typename Record>
int compareByKey(const SortKey<Record>& key, const Value& a, const Value& b) {
  if (!a.known || !b.known) return static_cast<int>(b.known) - static_cast<int>(a.known);
  const int order = compareValues(key.field->kind, a, b);
  return key.descending ? -order : order;
}

/// Sorts `records` by `keys`; records that are equal in all of them keep their order.
template <typename Record>
void sortRecords(std::vector<Record>& records, const std::vector<SortKey<Record>>& keys) {
  if (keys.empty()) return;
  struct Keyed {
    Value first;  // got once, as records are far apart in memory
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
