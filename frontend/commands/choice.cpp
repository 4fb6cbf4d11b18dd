#include "frontend/commands/choice.h"

#include <algorithm>
#include <thread>

#include "frontend/output.h"
#include "src/userError.h"

void addJobsOption(CLI::App& command, Choice& choice) {
  choice.reading.jobs = std::max(1u, std::thread::hardware_concurrency());
  command
      .add_option("-j,--jobs", choice.reading.jobs,
                  "Processes that read: several inputs at a time, or parts of a large one")
      ->check(CLI::Range(1u, 4096u))
      ->type_name("N")
      ->capture_default_str();
}

void addInputOptions(CLI::App& command, Choice& choice) {
  command.add_option("INPUT", choice.inputs,
                     "Executables or shared objects compiled with -g, results that list\nwrote as JSON or JSON "
                     "lines, directories with a result of tolquin.exe");
  addJobsOption(command, choice);
}

void addConditionOptions(CLI::App& command, Choice& choice) {
  command.add_option("--where", choice.where, "Only variables that fulfil conditions")->type_name("CONDITION,...");
  command.add_flag("--mutable", choice.mutableOnly, "Only variables that are writable or thread-local");
  command.add_flag("--artificial", choice.reading.artificial,
                   "Also variables that the compiler made up, such as __func__");
}

void addSelectionOptions(CLI::App& command, Choice& choice) {
  addConditionOptions(command, choice);
  command.add_flag("--duplicates", choice.duplicates,
                   "Only variables of the same name, type, file and line at several addresses");
}

void addRowsOption(CLI::App& command, std::optional<std::int64_t>& rows, const std::string& meaning) {
  command.add_option("-n", rows, meaning)->check(CLI::Range(std::int64_t{0}, std::int64_t{UINT32_MAX}))->type_name("N");
}

void requireInput(const Choice& choice) {
  if (choice.inputs.empty()) throw UsageError("an input is missing: an executable, for instance");
}

Selection selectionOf(const Choice& choice) {
  Selection selection;
  if (!choice.where.empty()) selection.conditions = parseConditions(choice.where);
  selection.mutableOnly = choice.mutableOnly;
  selection.duplicates = choice.duplicates;
  return selection;
}

ChosenRows chooseRows(const std::vector<const Inventory*>& programs, const Selection& selection) {
  ChosenRows chosen{selectRows(programs, selection), {}};
  if (selection.duplicates) chosen.waste = keepDuplicates(chosen.rows);
  if (chosen.rows.empty() && !selection.isWhole()) printMessage("no variable is selected");
  return chosen;
}
