// The variables of programs, as a table or as data.
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdlib>
#include <memory>
#include <thread>
#include <utility>

#include "frontend/commands/commands.h"
#include "frontend/output.h"
#include "frontend/selection.h"
#include "frontend/sums.h"
#include "frontend/views/csv.h"
#include "frontend/views/json.h"
#include "frontend/views/summary.h"
#include "frontend/views/table.h"
#include "frontend/workers.h"
#include "src/userError.h"

namespace {

constexpr std::string_view tableFormat = "table";

struct ListOptions {
  std::vector<std::string> inputs;
  std::string format{tableFormat};
  std::string columns;
  std::string sort;
  std::string where;
  std::string by;
  std::optional<std::int64_t> rows;
  bool mutableOnly = false;
  bool duplicates = false;
  bool explainColumns = false;
  ReadOptions reading;
};

// Columns that standard output has for a line; 0: any number.
std::size_t lineWidth() {
  const char* set = std::getenv("COLUMNS");
  if (const long columns = set != nullptr ? std::atol(set) : 0; columns > 0) return static_cast<std::size_t>(columns);
  winsize size{};
  return ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 ? size.ws_col : 0;
}

std::vector<Field<Row>> fieldsNamed(std::string_view list) {
  std::vector<Field<Row>> chosen;
  for (const std::string& name : splitList(list)) chosen.push_back(findField<Row>(variableFields, name));
  return chosen;
}

// All that can be wrong with the options is found before anything is read.
class List {
 public:
  explicit List(const ListOptions& options) : options_(options), forTerminal_(isatty(STDOUT_FILENO) != 0) {
    if (!options.where.empty()) selection_.conditions = parseConditions(options.where);
    selection_.mutableOnly = options.mutableOnly;
    selection_.duplicates = options.duplicates;
    if (options.by.empty()) {
      if (!options.columns.empty()) fields_ = fieldsNamed(options.columns);
      keys_ = parseSortKeys<Row>(variableFields, options.sort.empty() ? defaultSort() : options.sort);
    } else {
      const auto isAskedFor = [&](const Grouping& candidate) { return candidate.name == options.by; };
      grouping_ = std::find_if(groupings.begin(), groupings.end(), isAskedFor);
      const std::array<Field<Sum>, 4> fields = sumFields(*grouping_);
      sumFields_.assign(fields.begin(), fields.end());
      sumKeys_ = parseSortKeys<Sum>(sumFields_, options.sort.empty() ? "-bytes" : options.sort);
    }
  }

  int run() {
    const InputResults results = readInputs(options_.inputs, options_.reading);
    programs_ = results.programs();
    // A document is whole without a program too, a table is not worth its header.
    if (!programs_.empty() || options_.format == "json") show();
    output_.flush();
    return results.failed() ? 1 : 0;
  }

 private:
  const char* defaultSort() const { return options_.duplicates ? "-size,name,file,line" : "-size"; }

  void show() {
    rows_ = selectRows(programs_, selection_);
    if (selection_.duplicates) waste_ = keepDuplicates(rows_);
    if (rows_.empty() && !selection_.isWhole()) printMessage("no variable is selected");
    if (grouping_ != nullptr) return showSums();
    std::vector<Row> sorted = rows_;
    sortRecords(sorted, keys_);
    showRecords(sorted, fields_.empty() ? defaultFields() : fields_, "variables");
  }

  void showSums() {
    std::vector<Sum> sums = sumsBy(*grouping_, rows_);
    sortRecords(sums, sumKeys_);
    showRecords(sums, sumFields_, "sums");
  }

  std::vector<Field<Row>> defaultFields() const {
    if (options_.format != tableFormat) return {variableFields.begin(), variableFields.end()};
    const bool isAmongOthers = options_.inputs.size() > 1 || programs_.size() > 1;
    std::vector<Field<Row>> fields =
        fieldsNamed(isAmongOthers ? "executable,size,section,name,type" : "size,section,name,type");
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
    const bool bold = forTerminal_ && std::getenv("NO_COLOR") == nullptr;
    if (all > 0) writeTable(listing, {lineWidth(), bold}, output_);
    writeSummary({programs_, listing.size(), all, selection_.isWhole(), waste_}, rows_, output_);
  }

