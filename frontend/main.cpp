// The command line of tolquin: finds the command, runs it, and turns errors into messages and exit statuses.
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <clocale>
#include <csignal>

#include "frontend/commands/commands.h"
#include "frontend/output.h"
#include "frontend/texts.h"
#include "src/processSetup.h"
#include "src/userError.h"

namespace {

constexpr int wrongUse = 2;

const std::vector<std::string_view> commands{"list", "report", "diff", "export", "tables"};

// What to use instead of the removed command `word`; empty for any other word.
std::string replacementOfRemoved(std::string_view word) {
  if (word == "scan") {
    return "the command scan has been removed; use `tolquin list EXECUTABLE...`, or, for the suite's table, `tolquin "
           "tables -o DIR EXECUTABLE`, then `DB=DIR EXEFILE=EXECUTABLE tolquin.exe DIR EXECUTABLE`";
  }
  if (word == "show") return "the command show has been removed; use `tolquin list DIR`";
  return "";
}

bool exists(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0;
}

// Whether the first argument `word` is an input or option of list, so that the command can be omitted.
bool belongsToList(const std::string& word) {
  return word.find('/') != std::string::npos || (word.starts_with('-') && word.size() > 1) || exists(word);
}

std::string joined(const std::vector<std::string_view>& words) {
  std::string text(words[0]);
  for (std::size_t i = 1; i < words.size(); ++i) text.append(i + 1 < words.size() ? ", " : " and ").append(words[i]);
  return text;
}

[[noreturn]] void refuseCommand(const std::string& word) {
  if (const std::string text = replacementOfRemoved(word); !text.empty()) throw UsageError(text);
  const std::string_view near = nearestWord(word, commands);
  throw UsageError(
      "there is no command or file called \"" + word + "\"" +
      (near.empty() ? "; the commands are " + joined(commands) : "; did you mean " + std::string(near) + "?"));
}

// The command line with the command that may be omitted, list, added if necessary.
std::vector<std::string> withCommand(std::vector<std::string> words) {
  if (words.empty()) throw UsageError("no input given; see `tolquin --help`");
  const std::string& first = words[0];
  if (first == "--help" || first == "-h" || first == "--version") return words;
  if (std::find(commands.begin(), commands.end(), first) != commands.end()) return words;
  if (!belongsToList(first)) refuseCommand(first);
  words.insert(words.begin(), "list");
  return words;
}

// All commands of the program.
void addCommands(CommandLine& line) {
  addListCommand(line);
  addReportCommand(line);
  addDiffCommand(line);
  addExportCommand(line);
  addTablesCommand(line);
}

constexpr const char* description =
    "Lists the global variables of C and C++ programs with type, size, section and source location.";

constexpr const char* helpText =
    "Examples:\n"
    "  tolquin ./prog                      list the variables of a program, largest first\n"
    "  tolquin list --mutable --by file ./prog\n"
    "  tolquin report -o prog.html ./prog  the same as an HTML page\n"
    "  tolquin diff old/prog new/prog      show what changed between two builds\n"
    "  tolquin list --help                 show filters and output formats\n"
    "See tolquin(1) for details.";

// Sets up the process: environment, signals, locale and standard descriptors.
void prepare() {
  if (fcntl(STDOUT_FILENO, F_GETFD) < 0) Output::setClosed();
  setUpProcess();
  // A closed output pipe ends the program, even if the caller ignores the signal.
  std::signal(SIGPIPE, SIG_DFL);
  // Names may be in UTF-8 whatever the user's locale is.
  if (std::setlocale(LC_CTYPE, "C.UTF-8") == nullptr) std::setlocale(LC_CTYPE, "");
}

}  // namespace

int main(int argc, char** argv) try {
  prepare();
  CommandLine line("tolquin " TOLQUIN_VERSION, description, helpText);
  addCommands(line);
  return line.parse(withCommand({argv + std::min(argc, 1), argv + argc}))();
} catch (const UsageError& error) {
  printMessage(error.what());
  return wrongUse;
} catch (const std::exception& error) {
  printMessage(error.what());
  return 1;
}
