// The command line: the commands and their options. Hides CLI11, which takes longer to compile than a command itself.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace CLI {
class App;
}

/// Runs a command after the command line has been parsed. Returns the exit status of the program. Throws UserError.
using Action = std::function<int()>;

/// The least and the greatest number that an option accepts.
struct Range {
  std::int64_t least = 0;
  std::int64_t most = 0;
};

/// How the help text describes an option.
struct OptionHelp {
  const char* names;  ///< such as "-o,--output"
  std::string meaning;
  const char* valueName = "";  ///< such as "FILE"; empty for the name of the value's type
};

/// A command, to which arguments and options are added. Parsing sets the variables passed here, which must live until
/// then.
class Command {
 public:
  /// For CommandLine::add(). Both references must outlive the parsing.
  Command(CLI::App& app, Action& action) : app_(app), action_(action) {}

  /// An argument that must be given.
  void addArgument(const char* name, std::string& value, const std::string& meaning);

  /// Any number of arguments.
  void addArguments(const char* name, std::vector<std::string>& values, const std::string& meaning);

  void addFlag(const char* names, bool& value, const std::string& meaning);
  void addOption(const OptionHelp& help, std::string& value);
  void addOption(const OptionHelp& help, std::optional<std::string>& value);
  void addOption(const OptionHelp& help, std::optional<std::int64_t>& value, Range range);

  /// As above; the initial `value` is the default, which the help text shows.
  void addOption(const OptionHelp& help, unsigned& value, Range range);

  /// An option whose value is one of `words`; an initial `value` is the default, which the help text shows.
  void addChoice(const OptionHelp& help, const std::vector<std::string>& words, std::string& value);

  /// Refuses a command line without `option`.
  void require(const char* option);

  /// Refuses a command line with `option` but without `other`.
  void require(const char* option, const char* other);

  /// Calls `prepare` if a command line names this command. It checks the options, throwing UsageError, and returns what
  /// is then run.
  void setAction(std::function<Action()> prepare);

 private:
  CLI::App& app_;
  Action& action_;
};

class CommandLine {
 public:
  /// The texts of `--version` and of `--help`, which ends with `footer`.
  CommandLine(const char* version, const char* description, const char* footer);
  ~CommandLine();
  CommandLine(const CommandLine&) = delete;
  CommandLine& operator=(const CommandLine&) = delete;

  /// Adds a command; `footer` ends its help text.
  Command add(const char* name, const char* description, const std::string& footer);

  /// Parses `words`, the arguments of the program. Returns what to run: the command, or the output of a help text.
  /// Throws UsageError.
  Action parse(std::vector<std::string> words);

 private:
  std::unique_ptr<CLI::App> app_;
  Action action_;
};
