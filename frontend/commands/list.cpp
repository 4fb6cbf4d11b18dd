// The command list: shows the variables of programs, their sums, or the budgets that they exceed.
#include <unistd.h>

#include <memory>
#include <utility>

#include "frontend/budgets.h"
#include "frontend/commands/choice.h"
#include "frontend/commands/commands.h"
#include "frontend/output.h"
#include "frontend/sums.h"
#include "frontend/views/csv.h"
#include "frontend/views/json.h"
#include "frontend/views/summary.h"
#include "frontend/views/table.h"
#include "frontend/workers.h"
#include "src/userError.h"

namespace {

constexpr std::string_view tableFormat = "table";

// The values of the command's options.
struct ListOptions {
  Choice choice;
  std::string format{tableFormat};
  std::optional<std::string> columns;
  std::optional<std::string> sort;
  std::string by;
  std::optional<std::string> check;
  std::optional<std::int64_t> rows;
  bool explainColumns = false;
};

std::vector<Field<Row>> fieldsNamed(std::string_view list) {
  std::vector<Field<Row>> chosen;
  for (const std::string& name : splitList(list)) chosen.push_back(findField<Row>(variableFields, name));
  return chosen;
}

// Runs list. The constructor checks all options, so that errors in them are reported before anything is read.
class List {
 public:
  explicit List(const ListOptions& options)
      : options_(options), forTerminal_(isatty(STDOUT_FILENO) != 0), selection_(selectionOf(options.choice)) {
    if (options.check) {
      budgets_ = readBudgets(*options.check);
    } else if (options.by.empty()) {
      if (options.columns) fields_ = fieldsNamed(*options.columns);
      keys_ = parseSortKeys<Row>(variableFields, options.sort.value_or(defaultSort()));
    } else {
      const auto isRequested = [&](const Grouping& candidate) { return candidate.name == options.by; };
      grouping_ = std::find_if(groupings.begin(), groupings.end(), isRequested);
      const std::array<Field<Sum>, 4> fields = sumFields(*grouping_);
      sumFields_.assign(fields.begin(), fields.end());
      sumKeys_ = parseSortKeys<Sum>(sumFields_, options.sort.value_or("-bytes"));
    }
  }

  int run() {
    const InputResults results = readInputs(options_.choice.inputs, options_.choice.reading);
    programs_ = results.programs();
    // Without a program, a JSON document is still written, to be valid; other formats write nothing.
    if (!programs_.empty() || options_.format == "json") show();
    output_.flush();
    if (results.failed()) return 1;
    return isOverBudget_ ? limitExceeded : 0;
  }

 private:
  const char* defaultSort() const { return options_.choice.duplicates ? "-size,name,file,line" : "-size"; }

  void show() {
    chosen_ = chooseRows(programs_, selection_);
    if (options_.check) return showCheck();
    if (grouping_ != nullptr) return showSums();
    std::vector<Row> sorted = chosen_.rows;
    sortRecords(sorted, keys_);
    showRecords(sorted, fields_.empty() ? defaultFields() : fields_, "variables");
  }

  void showSums() {
    std::vector<Sum> sums = sumsBy(*grouping_, chosen_.rows);
    sortRecords(sums, sumKeys_);
    showRecords(sums, sumFields_, "sums");
  }

  void showCheck() {
    CheckResult result = checkBudgets(budgets_, *options_.check, programs_, chosen_.rows);
    for (const std::string& note : result.notes) printMessage(note);
    isOverBudget_ = !result.excesses.empty();
    const bool isExecutableShown = options_.format != tableFormat || isOneOfSeveral();
    showRecords<Excess>(result.excesses, {excessFields.begin() + (isExecutableShown ? 0 : 1), excessFields.end()},
                        "exceeded");
  }

  bool isOneOfSeveral() const { return options_.choice.inputs.size() > 1 || programs_.size() > 1; }

  std::vector<Field<Row>> defaultFields() const {
    if (options_.format != tableFormat) return {variableFields.begin(), variableFields.end()};
    std::vector<Field<Row>> fields =
        fieldsNamed(isOneOfSeveral() ? "executable,size,section,name,type" : "size,section,name,type");
    fields.push_back(placeField);
    return fields;
  }

  template <typename Record>
  void showRecords(std::vector<Record>& records, const std::vector<Field<Record>>& fields, std::string_view what) {
    const std::size_t all = records.size();
    if (options_.rows && std::cmp_less(*options_.rows, all))
      records.erase(records.begin() + *options_.rows, records.end());
    const RecordListing<Record> listing(records, fields);
    if (options_.format == "csv") return writeCsv(listing, forTerminal_, output_);
    if (options_.format == "tsv") return writeTsv(listing, forTerminal_, output_);
    if (options_.format == "json") return writeJson(programs_, what, listing, output_);
    if (options_.format == "jsonl") return writeJsonLines(listing, output_);
    showTable(listing, all);
  }

