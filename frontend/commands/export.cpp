// The variables of programs in a database.
#include <memory>

#include "frontend/commands/choice.h"
#include "frontend/commands/commands.h"
#include "frontend/output.h"
#include "frontend/views/sqlite.h"
#include "frontend/workers.h"
#include "src/userError.h"

namespace {

struct ExportOptions {
  Choice choice;
  std::string database;
};

int exportTo(const ExportOptions& options) {
  const Selection selection = selectionOf(options.choice);
  checkDatabase(options.database);
  const InputResults results = readInputs(options.choice.inputs, options.choice.reading);
  const std::vector<const Inventory*> programs = results.programs();
  if (programs.empty()) return 1;
  std::vector<Row> rows = selectRows(programs, selection);
  if (selection.duplicates) keepDuplicates(rows);
  if (rows.empty() && !selection.isWhole()) printMessage("no variable is selected");
  writeDatabase(options.database, programs, rows);
  return results.failed() ? 1 : 0;
}

const char* const helpText =
    "Each program replaces the one of the same path, as it has been selected now; the\n"
    "others stay. All is written or, when the export is interrupted or fails, nothing.\n"
    "An input that fails leaves what the database has of it. Tables and views are\n"
    "described in docs/database.md.\n\n"
    "Examples:\n"
    "  tolquin export --sqlite product.db build/bin/*\n"
    "  sqlite3 product.db 'SELECT * FROM bytes_by_file ORDER BY bytes DESC LIMIT 20'\n"
    "  sqlite3 product.db 'SELECT name, executables FROM shared_names'\n\n"
    "Exit status: 0; 1 when an input or the database failed, with the reason on standard\n"
    "error; 2 for wrong use.";

}  // namespace

void addExportCommand(CLI::App& app, Action& action) {
  auto options = std::make_shared<ExportOptions>();
  CLI::App* command = app.add_subcommand("export", "Put the variables of programs into a database");
  command->add_option("--sqlite", options->database, "Database of SQLite, which is made if it is missing")
      ->type_name("FILE");
  addSelectionOptions(*command, options->choice);
  addInputOptions(*command, options->choice);
  command->footer(helpText);
  command->callback([options, &action] {
    if (options->database.empty()) throw UsageError("--sqlite FILE is missing: the database to write");
    requireInput(options->choice);
    action = [options] { return exportTo(*options); };
  });
}
