#include "frontend/views/summary.h"

#include <map>

#include "frontend/sums.h"
#include "frontend/texts.h"

namespace {

constexpr std::string_view bySection = "section";

// Bytes of each section in all listed programs.
using SectionSizes = std::map<std::string_view, std::uint64_t>;

SectionSizes sectionSizes(const std::vector<const Inventory*>& programs) {
  SectionSizes sizes;
  for (const Inventory* program : programs) {
    for (const Section& section : program->sections) sizes[section.name] += section.size;
  }
  return sizes;
}

// Whether variables are expected in the section, so that it is shown even if none are found.
bool holdsData(std::string_view name) {
  return name == ".data" || name == ".bss" || name == ".tdata" || name == ".tbss";
}

std::string percentage(std::uint64_t part, std::uint64_t whole) {
  return std::to_string(static_cast<int>(100.0 * static_cast<double>(part) / static_cast<double>(whole)));
}

const Grouping& sectionGrouping() {
  return *std::find_if(groupings.begin(), groupings.end(), [](const Grouping& g) { return g.name == bySection; });
}

std::string sectionText(const Sum& sum, const SectionSizes* sizes) {
  std::string text = sum.group.known ? shownText(sum.group.text) : "unknown section";
  text += " " + withSeparators(sum.bytes);
  const auto size = sizes != nullptr ? sizes->find(sum.group.text) : SectionSizes::const_iterator();
  if (sizes == nullptr || size == sizes->end() || size->second == 0) return text;
  return text + " of " + withSeparators(size->second) + ", " + percentage(sum.bytes, size->second) + " %";
}

// Adds the sections in which variables are expected but none were found.
void addEmptySections(std::vector<Sum>& sums, const SectionSizes& sizes) {
  for (const auto& [name, size] : sizes) {
    const bool isListed = std::any_of(sums.begin(), sums.end(), [n = name](const Sum& s) { return s.group.text == n; });
    if (!isListed && size > 0 && holdsData(name)) sums.push_back({{true, name}});
  }
}

}  // namespace

void writeSummary(const Summary& summary, const std::vector<Row>& selected, Output& output) {
  const SectionSizes sizes = sectionSizes(summary.programs);
  std::vector<Sum> sums = sumsBy(sectionGrouping(), selected);
  if (summary.isWhole) addEmptySections(sums, sizes);
  std::uint64_t bytes = 0;
  std::uint64_t unsized = 0;
  for (const Sum& sum : sums) {
    bytes += sum.bytes;
    unsized += sum.unsized;
  }
  output.put("\n" + counted(selected.size(), "variable") + ", " + counted(bytes, "byte"));
  if (unsized > 0) output.put(" and " + withSeparators(unsized) + " of unknown size");
  if (summary.shown < summary.rows) {
    output.put("; " + withSeparators(summary.shown) + " of " + counted(summary.rows, "row") + " shown");
  }
  output.put("\n");
  std::string sections;
  for (const Sum& sum : sums) {
    sections += "  " + sectionText(sum, summary.isWhole ? &sizes : nullptr) + "\n";
  }
  output.put(sections);
  if (summary.waste.definitions > 0) {
    output.put(counted(summary.waste.definitions, "name") + " with the same type, file and line at several addresses" +
               "; one variable each would save " + counted(summary.waste.bytes, "byte") + "\n");
  }
  if (summary.programs.size() == 1 && !summary.programs[0]->directory.empty()) {
    output.put("File names are relative to " + shownText(summary.programs[0]->directory) + "\n");
  }
}