  void showTable(const Listing& listing, std::size_t all) {
    if (all > 0) writeTable(listing, styleOfOutput(), output_);
    if (options_.check) return writeCheckSummary(all);
    writeSummary({programs_, listing.size(), all, selection_.isWhole(), chosen_.waste}, chosen_.rows, output_);
  }

  void writeCheckSummary(std::size_t excesses) {
    output_.put((excesses > 0 ? "\n" : "") + counted(budgets_.size(), "budget") + ", " +
                counted(programs_.size(), "executable") + ": " + (excesses > 0 ? withSeparators(excesses) : "none") +
                " over the limit\n");
  }

  const ListOptions& options_;
  const bool forTerminal_;
  Selection selection_;
  std::vector<Field<Row>> fields_;
  std::vector<SortKey<Row>> keys_;
  const Grouping* grouping_ = nullptr;
  std::vector<Field<Sum>> sumFields_;
  std::vector<SortKey<Sum>> sumKeys_;
  std::vector<Budget> budgets_;
  bool isOverBudget_ = false;
  std::vector<const Inventory*> programs_;
  ChosenRows chosen_;
  Output output_;
};

// Prints the names and meanings of all fields. The completion scripts read this too.
int explainColumns() {
  Output output;
  for (const Field<Row>& field : variableFields) {
    output.put(field.name);
    output.put('\t');
    output.put(field.meaning);
    output.put('\n');
  }
  output.flush();
  return 0;
}

std::string columnNames() {
  std::string names;
  for (const Field<Row>& field : variableFields) names.append(names.empty() ? "" : ", ").append(field.name);
  return names;
}

std::vector<std::string> groupingNames() {
  std::vector<std::string> names;
  names.reserve(groupings.size());
  for (const Grouping& grouping : groupings) names.emplace_back(grouping.name);
  return names;
}

void addViewOptions(Command& command, ListOptions& options) {
  command.addChoice({"--format", "Output format"}, {"table", "csv", "tsv", "json", "jsonl"}, options.format);
  command.addOption({"--columns", "Columns to show, in this order", "COLUMN,..."}, options.columns);
  command.addOption(
      {"--sort", "Columns to sort by, in descending order with a leading -;\ndefault: -size (for sums: -bytes)",
       "[-]COLUMN,..."},
      options.sort);
  addRowsOption(command, options.rows, "Show at most N rows");
  command.addChoice({"--by", "Show sums instead of variables"}, groupingNames(), options.by);
  command.addOption({"--check", "Check the budgets in FILE (see below) and show those that are exceeded", "FILE"},
                    options.check);
  command.addFlag("--list-columns", options.explainColumns, "Show the names and meanings of all columns");
}

void refuseConflicts(const ListOptions& options) {
  if (!options.by.empty() && options.columns) throw UsageError("--by and --columns cannot be combined");
  if (!options.check) return;
  const std::pair<bool, const char*> others[] = {{!options.by.empty(), "--by"},
                                                 {options.columns.has_value(), "--columns"},
                                                 {options.sort.has_value(), "--sort"},
                                                 {options.rows.has_value(), "-n"},
                                                 {options.choice.duplicates, "--duplicates"}};
  for (const auto& [isGiven, name] : others) {
    if (isGiven) throw UsageError(std::string("--check and ") + name + " cannot be combined");
  }
}

std::string helpText() {
  return "Columns: " + columnNames() +
         "\n\n"
         "A condition is a column, one of = != < <= > >= ~, and a value. ~ takes a regular\n"
         "expression as in grep -E. A value is a number (of bytes also with K or M), true,\n"
         "false, null (unknown), or a text, which needs \"\" around it if it contains a comma.\n"
         "An unknown value fails every comparison except one with null.\n\n"
         "Each line of a budget file has a file pattern as in .gitignore, a section (* for all\n"
         "writable and thread-local variables) and a limit in bytes, also with K or M. Each\n"
         "program must keep within each budget; # starts a comment:\n"
         "  src/net/** .bss 64K\n\n"
         "Examples:\n"
         "  tolquin list ./prog\n"
         "  tolquin list --mutable --where 'file ~ ^src/net/, size >= 4K' ./prog\n"
         "  tolquin list --by file -n 20 build/bin/*\n"
         "  tolquin list --format csv --columns name,type,size,file,line ./prog >prog.csv\n"
         "  tolquin list --format json ./prog | jq '.variables[] | select(.section == \".bss\")'\n"
         "  tolquin list --check budgets.txt ./prog\n\n"
         "Exit status: 0 on success; 1 if an input cannot be read (see standard error); 2 for a\n"
         "usage error; 3 if a program exceeds a budget.";
}

}  // namespace

void addListCommand(CommandLine& line) {
  auto options = std::make_shared<ListOptions>();
  Command command = line.add("list", "List the variables of programs; the default command", helpText());
  addViewOptions(command, *options);
  addSelectionOptions(command, options->choice);
  addInputOptions(command, options->choice);
  command.setAction([options]() -> Action {
    if (options->explainColumns) return explainColumns;
    requireInput(options->choice);
    refuseConflicts(*options);
    return [options] { return List(*options).run(); };
  });
}
