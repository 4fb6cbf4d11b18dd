// Writes changes as a JSON document. Used by `diff`.
#include "frontend/views/changes.h"
#include "frontend/views/json.h"

namespace {

void putPrograms(std::string_view key, const std::vector<const Inventory*>& programs, Output& output) {
  output.put(key);
  for (std::size_t i = 0; i < programs.size(); ++i) {
    output.put(i > 0 ? ",\n" : "\n");
    putJson(*programs[i], output);
  }
  output.put("\n]");
}

void putTotal(std::string_view key, const Total& total, bool saysWritable, Output& output) {
  output.put(key);
  output.put(R"({"variables": )");
  output.putNumber(total.variables);
  output.put(R"(, "bytes": )");
  output.putNumber(total.bytes);
  output.put(R"(, "mutable_bytes": )");
  if (saysWritable) {
    output.putNumber(total.mutableBytes);
  } else {
    output.put("null");
  }
  output.put(R"(, "unsized": )");
  output.putNumber(total.unsized);
  output.put('}');
}

void putDelta(std::string_view key, const std::optional<Delta>& delta, Output& output) {
  output.put(key);
  if (!delta) return output.put("null");
  if (delta->negative) output.put('-');
  output.putNumber(delta->bytes);
}

void putTotals(const Comparison& comparison, Output& output) {
  const Total& before = comparison.before;
  const Total& after = comparison.after;
  const bool saysWritable = comparison.saysWritable();
  putTotal(R"("total": {"old": )", before, saysWritable, output);
  putTotal(R"(, "new": )", after, saysWritable, output);
  putDelta(",\n\"delta\": ", deltaOf(before.bytes, after.bytes), output);
  std::optional<Delta> mutableDelta;
  if (saysWritable) mutableDelta = deltaOf(before.mutableBytes, after.mutableBytes);
  putDelta(R"(, "mutable_delta": )", mutableDelta, output);
  for (std::size_t i = 0; i < changeClassNames.size(); ++i) {
    output.put(R"(, ")");
    output.put(changeClassNames[i]);
    output.put(R"(": )");
    output.putNumber(comparison.counts[i]);
  }
  output.put('}');
}

void putVariable(std::string_view key, const std::optional<Row>& row, Output& output) {
  output.put(key);
  if (!row) return output.put("null");
  putJson(*row, output);
}

void putChange(const Change& change, Output& output) {
  output.put(R"({"class": ")");
  output.put(change.className());
  putDelta(R"(", "delta": )", change.delta, output);
  putVariable(R"(, "old": )", change.before, output);
  putVariable(R"(, "new": )", change.after, output);
  output.put('}');
}

}  // namespace

void writeChangeJson(const ChangeReport& report, Output& output) {
  output.put(R"({"schema": 1, )");
  putPrograms(R"("old": [)", report.before, output);
  putPrograms(R"(, "new": [)", report.after, output);
  output.put(",\n");
  putTotals(report.comparison, output);
  output.put(",\n\"changes\": [");
  for (std::size_t i = 0; i < report.comparison.changes.size(); ++i) {
    output.put(i > 0 ? ",\n" : "\n");
    putChange(report.comparison.changes[i], output);
  }
  output.put("\n]}\n");
}
