// The command report: writes the variables of programs as an HTML page.
#include <memory>

#include "frontend/commands/choice.h"
#include "frontend/commands/commands.h"
#include "frontend/outputFiles.h"
#include "frontend/texts.h"
#include "frontend/views/html.h"
#include "frontend/workers.h"
#include "src/userError.h"

namespace {

// The values of the command's options.
struct ReportOptions {
  Choice choice;
  std::string path;
  PageOptions page;
};

std::string titleFor(const std::vector<const Inventory*>& programs) {
  if (programs.size() != 1) return std::to_string(programs.size()) + " programs";
  return std::string(fileName(programs[0]->executable));
}

// What is missing from the page: inputs that could not be read, and warnings.
std::vector<std::string> notesOf(const InputResults& results) {
  std::vector<std::string> notes;
  for (const InputResult& input : results.inputs) {
    if (!input.error.empty()) notes.push_back(input.error);
    for (const Inventory& program : input.programs) {
      for (const std::string& warning : program.warnings) notes.push_back(program.executable + ": " + warning);
    }
  }
  return notes;
}

int makeReport(const ReportOptions& options, const Selection& selection) {
  checkPage(options.path);
  const InputResults results = readInputs(options.choice.inputs, options.choice.reading);
  const std::vector<const Inventory*> programs = results.programs();
  if (programs.empty() && results.failed()) return 1;
  const std::vector<Row> rows = chooseRows(programs, selection).rows;
  PageOptions page = options.page;
  if (page.title.empty()) page.title = titleFor(programs);
  page.notes = notesOf(results);
  page.isWhole = selection.isWhole();
  const std::string html = makePage(programs, rows, page);
  OutputFiles files;
  files.write(options.path, html);
  files.commit();
  return results.failed() ? 1 : 0;
}

constexpr const char* helpText =
    "The page is self-contained; any browser shows it. Conditions are those of `tolquin list --help`.\n\n"
    "Examples:\n"
    "  tolquin report -o prog.html ./prog\n"
    "  tolquin report -o state.html --mutable --title 'Shared state' build/bin/*\n"
    "  tolquin report -o prog.html --source-url 'https://example.org/prog/blob/main/{file}#L{line}' ./prog\n\n"
    "Exit status: 0 on success; 1 if an input cannot be read (see standard error); 2 for a usage error.";

}  // namespace

void addReportCommand(CommandLine& line) {
  auto options = std::make_shared<ReportOptions>();
  Command command = line.add("report", "Make an HTML page with a map and a table of the variables", helpText);
  command.addOption({"-o,--output", "The page to write; an earlier page of this name is replaced", "FILE"},
                    options->path);
  command.require("--output");
  command.addOption({"--title", "Page title; default: the name of the program", "TEXT"}, options->page.title);
  command.addOption(
      {"--source-url",
       "Link source locations to this URL (http, https or vscode), in which\n{file} and {line} are replaced", "URL"},
      options->page.sourceUrl);
  addSelectionOptions(command, options->choice);
  addInputOptions(command, options->choice);
  command.setAction([options] {
    if (options->path.empty()) throw UsageError("--output: the file name is empty");
    requireInput(options->choice);
    if (!options->page.sourceUrl.empty()) checkSourceUrl(options->page.sourceUrl);
    const auto selection = std::make_shared<Selection>(selectionOf(options->choice));
    return [options, selection] { return makeReport(*options, *selection); };
  });
}
