// The command tables: writes the tables that tolquin.exe reads.
#include <filesystem>
#include <memory>

#include "frontend/commands/commands.h"
#include "frontend/output.h"
#include "frontend/outputFiles.h"
#include "src/suiteFiles.h"
#include "src/userError.h"
#include "suite/tableMaker.h"

namespace {

// The values of the command's options.
struct TablesOptions {
  std::string executable;
  std::string directory;
  bool qualified = false;
  bool quiet = false;
};

void warn(const TablesOptions& options, const std::string& what) {
  printMessage(options.executable + ": warning: " + what);
}

void warnOfAll(const TablesOptions& options, const SuiteTables& tables) {
  for (const std::string& warning : tables.warnings) warn(options, warning);
  if (tables.leftOut > 0) {
    warn(options,
         counted(tables.leftOut, "variable") +
             " left out: not representable in the tables, or of unknown type, and gdb's answer would be wrong or "
             "unreadable");
  }
  if (tables.sharing > 0) {
    warn(options, counted(tables.sharing, "variable") + " left out: another variable has the same address");
  }
}

void write(OutputFiles& files, const std::string& path, const std::string& content, const std::string& executable) {
  std::error_code error;
  if (std::filesystem::equivalent(path, executable, error)) throw UserError(path + ": is the executable");
  files.write(path, content);
}

int makeAll(const TablesOptions& options) {
  const std::string directory = options.directory.empty() ? options.executable + ".vym" : options.directory;
  const SuiteTables tables = makeTables(options.executable, options.qualified);
  makeDirectory(directory);
  OutputFiles files;
  for (const auto& [name, content] : {std::pair(suiteFiles::variables, &tables.variableText),
                                      std::pair(suiteFiles::declarations, &tables.declarationText),
                                      std::pair(suiteFiles::typeSizes, &tables.sizeText)})
    write(files, directory + "/" + name, *content, options.executable);
  files.commit();
  warnOfAll(options, tables);
  if (options.quiet) return 0;
  Output output;
  output.put(directory + ": " + counted(tables.variables, "variable") + ", " +
             counted(tables.declarations, "declaration") + ", " + counted(tables.sizes, "type size") + "\n");
  output.flush();
  return 0;
}

constexpr const char* helpText =
    "Example:\n"
    "  tolquin tables -o prog.vym ./prog && DB=prog.vym EXEFILE=./prog tolquin.exe prog.vym ./prog\n\n"
    "Exit status: 0 on success; 1 if the tables cannot be made (see standard error); 2 for a usage error.";

}  // namespace

void addTablesCommand(CommandLine& line) {
  auto options = std::make_shared<TablesOptions>();
  Command tables = line.add("tables", "Write the tables that tolquin.exe reads", helpText);
  tables.addArgument("EXECUTABLE", options->executable, "Executable or shared object, compiled with -g");
  tables.addOption({"-o,--output", "Directory for the tables; default: EXECUTABLE.vym", "DIRECTORY"},
                   options->directory);
  tables.addFlag("--qualified", options->qualified,
                 "Leave C++ declarations that need a scope to gdb, which answers with\n"
                 "qualified names; by default, types are written without scopes");
  tables.addFlag("--quiet", options->quiet, "Do not print a summary");
  tables.setAction([options] { return [options] { return makeAll(*options); }; });
}
