// The table of changes for people.
#include "frontend/views/changes.h"

namespace {

std::string sentences(const ChangeReport& report) {
  const Comparison& comparison = report.comparison;
  const std::string counts = countsOf(report);
  std::string text = counts.empty() ? "No variable has changed" : counts;
  if (comparison.changes.size() < report.all) {
    text += "; " + withSeparators(comparison.changes.size()) + " of " + counted(report.all, "row") + " shown";
  }
  text += "\n" + bytesOf(comparison) + "\n";
  if (const std::string unsized = unsizedOf(comparison); !unsized.empty()) text += unsized + "\n";
  if (const std::size_t moved = comparison.count(ChangeClass::Moved); report.hasMovesHidden && moved > 0) {
    text += counted(moved, "variable") + " moved to another section (--moves shows them)\n";
  }
  return text;
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
