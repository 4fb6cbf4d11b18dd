// What changed between two builds, as a table or as data, and whether it passes a limit.
#include <cstdlib>
#include <memory>
#include <utility>

#include "frontend/commands/choice.h"
#include "frontend/commands/commands.h"
#include "frontend/comparison.h"
#include "frontend/output.h"
#include "frontend/views/changes.h"
#include "frontend/workers.h"
#include "src/userError.h"

namespace {

constexpr std::size_t defaultMarkdownRows = 50;

struct DiffOptions {
  std::string before;
  std::string after;
  std::string format{"table"};
  std::optional<std::string> growth;
  std::optional<std::int64_t> rows;
  bool moves = false;
  bool allBytes = false;
  bool failOnNewWritable = false;
  Choice choice;
};

// Names and places of variables, not too many for a line.
std::string namesOf(const std::vector<Row>& rows) {
  constexpr std::size_t most = 5;
  std::string names;
  for (std::size_t i = 0; i < std::min(most, rows.size()); ++i) {
    names.append(i > 0 ? ", " : "").append(rows[i].variable->name);
    if (const Value place = placeField.get(rows[i]); place.known) {
      names.append(" (").append(place.text);
      if (place.number > 0) names.append(":").append(std::to_string(place.number));
      names.append(")");
    }
  }
  return rows.size() > most ? names + " and " + std::to_string(rows.size() - most) + " more" : names;
}

// All that can be wrong with the options is found before anything is read.
class Diff {
 public:
  explicit Diff(const DiffOptions& options) : options_(options), selection_(selectionOf(options.choice)) {
    if (options.growth) growthLimit_.emplace(*options.growth, options.allBytes);
  }

  int run() {
    const InputResults results = readInputs({options_.before, options_.after}, options_.choice.reading);
    if (results.failed()) return 1;
    for (const Inventory& program : results.inputs[0].programs) report_.before.push_back(&program);
    for (const Inventory& program : results.inputs[1].programs) report_.after.push_back(&program);
    report_.comparison = compare(report_.before, report_.after, selection_);
    const Comparison& comparison = report_.comparison;
    if (comparison.before.variables + comparison.after.variables == 0 && !selection_.isWhole()) {
      printMessage("no variable is selected");
    }
    if (needsWritable()) warnOfUndecided();
    show();
    return passesLimit() ? limitPassed : 0;
  }

 private:
  // What an input does not say cannot be checked.
  void warnOfUndecided() const {
    const Total* const totals[] = {&report_.comparison.before, &report_.comparison.after};
    const std::string* const inputs[] = {&options_.before, &options_.after};
    for (std::size_t i = 0; i < std::size(totals); ++i) {
      if (totals[i]->undecided == 0) continue;
      if (!totals[i]->saysWritable()) {
        throw UserError(*inputs[i] + ": does not say which variables are writable, so the limit cannot be checked");
      }
      printMessage(*inputs[i] + ": warning: of " + counted(totals[i]->undecided, "variable") +
                   " it is not known whether they are writable; they are not checked");
    }
  }

  bool needsWritable() const { return options_.failOnNewWritable || (growthLimit_ && !options_.allBytes); }

  void show() {
    std::vector<Change>& changes = report_.comparison.changes;
    report_.hasMovesHidden = !options_.moves;
    std::erase_if(changes, [this](const Change& change) { return !isShown(change); });
    report_.all = changes.size();
    if (options_.rows && std::cmp_less(*options_.rows, changes.size())) {
      changes.erase(changes.begin() + *options_.rows, changes.end());
    }
    Output output;
    write(output);
    output.flush();
  }

  bool isShown(const Change& change) const {
    if (options_.format == "github") return change.isGrowth();
    return options_.moves || change.kind != ChangeClass::Moved;
  }

  void write(Output& output) const {
    if (options_.format == "json") return writeChangeJson(report_, output);
    if (options_.format == "markdown") {
      const std::size_t rows = options_.rows ? report_.all : defaultMarkdownRows;
      return writeChangeMarkdown(report_, rows, output);
    }
    if (options_.format == "github") {
      const char* workspace = std::getenv("GITHUB_WORKSPACE");
      return writeAnnotations(report_, workspace != nullptr ? workspace : "", output);
    }
    writeChangeTable(report_, styleOfOutput(), output);
  }

  bool passesLimit() const {
    const Comparison& comparison = report_.comparison;
    const std::string growth = growthLimit_ ? growthLimit_->passedBy(comparison) : "";
    if (!growth.empty()) printMessage("limit passed: " + growth);
    const std::vector<Row>& rows = comparison.newlyMutable;
    const bool hasNew = options_.failOnNewWritable && !rows.empty();
    if (hasNew) {
      printMessage("limit passed: --fail-on-new-writable: " + counted(rows.size(), "variable") +
                   " newly writable or thread-local: " + namesOf(rows));
    }
    return hasNew || !growth.empty();
  }

  const DiffOptions& options_;
  Selection selection_;
  std::optional<GrowthLimit> growthLimit_;
  ChangeReport report_;
};

void addViewOptions(CLI::App& command, DiffOptions& options) {
  command.add_option("--format", options.format, "How to write it")
      ->check(CLI::IsMember({"table", "json", "markdown", "github"}))
      ->capture_default_str();
  addRowsOption(command, options.rows, "Show at most N changes, the largest; default: all, of markdown 50");
  command.add_flag("--moves", options.moves, "Also variables that only moved to another section");
}

void addLimitOptions(CLI::App& command, DiffOptions& options) {
  CLI::Option* growth =
      command
          .add_option("--fail-on-growth", options.growth,
                      "Fail if writable and thread-local variables take more than so many bytes\n(also with K or M), "
                      "or so many percent of OLD, more than in OLD")
          ->type_name("BYTES|N%");
  command.add_flag("--all", options.allBytes, "Count the bytes of all variables for that")->needs(growth);
  command.add_flag("--fail-on-new-writable", options.failOnNewWritable,
                   "Fail if a variable is writable or thread-local that was not, or was not there");
}

constexpr const char* helpText =
    "A variable may change its line or address, and be defined in another file. Conditions\n"
    "are those of list; a variable counts if it fulfils them in OLD or in NEW.\n\n"
    "Examples:\n"
    "  tolquin diff old/prog new/prog\n"
    "  tolquin diff --mutable --where 'file ~ ^src/net/' old/prog new/prog\n"
    "  tolquin diff --fail-on-growth 1% --fail-on-new-writable old.json new/prog\n"
    "  tolquin diff --format markdown old/prog new/prog | gh pr comment --body-file -\n\n"
    "Exit status: 0; 1 when an input failed, with the reason on standard error; 2 for wrong use; 3 when a\n"
    "limit was passed.";

}  // namespace

void addDiffCommand(CLI::App& app, Action& action) {
  auto options = std::make_shared<DiffOptions>();
  CLI::App* command = app.add_subcommand("diff", "Show what changed between two builds");
  command->add_option("OLD", options->before, "The build before: any input that list takes")->required();
  command->add_option("NEW", options->after, "The build now")->required();
  addViewOptions(*command, *options);
  addConditionOptions(*command, options->choice);
  addLimitOptions(*command, *options);
  addJobsOption(*command, options->choice);
  command->footer(helpText);
  command->callback([options, &action] { action = [options] { return Diff(*options).run(); }; });
}
