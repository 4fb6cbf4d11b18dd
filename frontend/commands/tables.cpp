// The tables that tolquin.exe reads.
#include <memory>

#include "frontend/commands/commands.h"
#include "frontend/output.h"
#include "frontend/tableMaker.h"

namespace {

struct TablesOptions {
  std::string executable;
  std::string directory;
  bool qualified = false;
  bool quiet = false;
};

void warn(const TablesOptions& options, const std::string& what) {
  printMessage(options.executable + ": warning: " + what);
}

void warnOfAll(const TablesOptions& options, const TableSummary& summary) {
  for (const std::string& warning : summary.warnings) warn(options, warning);
  if (summary.leftOut > 0) {
    warn(options,
         std::to_string(summary.leftOut) +
             " variables left out: the tables cannot hold them, or they have no type, and gdb would answer wrongly");
  }
  if (summary.sharing > 0) {
    warn(options, std::to_string(summary.sharing) + " variables left out: they share the address of another");
  }
}

int makeAll(const TablesOptions& options) {
  const std::string directory = options.directory.empty() ? options.executable + ".vym" : options.directory;
  const TableSummary summary = makeTables(options.executable, directory, options.qualified);
  warnOfAll(options, summary);
  if (options.quiet) return 0;
  Output output;
  output.put(directory + ": " + std::to_string(summary.variables) + " variables, " +
             std::to_string(summary.declarations) + " declarations, " + std::to_string(summary.sizes) +
             " sizes of types\n");
  output.flush();
  return 0;
}

}  // namespace

void addTablesCommand(CLI::App& app, Action& action) {
  auto options = std::make_shared<TablesOptions>();
  CLI::App* tables = app.add_subcommand("tables", "Make the tables that tolquin.exe reads");
  tables->add_option("executable", options->executable, "Executable or shared object, compiled with -g")->required();
  tables->add_option("-o,--output", options->directory, "Directory for the tables; default: <executable>.vym");
  tables->add_flag(
      "--qualified", options->qualified,
      "Leave C++ declarations that need a scope to the debugger, which answers with full names; by default "
      "types are written without scopes");
  tables->footer(
      "Example: tolquin tables ./prog -o prog.vym && DB=prog.vym EXEFILE=./prog tolquin.exe prog.vym ./prog");
  tables->add_flag("--quiet", options->quiet, "Print no summary");
  tables->callback([options, &action] { action = [options] { return makeAll(*options); }; });
}
