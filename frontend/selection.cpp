#include "frontend/selection.h"

#include <tuple>

namespace {

// A row and its index among all rows.
struct Numbered {
  Row row;
  std::size_t number;
};

auto definitionOf(const Row& row) {
  const Variable& variable = *row.variable;
  return std::tie(row.program, variable.name, variable.file, variable.line, variable.type);
}

bool hasDefinition(const Row& row) {
  const Variable& variable = *row.variable;
  return variable.address && variable.line > 0 && !variable.file.empty() && !variable.type.empty();
}

// The rows whose definition is fully known, sorted by definition, then by address.
std::vector<Numbered> rowsByDefinition(const std::vector<Row>& rows) {
  std::vector<Numbered> sorted;
  for (std::size_t i = 0; i < rows.size(); ++i) {
    if (hasDefinition(rows[i])) sorted.push_back({rows[i], i});
  }
  std::stable_sort(sorted.begin(), sorted.end(), [](const Numbered& a, const Numbered& b) {
    return std::tuple(definitionOf(a.row), a.row.variable->address) <
           std::tuple(definitionOf(b.row), b.row.variable->address);
  });
  return sorted;
}

}  // namespace

bool isMutable(const Variable& variable) {
  return variable.writable.value_or(false) || variable.threadLocal.value_or(false);
}

bool isSelected(const Row& row, const Selection& selection) {
  if (selection.mutableOnly && !isMutable(*row.variable)) return false;
  const auto holds = [&row](const Condition& condition) { return condition.holds(row); };
  return std::all_of(selection.conditions.begin(), selection.conditions.end(), holds);
}

std::vector<Row> selectRows(const std::vector<const Inventory*>& programs, const Selection& selection) {
  std::vector<Row> rows;
  for (const Inventory* program : programs) {
    for (const Variable& variable : program->variables) {
      const Row row{program, &variable};
      if (isSelected(row, selection)) rows.push_back(row);
    }
  }
  return rows;
}

Waste keepDuplicates(std::vector<Row>& rows) {
  Waste waste;
  std::vector<bool> kept(rows.size());
  const std::vector<Numbered> sorted = rowsByDefinition(rows);
  for (auto begin = sorted.begin(), end = begin; begin != sorted.end(); begin = end) {
    end = std::find_if(begin, sorted.end(),
                       [&](const Numbered& other) { return definitionOf(other.row) != definitionOf(begin->row); });
    if (begin->row.variable->address == std::prev(end)->row.variable->address) continue;
    ++waste.definitions;
    for (auto at = begin; at != end; ++at) {
      kept[at->number] = true;
      const bool isAnother = at != begin && at->row.variable->address != std::prev(at)->row.variable->address;
      if (isAnother) waste.bytes += at->row.variable->size.value_or(0);
    }
  }
  std::size_t number = 0;
  std::erase_if(rows, [&](const Row&) { return !kept[number++]; });
  return waste;
}
