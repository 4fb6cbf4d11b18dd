#include "frontend/commands/choice.h"

#include <algorithm>
#include <thread>

#include "src/userError.h"

void addInputOptions(CLI::App& command, Choice& choice) {
  command.add_option("INPUT", choice.inputs,
                     "Executables or shared objects compiled with -g, results that list\nwrote as JSON or JSON "
                     "lines, directories with a result of tolquin.exe");
  choice.reading.jobs = std::max(1u, std::thread::hardware_concurrency());
  command
      .add_option("-j,--jobs", choice.reading.jobs,
                  "Processes that read: several inputs at a time, or parts of a large one")
      ->check(CLI::Range(1u, 4096u))
      ->type_name("N")
      ->capture_default_str();
}

void addSelectionOptions(CLI::App& command, Choice& choice) {
  command.add_option("--where", choice.where, "Only variables that fulfil conditions (see below)")
      ->type_name("CONDITION,...");
  command.add_flag("--mutable", choice.mutableOnly, "Only variables that are writable or thread-local");
  command.add_flag("--duplicates", choice.duplicates,
                   "Only variables of the same name, type, file and line at several addresses");
  command.add_flag("--artificial", choice.reading.artificial,
                   "Also variables that the compiler made up, such as __func__");
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
