// Writes changes as a table with a summary. Used by `diff`.
#include "frontend/views/changes.h"

namespace {

std::string sentences(const ChangeReport& report) {
  const Comparison& comparison = report.comparison;
  const std::string counts = countsOf(report);
  std::string text = counts.empty() ? "No variables have changed" : counts;
  if (comparison.changes.size() < report.all) {
    text += "; " + withSeparators(comparison.changes.size()) + " of " + counted(report.all, "row") + " shown";
  }
  return text + "\n" + bytesOf(comparison) + "\n" + notesOf(report, "\n");
}

}  // namespace

void writeChangeTable(const ChangeReport& report, const TableStyle& style, Output& output) {
  std::vector<ShownChange> rows;
  rows.reserve(report.comparison.changes.size());
  for (const Change& change : report.comparison.changes) rows.push_back(shown(change));
  const std::vector<Field<ShownChange>> fields = changeFields(report);
  if (!rows.empty()) {
    writeTable(RecordListing<ShownChange>(rows, fields), style, output);
    output.put('\n');
  }
  output.put(sentences(report));
}
