// The front end's command line.
#include <fcntl.h>
#include <sys/stat.h>

#include <CLI/CLI.hpp>
#include <clocale>
#include <csignal>
#include <cstdlib>
#include <sstream>

#include "frontend/commands/commands.h"
#include "frontend/output.h"
#include "frontend/texts.h"
#include "src/io.h"
#include "src/userError.h"

namespace {

constexpr int wrongUse = 2;

const std::vector<std::string_view> commands{"list", "report", "diff", "export", "tables"};

// The text for a command that was there once; empty for any other word.
std::string formerCommand(std::string_view word) {
  if (word == "scan") {
    return "there is no scan any more: `tolquin list EXECUTABLE...` shows the variables at once; for the table of the "
           "suite "
           "run `tolquin tables -o DIR EXECUTABLE`, then `DB=DIR EXEFILE=EXECUTABLE tolquin.exe DIR EXECUTABLE`";
  }
  if (word == "show") return "there is no show any more: `tolquin list DIR` shows the result in a directory";
  return "";
}

bool exists(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0;
}

// Whether the first argument is an input or option of list.
bool isOfList(const std::string& word) {
  return word.find('/') != std::string::npos || (word.starts_with('-') && word.size() > 1) || exists(word);
}

std::string joined(const std::vector<std::string_view>& words) {
  std::string text(words[0]);
  for (std::size_t i = 1; i < words.size(); ++i) text.append(i + 1 < words.size() ? ", " : " and ").append(words[i]);
  return text;
}

[[noreturn]] void refuseCommand(const std::string& word) {
  if (const std::string text = formerCommand(word); !text.empty()) throw UsageError(text);
  const std::string_view near = nearestWord(word, commands);
  throw UsageError(
      "there is neither a command nor a file called \"" + word + "\"" +
      (near.empty() ? "; the commands are " + joined(commands) : "; did you mean " + std::string(near) + "?"));
}

// The command line with its command spelled out.
std::vector<std::string> spelledOut(std::vector<std::string> words) {
  if (words.empty()) throw UsageError("an input is missing; see `tolquin --help`");
  const std::string& first = words[0];
  if (first == "--help" || first == "-h" || first == "--version") return words;
  if (std::find(commands.begin(), commands.end(), first) != commands.end()) return words;
  if (!isOfList(first)) refuseCommand(first);
  words.insert(words.begin(), "list");
  return words;
}

// Reads the command line. Returns what is to be done.
Action parse(CLI::App& app, std::vector<std::string> words) {
  Action action;
  app.set_version_flag("--version", "tolquin " TOLQUIN_VERSION);
  app.require_subcommand(1);
  app.footer(
      "Examples:\n"
      "  tolquin ./prog                      the variables of a program, the largest first\n"
      "  tolquin list --mutable --by file ./prog\n"
      "  tolquin report -o prog.html ./prog  the same as a page to look at\n"
      "  tolquin diff old/prog new/prog      what changed between two builds\n"
      "  tolquin list --help                 what can be selected and how it can be written\n"
      "See also the manual page.");
  addListCommand(app, action);
  addReportCommand(app, action);
  addDiffCommand(app, action);
  addExportCommand(app, action);
  addTablesCommand(app, action);
  std::reverse(words.begin(), words.end());  // as CLI11 takes them
  try {
    app.parse(words);
  } catch (const CLI::ParseError& error) {
    std::ostringstream text;
    std::ostringstream complaint;
    if (app.exit(error, text, complaint) != 0) throw UsageError(std::string(error.what()));
    action = [help = text.str()] {
      Output output;
      output.put(help);
      output.flush();
      return 0;
    };
  }
  return action;
}

// What the program takes for granted of its surroundings.
void prepare() {
  // Debugging information is looked for on this machine only.
  unsetenv("DEBUGINFOD_URLS");
  // A file that grows too large is an error of its write, which is reported; a reader that goes away ends the program.
  std::signal(SIGXFSZ, SIG_IGN);
  std::signal(SIGPIPE, SIG_DFL);
  // Names may be in UTF-8, whatever the user's language.
  if (std::setlocale(LC_CTYPE, "C.UTF-8") == nullptr) std::setlocale(LC_CTYPE, "");
  if (fcntl(STDOUT_FILENO, F_GETFD) < 0) Output::setClosed();
  ensureStandardDescriptorsOpen();
}

}  // namespace

int main(int argc, char** argv) try {
  prepare();
  CLI::App app{"Lists the global variables of C and C++ programs with type, size, section and place.", "tolquin"};
  return parse(app, spelledOut({argv + std::min(argc, 1), argv + argc}))();
} catch (const UsageError& error) {
  printMessage(error.what());
  return wrongUse;
} catch (const std::exception& error) {
  printMessage(error.what());
  return 1;
}
