#include "frontend/commands/commandLine.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <sstream>

#include "frontend/output.h"
#include "src/userError.h"

namespace {

// Adds an option that sets `value`.
template <typename Value>
CLI::Option* add(CLI::App& app, const OptionHelp& help, Value& value) {
  CLI::Option* option = app.add_option(help.names, value, help.meaning);
  if (*help.valueName != '\0') option->type_name(help.valueName);
  return option;
}

// Accepts the numbers in `range`. The help text does not show it.
CLI::Validator within(Range range) { return CLI::Range(range.least, range.most).description(""); }

}  // namespace

void Command::addArgument(const char* name, std::string& value, const std::string& meaning) {
  app_.add_option(name, value, meaning)->required()->type_name("");
}

void Command::addArguments(const char* name, std::vector<std::string>& values, const std::string& meaning) {
  app_.add_option(name, values, meaning)->type_name("");
}

void Command::addFlag(const char* names, bool& value, const std::string& meaning) {
  app_.add_flag(names, value, meaning);
}

void Command::addOption(const OptionHelp& help, std::string& value) { add(app_, help, value); }

void Command::addOption(const OptionHelp& help, std::optional<std::string>& value) { add(app_, help, value); }

void Command::addOption(const OptionHelp& help, std::optional<std::int64_t>& value, Range range) {
  add(app_, help, value)->check(within(range));
}

void Command::addOption(const OptionHelp& help, unsigned& value, Range range) {
  add(app_, help, value)->check(within(range))->capture_default_str();
}

void Command::addChoice(const OptionHelp& help, const std::vector<std::string>& words, std::string& value) {
  CLI::Option* option = add(app_, help, value)->check(CLI::IsMember(words));
  if (!value.empty()) option->capture_default_str();
}

void Command::require(const char* option) { app_.get_option(option)->required(); }

void Command::require(const char* option, const char* other) { app_.get_option(option)->needs(app_.get_option(other)); }

void Command::setAction(std::function<Action()> prepare) {
  app_.callback([&action = action_, prepare = std::move(prepare)] { action = prepare(); });
}

CommandLine::CommandLine(const char* version, const char* description, const char* footer)
    : app_(std::make_unique<CLI::App>(description, "tolquin")) {
  app_->set_version_flag("--version", version);
  app_->require_subcommand(1);
  app_->footer(footer);
}

CommandLine::~CommandLine() = default;

Command CommandLine::add(const char* name, const char* description, const std::string& footer) {
  CLI::App* command = app_->add_subcommand(name, description);
  command->footer(footer);
  return {*command, action_};
}

Action CommandLine::parse(std::vector<std::string> words) {
  std::reverse(words.begin(), words.end());  // CLI11 expects them in reverse order
  try {
    app_->parse(words);
  } catch (const CLI::ParseError& error) {
    std::ostringstream text;
    std::ostringstream complaint;
    if (app_->exit(error, text, complaint) != 0) throw UsageError(std::string(error.what()));
    action_ = [help = text.str()] {
      Output output;
      output.put(help);
      output.flush();
      return 0;
    };
  }
  return action_;
}
