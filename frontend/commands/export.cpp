// The command export: writes the variables of programs to an SQLite database.
#include <memory>

#include "frontend/commands/choice.h"
#include "frontend/commands/commands.h"
#include "frontend/views/sqlite.h"
#include "frontend/workers.h"
#include "src/userError.h"

namespace {

// The values of the command's options.
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
  writeDatabase(options.database, programs, chooseRows(programs, selection).rows);
  return results.failed() ? 1 : 0;
}

const char* const helpText =
    "Each program replaces the one with the same path in the database; only the selected\n"
    "variables are kept. Other programs are not changed, nor is one whose input cannot be\n"
    "read. If the export fails or is interrupted, nothing is written. The tables and views\n"
    "are described in database.md in the package's documentation.\n\n"
    "Examples:\n"
    "  tolquin export --sqlite product.db build/bin/*\n"
    "  sqlite3 product.db 'SELECT * FROM bytes_by_file ORDER BY bytes DESC LIMIT 20'\n"
    "  sqlite3 product.db 'SELECT name, executables FROM shared_names'\n\n"
    "Exit status: 0 on success; 1 if an input cannot be read or the database cannot be\n"
    "written (see standard error); 2 for a usage error.";

}  // namespace

void addExportCommand(CommandLine& line) {
  auto options = std::make_shared<ExportOptions>();
  Command command = line.add("export", "Export the variables of programs to a database", helpText);
  command.addOption({"--sqlite", "SQLite database to write; created if it does not exist", "FILE"}, options->database);
  addSelectionOptions(command, options->choice);
  addInputOptions(command, options->choice);
  command.setAction([options] {
    if (options->database.empty()) throw UsageError("--sqlite is required; specify the database file");
    requireInput(options->choice);
    return [options] { return exportTo(*options); };
  });
}
