// The front end's command line.
#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <thread>

#include "scan.h"
#include "show.h"
#include "tableMaker.h"
#include "userError.h"

namespace {

struct TablesOptions {
  std::string executable;
  std::string directory;
  bool qualified = false;
  bool quiet = false;
};

void addQualified(CLI::App* command, bool& qualified) {
  command->add_flag(
      "--qualified", qualified,
      "Leave C++ declarations that need a scope to the debugger, which answers with full names; by default "
      "types are written without scopes");
}

void defineTables(CLI::App& app, TablesOptions& options) {
  CLI::App* tables = app.add_subcommand("tables", "Make the tables that tolquin.exe reads");
  tables->add_option("executable", options.executable, "Executable or shared object, compiled with -g")->required();
  tables->add_option("-o,--output", options.directory, "Directory for the tables; default: <executable>.vym");
  addQualified(tables, options.qualified);
  tables->footer(
      "Example: tolquin tables ./prog -o prog.vym && DB=prog.vym EXEFILE=./prog tolquin.exe prog.vym ./prog");
  tables->add_flag("--quiet", options.quiet, "Print no summary");
}

void defineScan(CLI::App& app, ScanOptions& options, bool& noDebugger) {
  CLI::App* command = app.add_subcommand("scan", "Make the tables and run tolquin.exe, for each executable");
  command->add_option("executables", options.executables, "Executables or shared objects, compiled with -g")
      ->required();
  command->add_option("-o,--output", options.outputDirectory,
                      "Directory in which the result directories are made; default: beside each executable");
  options.jobs = std::max(1u, std::thread::hardware_concurrency());
  command->add_option("-j,--jobs", options.jobs, "Executables at a time")->capture_default_str();
  addQualified(command, options.qualified);
  command->add_flag("--gnu-addr2line", options.gnuLocator,
                    "Find places with the system's addr2line, which knows fewer variables and takes long for many");
  command->footer(
      "Examples:\n"
      "  tolquin scan ./prog && tolquin show prog\n"
      "  tolquin scan -o results -j 8 build/bin/*\n"
      "Exit status: 0; 1 when any executable failed, with the reason on standard error.");
  command->add_flag("--no-gdb", noDebugger, "Do not ask gdb for the types that the tables lack");
}

void defineShow(CLI::App& app, ShowOptions& options) {
  CLI::App* command = app.add_subcommand("show", "Show a result table");
  command->add_option("directory", options.directory, "Result directory, or the executable beside it")->required();
  command->add_option("--format", options.format, "table (for people), tsv, csv or json")
      ->check(CLI::IsMember({"table", "tsv", "csv", "json"}))
      ->capture_default_str();
  command->add_option("--columns", options.columns, "Columns to show, separated by commas, in this order")
      ->delimiter(',');
  command->add_option("--sort", options.sort, "Column to sort by; with - in front in descending order (--sort=-Size)");
  command->add_option("--filter", options.filter, "Show only rows with this text in a column");
  command->footer(
      "Columns: GlobalVarKey (Key), VariableName (Name), DataType (Type), DataSize (Size), DRefDataSize (DRef), "
      "TypedefType,\n"
      "StructType, SourceFile (File), LineNbr (Line), LineCount\n\n"
      "Examples:\n"
      "  tolquin show prog.vym --sort=-Size\n"
      "  tolquin show prog --filter buffer.c --columns Name,Type,Line\n"
      "  tolquin show prog.vym --format json | jq '.[] | select(.DataSize > 4096)'");
}

int runTables(const TablesOptions& options) {
  const std::string directory = options.directory.empty() ? options.executable + ".vym" : options.directory;
  const TableSummary summary = makeTables(options.executable, directory, options.qualified);
  for (const std::string& warning : summary.warnings)
    std::fprintf(stderr, "tolquin: %s: warning: %s\n", options.executable.c_str(), warning.c_str());
  if (summary.leftOut > 0) {
    std::fprintf(stderr,
                 "tolquin: %s: warning: %zu variables left out: the tables cannot hold them, or they have no type, and "
                 "gdb would "
                 "answer wrongly\n",
                 options.executable.c_str(), summary.leftOut);
  }
  if (summary.sharing > 0) {
    std::fprintf(stderr, "tolquin: %s: warning: %zu variables left out: they share the address of another\n",
                 options.executable.c_str(), summary.sharing);
  }
  if (!options.quiet) {
    std::printf("%s: %zu variables, %zu declarations, %zu sizes of types\n", directory.c_str(), summary.variables,
                summary.declarations, summary.sizes);
  }
  return 0;
}

// `status`, unless something that was printed has been lost.
int finishOutput(int status) {
  std::cout.flush();
  if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0 || !std::cout)
    throw UserError("the output could not be written");
  return status;
}

}  // namespace

int main(int argc, char** argv) try {
  // Debugging information is looked for on this machine only.
  unsetenv("DEBUGINFOD_URLS");
  // A file that grows too large is an error of its write, which is reported.
  std::signal(SIGXFSZ, SIG_IGN);
  CLI::App app{"Finds type, size and place of definition of every global variable of C and C++ programs.", "tolquin"};
  app.set_version_flag("--version", "tolquin " TOLQUIN_VERSION);
  app.require_subcommand(1);
  app.footer("Example: tolquin scan ./prog && tolquin show prog\nSee `tolquin COMMAND --help`, and the manual page.");
  TablesOptions tables;
  ScanOptions scanning;
  bool noDebugger = false;
  defineTables(app, tables);
  defineScan(app, scanning, noDebugger);
  ShowOptions showing;
  defineShow(app, showing);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    constexpr int wrongUse = 2;
    return app.exit(error) == 0 ? finishOutput(0) : wrongUse;
  }
  if (app.got_subcommand("tables")) return finishOutput(runTables(tables));
  if (app.got_subcommand("show")) {
    show(showing);
    return finishOutput(0);
  }
  scanning.useDebugger = !noDebugger;
  scanning.self = std::filesystem::read_symlink("/proc/self/exe");
  return finishOutput(scan(scanning));
} catch (const UsageError& error) {
  std::fprintf(stderr, "tolquin: %s\n", error.what());
  return 2;
} catch (const std::exception& error) {
  std::fprintf(stderr, "tolquin: %s\n", error.what());
  return 1;
}
