#include "frontend/views/changes.h"

namespace {

constexpr std::string_view arrow = " \u2192 ";

const Variable& latest(const ShownChange& shown) { return *shown.change->latest().variable; }

Value valueOf(std::string_view text) { return {!text.empty(), text}; }

// `transition`, or `text` if it is empty.
Value valueOf(const std::string& transition, std::string_view text) {
  return valueOf(transition.empty() ? text : std::string_view(transition));
}

const Column& columnOf(std::string_view name) { return findField<Row>(variableFields, name); }

// "from → to"; empty unless both are known and differ.
std::string transition(std::string_view from, std::string_view to) {
  if (from.empty() || to.empty() || from == to) return "";
  return std::string(from).append(arrow).append(to);
}

std::string fromTo(std::uint64_t before, std::uint64_t after, const char* unit) {
  return withSeparators(before).append(arrow).append(withSeparators(after)) + unit + " (" +
         textOf(deltaOf(before, after)) + ")";
}

}  // namespace

ShownChange shown(const Change& change) {
  ShownChange result{&change, change.delta ? textOf(*change.delta) : "?", {}, {}};
  if (!change.before || !change.after) return result;
  result.section = transition(change.before->variable->section, change.after->variable->section);
  result.type = transition(change.before->variable->type, change.after->variable->type);
  return result;
}

std::vector<Field<ShownChange>> changeFields(const ChangeReport& report) {
  std::vector<Field<ShownChange>> fields;
  if (report.before.size() > 1 || report.after.size() > 1) {
    fields.push_back({columnOf("executable"),
                      [](const ShownChange& shown) { return valueOf(shown.change->latest().program->executable); }});
  }
  const std::vector<Field<ShownChange>> others{
      {{"change", "Change", Kind::Text, "how it has changed"},
       [](const ShownChange& shown) {
         return Value{true, shown.change->className()};
       }},
      {{"delta", "Delta", Kind::Delta, "by how many bytes"},
       [](const ShownChange& shown) {
         return Value{true, shown.delta};
       }},
      {columnOf("size"),
       [](const ShownChange& shown) {
         return Value{latest(shown).size.has_value(), {}, latest(shown).size.value_or(0)};
       }},
      {columnOf("section"), [](const ShownChange& shown) { return valueOf(shown.section, latest(shown).section); }},
      {columnOf("name"), [](const ShownChange& shown) { return valueOf(latest(shown).name); }},
      {columnOf("type"), [](const ShownChange& shown) { return valueOf(shown.type, latest(shown).type); }},
      {placeField, [](const ShownChange& shown) { return placeField.get(shown.change->latest()); }},
  };
  fields.insert(fields.end(), others.begin(), others.end());
  return fields;
}

std::string textOf(const Delta& delta) {
  if (delta.bytes == 0) return "0";
  return (delta.negative ? "-" : "+") + withSeparators(delta.bytes);
}

std::string countsOf(const ChangeReport& report) {
  std::string text;
  for (std::size_t i = 0; i < changeClassNames.size(); ++i) {
    const std::size_t count = report.comparison.counts[i];
    const bool isMoved = i == static_cast<std::size_t>(ChangeClass::Moved);
    if (count == 0 || (isMoved && report.hasMovesHidden)) continue;
    const bool isType = i == static_cast<std::size_t>(ChangeClass::Type);
    text.append(text.empty() ? "" : ", ").append(withSeparators(count)).append(" ");
    text.append(isType ? "with a different type" : changeClassNames[i]);
  }
  return text;
}

std::string bytesOf(const Comparison& comparison) {
  const Total& before = comparison.before;
  const Total& after = comparison.after;
  return fromTo(before.bytes, after.bytes, " bytes") + ", writable or thread-local " +
         (comparison.saysWritable() ? fromTo(before.mutableBytes, after.mutableBytes, "") : "?");
}

std::string notesOf(const ChangeReport& report, std::string_view end) {
  const Comparison& comparison = report.comparison;
  std::string notes;
  const auto add = [&](const char* what, std::size_t before, std::size_t after) {
    if (before == 0 && after == 0) return;
    notes.append(what).append(": ").append(counted(before, "variable")).append(" before, ");
    notes.append(counted(after, "variable")).append(" now").append(end);
  };
  add("Not counted because a size is unknown", comparison.before.unsized, comparison.after.unsized);
  add("Not known to be writable or constant", comparison.before.undecided, comparison.after.undecided);
  if (const std::size_t moved = comparison.count(ChangeClass::Moved); report.hasMovesHidden && moved > 0) {
    notes += counted(moved, "variable") + " moved to another section (`--moves` shows them)";
    notes += end;
  }
  return notes;
}
