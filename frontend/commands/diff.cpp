// The command diff: shows what changed between two builds and checks limits on growth.
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

// The values of the command's options.
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

// The names and source locations of the first few of `rows`.
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

// Runs diff. The constructor checks all options, so that errors in them are reported before anything is read.
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
      printMessage("no variables selected");
    }
    if (needsWritable()) warnOfUndecided();
    show();
    return exceedsLimit() ? limitExceeded : 0;
  }

 private:
  // Warns about variables that may or may not be writable. Throws UserError if that holds for all of an input.
  void warnOfUndecided() const {
    const Total* const totals[] = {&report_.comparison.before, &report_.comparison.after};
    const std::string* const inputs[] = {&options_.before, &options_.after};
    for (std::size_t i = 0; i < std::size(totals); ++i) {
      if (totals[i]->undecided == 0) continue;
      if (!totals[i]->saysWritable()) {
        throw UserError(*inputs[i] + ": does not say which variables are writable, so the limit cannot be checked");
      }
      printMessage(*inputs[i] + ": warning: " + counted(totals[i]->undecided, "variable") +
                   " not checked: unknown whether writable");
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

  bool exceedsLimit() const {
    const Comparison& comparison = report_.comparison;
    const std::string growth = growthLimit_ ? growthLimit_->excess(comparison) : "";
    if (!growth.empty()) printMessage("limit exceeded: " + growth);
    const std::vector<Row>& rows = comparison.newlyMutable;
    const bool hasNew = options_.failOnNewWritable && !rows.empty();
    if (hasNew) {
      printMessage("limit exceeded: --fail-on-new-writable: " + counted(rows.size(), "variable") +
                   " newly writable or thread-local: " + namesOf(rows));
    }
    return hasNew || !growth.empty();
  }

  const DiffOptions& options_;
  Selection selection_;
  std::optional<GrowthLimit> growthLimit_;
  ChangeReport report_;
};

void addViewOptions(Command& command, DiffOptions& options) {
  command.addChoice({"--format", "Output format"}, {"table", "json", "markdown", "github"}, options.format);
  addRowsOption(command, options.rows, "Show only the N largest changes; default: all, in markdown 50");
  command.addFlag("--moves", options.moves, "Also show variables that only moved to another section");
}

void addLimitOptions(Command& command, DiffOptions& options) {
  command.addOption({"--fail-on-growth",
                     "Fail if writable and thread-local variables together grow by more than\nthis number of bytes "
                     "(also with K or M) or this percentage of OLD",
                     "BYTES|N%"},
                    options.growth);
  command.addFlag("--all", options.allBytes, "With --fail-on-growth, count all variables");
  command.require("--all", "--fail-on-growth");
  command.addFlag("--fail-on-new-writable", options.failOnNewWritable,
                  "Fail if a writable or thread-local variable is new, or was neither before");
}

constexpr const char* helpText =
    "A variable is recognized even if its line or address has changed, or it has moved to\n"
    "another file. Conditions are those of list; a variable counts if it meets them in OLD\n"
    "or in NEW.\n\n"
    "Examples:\n"
    "  tolquin diff old/prog new/prog\n"
    "  tolquin diff --mutable --where 'file ~ ^src/net/' old/prog new/prog\n"
    "  tolquin diff --fail-on-growth 1% --fail-on-new-writable old.json new/prog\n"
    "  tolquin diff --format markdown old/prog new/prog | gh pr comment --body-file -\n\n"
    "Exit status: 0 on success; 1 if an input cannot be read (see standard error); 2 for a\n"
    "usage error; 3 if a limit is exceeded.";

}  // namespace

void addDiffCommand(CommandLine& line) {
  auto options = std::make_shared<DiffOptions>();
  Command command = line.add("diff", "Show what changed between two builds", helpText);
  command.addArgument("OLD", options->before, "The old build: any input that list accepts");
  command.addArgument("NEW", options->after, "The new build");
  addViewOptions(command, *options);
  addConditionOptions(command, options->choice);
  addLimitOptions(command, *options);
  addJobsOption(command, options->choice);
  command.setAction([options] { return [options] { return Diff(*options).run(); }; });
}
