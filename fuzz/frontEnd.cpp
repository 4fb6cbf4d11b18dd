// Fuzzes what the front end reads apart from programs: the first character of the input selects JSON, a condition, or
// the message of a worker. Whatever was read can be written, is the same when read again, and shows no changes when
// compared with itself.
#include <cstdint>
#include <string>

#include "expect.h"
#include "frontend/comparison.h"
#include "frontend/jsonInput.h"
#include "frontend/packed.h"
#include "frontend/selection.h"
#include "frontend/texts.h"
#include "src/userError.h"

namespace {

// The values of all fields of all variables.
std::string everything(const std::vector<Inventory>& programs) {
  std::string text;
  for (const Inventory& program : programs) {
    text += program.executable + program.buildId + program.directory;
    for (const Variable& variable : program.variables) {
      for (const Field<Row>& field : variableFields) {
        const Value value = field.get({&program, &variable});
        text += value.known ? "+" : "-";
        text.append(value.text).append(std::to_string(value.number));
      }
    }
  }
  return text;
}

void readJson(std::string_view text) {
  const std::vector<Inventory> programs = parseJson("input", text);
  const std::string bytes = packInventories(programs);
  EXPECT(everything(unpackInventories(bytes)) == everything(programs));
  std::vector<const Inventory*> all;
  for (const Inventory& program : programs) all.push_back(&program);
  EXPECT(compare(all, all, {}).changes.empty());
  for (const Inventory& program : programs) {
    for (const Variable& variable : program.variables) {
      EXPECT(!variable.name.empty());
      const std::string shown = shownText(variable.name);
      EXPECT(shownText(shown) == shown && displayWidth(cutEnd(shown, 10)) <= 10 &&
             displayWidth(cutFront(shown, 10)) <= 10);
    }
  }
}

void readCondition(std::string_view text) {
  static const std::vector<Inventory> programs = parseJson("input", R"({"name": "a", "type": "int", "size": 4})");
  for (const Condition& condition : parseConditions(text)) {
    condition.holds({&programs[0], &programs[0].variables[0]});
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) try {
  if (size == 0) return 0;
  const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
  if (data[0] == 'j') readJson(text);
  if (data[0] == 'w' && text.find('\0') == std::string::npos) readCondition(text);
  if (data[0] == 'p') everything(unpackInventories(text));
  return 0;
} catch (const UserError&) {
  return 0;
}