  const ListOptions& options_;
  const bool forTerminal_;
  Selection selection_;
  std::vector<Field<Row>> fields_;
  std::vector<SortKey<Row>> keys_;
  const Grouping* grouping_ = nullptr;
  std::vector<Field<Sum>> sumFields_;
  std::vector<SortKey<Sum>> sumKeys_;
  std::vector<const Inventory*> programs_;
  std::vector<Row> rows_;
  Waste waste_;
  Output output_;
};

// The names of all fields and what they hold, for people and for completion.
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

void addChoiceOptions(CLI::App& command, ListOptions& options) {
  command.add_option("--where", options.where, "Only variables that fulfil conditions (see below)")
      ->type_name("CONDITION,...");
  command.add_flag("--mutable", options.mutableOnly, "Only variables that are writable or thread-local");
  command.add_flag("--duplicates", options.duplicates,
                   "Only variables of the same name, type, file and line at several addresses");
  command.add_flag("--artificial", options.reading.artificial,
                   "Also variables that the compiler made up, such as __func__");
  command.add_option("--by", options.by, "Sums instead of variables")->check(CLI::IsMember(groupingNames()));
}

void addViewOptions(CLI::App& command, ListOptions& options) {
  command.add_option("--format", options.format, "How to write it")
      ->check(CLI::IsMember({"table", "csv", "tsv", "json", "jsonl"}))
      ->capture_default_str();
  command.add_option("--columns", options.columns, "Columns to show, in this order")->type_name("COLUMN,...");
  command
      .add_option("--sort", options.sort,
                  "Columns to sort by, with - in front in descending order;\ndefault: -size (of sums: -bytes)")
      ->type_name("[-]COLUMN,...");
  command.add_option("-n", options.rows, "Show at most N rows")
      ->check(CLI::Range(std::int64_t{0}, std::int64_t{UINT32_MAX}))
      ->type_name("N");
  command.add_flag("--list-columns", options.explainColumns, "Show the names of all columns and what they hold");
}

std::string helpText() {
  return "Columns: " + columnNames() +
         "\n\n"
         "A condition is a column, one of = != < <= > >= ~, and a value. ~ takes a regular\n"
         "expression, as for grep -E. A value is a number (of bytes also with K or M), true,\n"
         "false, null (not known), or a text, which stands in \"\" if it holds a comma. What is\n"
         "not known compares with null only.\n\n"
         "Examples:\n"
         "  tolquin list ./prog\n"
         "  tolquin list --mutable --where 'file ~ ^src/net/, size >= 4K' ./prog\n"
         "  tolquin list --by file -n 20 build/bin/*\n"
         "  tolquin list --format csv --columns name,type,size,file,line ./prog >prog.csv\n"
         "  tolquin list --format json ./prog | jq '.variables[] | select(.section == \".bss\")'\n\n"
         "Exit status: 0; 1 when an input failed, with the reason on standard error; 2 for wrong use.";
}

}  // namespace

void addListCommand(CLI::App& app, Action& action) {
  auto options = std::make_shared<ListOptions>();
  CLI::App* command = app.add_subcommand("list", "List the variables of programs; the word list may be left out");
  command->add_option("INPUT", options->inputs,
                      "Executables or shared objects compiled with -g, results that list\nwrote as JSON or JSON "
                      "lines, directories with a result of tolquin.exe");
  addViewOptions(*command, *options);
  addChoiceOptions(*command, *options);
  options->reading.jobs = std::max(1u, std::thread::hardware_concurrency());
  command->add_option("-j,--jobs", options->reading.jobs, "Inputs to read at a time")
      ->check(CLI::Range(1u, 4096u))
      ->type_name("N")
      ->capture_default_str();
  command->footer(helpText());
  command->callback([options, &action] {
    if (options->explainColumns) {
      action = explainColumns;
      return;
    }
    if (options->inputs.empty()) throw UsageError("an input is missing: an executable, for instance");
    if (!options->by.empty() && !options->columns.empty()) throw UsageError("--by and --columns exclude each other");
    action = [options] { return List(*options).run(); };
  });
}
