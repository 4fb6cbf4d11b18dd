#include "frontend/jsonInput.h"

#include <algorithm>
#include <charconv>
#include <map>
#include <nlohmann/json.hpp>
#include <tuple>

#include "frontend/fields.h"
#include "src/userError.h"

namespace {

using Json = nlohmann::json;

// A value that is neither object nor array.
struct Scalar {
  enum class Form { Null, Flag, Number, Text, Other } form;
  std::string_view text{};
  std::uint64_t number = 0;
};

std::optional<std::uint64_t> parseAddress(std::string_view text) {
  if (!text.starts_with("0x")) return {};
  std::uint64_t number = 0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data() + 2, end, number, 16);
  return error == std::errc() && stop == end ? std::optional(number) : std::nullopt;
}

// The programs that have been met, in their order.
class Collector {
 public:
  explicit Collector(std::string defaultName) : defaultName_(std::move(defaultName)) {}

  std::string_view intern(std::string_view text) { return texts_.intern(text); }

  Inventory& program(std::string_view name) {
    const auto [at, isNew] = numbers_.try_emplace(std::string(name), programs_.size());
    if (isNew) programs_.emplace_back().executable = name;
    return programs_[at->second];
  }

  // An empty `program`: it is not known.
  void add(std::string_view program, const Variable& variable) {
    this->program(program.empty() ? defaultName_ : program).variables.push_back(variable);
  }

  std::vector<Inventory> take() {
    if (programs_.empty()) {
      program(defaultName_).warnings.emplace_back("holds no variable");
    }
    for (Inventory& program : programs_) sort(program.variables);
    programs_[0].texts = std::move(texts_);
    return std::move(programs_);
  }

 private:
  // The order in which they were before they were sorted for being shown.
  static void sort(std::vector<Variable>& variables) {
    const auto key = [](const Variable& variable) {
      return std::tuple(variable.threadLocal.value_or(false), !variable.address, variable.address);
    };
    std::stable_sort(variables.begin(), variables.end(),
                     [&key](const Variable& a, const Variable& b) { return key(a) < key(b); });
  }

  std::string defaultName_;
  TextPool texts_;
  std::vector<Inventory> programs_;
  std::map<std::string, std::size_t, std::less<>> numbers_;
};

// Follows the parser through a document, or through a line, which is one variable.
class Handler : public nlohmann::json_sax<Json> {
 public:
  // Where the parser is.
  enum class Place { Outside, Document, Programs, Program, Sections, Section, Variables, Variable, Passed };

  // `outermost`: what the outermost object is.
  Handler(Collector& collector, Place outermost) : collector_(collector), outermost_(outermost) {}

  bool null() override { return take({Scalar::Form::Null}); }
  bool boolean(bool value) override { return take({Scalar::Form::Flag, {}, value ? 1u : 0u}); }
  bool number_integer(number_integer_t) override { return take({Scalar::Form::Other}); }  // negative
  bool number_unsigned(number_unsigned_t value) override { return take({Scalar::Form::Number, {}, value}); }
  bool number_float(number_float_t, const string_t&) override { return take({Scalar::Form::Other}); }
  bool string(string_t& value) override { return take({Scalar::Form::Text, value}); }
  bool binary(binary_t&) override { return take({Scalar::Form::Other}); }
  bool key(string_t& value) override {
    key_ = value;
    return true;
  }

  bool start_object(std::size_t) override {
    switch (place()) {
      case Place::Outside:
        return enter(outermost_);
      case Place::Programs:
        program_ = {};
        return enter(Place::Program);
      case Place::Sections:
        program_.sections.emplace_back();
        return enter(Place::Section);
      case Place::Variables:
        return enter(Place::Variable);
      default:
        return enter(Place::Passed);
    }
  }
  bool start_array(std::size_t) override {
    if (place() == Place::Document && key_ == "executables") return enter(Place::Programs);
    if (place() == Place::Document && key_ == "variables") return enter(Place::Variables);
    if (place() == Place::Document && key_ == "sums") throw UserError("holds sums, not variables");
    if (place() == Place::Document && key_ == "exceeded") throw UserError("holds the result of a check, not variables");
    if (place() == Place::Document && key_ == "changes") throw UserError("holds changes, not variables");
    return enter(place() == Place::Program && key_ == "sections" ? Place::Sections : Place::Passed);
  }
  bool end_object() override {
    if (place() == Place::Variable) finishVariable();
    if (place() == Place::Program) finishProgram();
    places_.pop_back();
    return true;
  }
  bool end_array() override {
    places_.pop_back();
    return true;
  }
  bool parse_error(std::size_t, const std::string&, const Json::exception& error) override {
    const std::string_view what = error.what();
    throw UserError("is not valid JSON: " + std::string(what.substr(std::min(what.find("] ") + 2, what.size()))));
  }

 private:
  Place place() const { return places_.empty() ? Place::Outside : places_.back(); }
  bool enter(Place place) {
    if (place == Place::Variable) {
      variable_ = {};
      executable_.clear();
    }
    places_.push_back(place);
    return true;
  }

  bool take(const Scalar& scalar) {
    if (place() == Place::Variable) takeField(scalar);
    if (place() == Place::Program) takeOfProgram(scalar);
    if (place() == Place::Section) takeOfSection(scalar);
    if (place() == Place::Document && key_ == "schema" && scalar.number != 1) {
      throw UserError("was written by another version of tolquin");
    }
    return true;
  }

  [[noreturn]] void refuse() const { throw UserError("the value of \"" + key_ + "\" makes no sense"); }

  std::string_view textOf(const Scalar& scalar) const {
    if (scalar.form != Scalar::Form::Text && scalar.form != Scalar::Form::Null) refuse();
    return scalar.text;
  }

  void takeField(const Scalar& scalar) {
    const auto field = std::find_if(variableFields.begin(), variableFields.end(),
                                    [this](const Field<Row>& candidate) { return candidate.name == key_; });
    if (field == variableFields.end()) {
      if (key_ == "variables" || key_ == "bytes") throw UserError("holds sums, not variables");
      return;
    }
    if (field->set == nullptr) {
      executable_ = textOf(scalar);
    } else if (!field->set(variable_, valueOf(scalar, field->kind))) {
      refuse();
    }
  }

  Value valueOf(const Scalar& scalar, Kind kind) {
    if (scalar.form == Scalar::Form::Null) return {};
    if (kind == Kind::Text) return {true, collector_.intern(textOf(scalar))};
    if (kind == Kind::Address) {
      const auto address = parseAddress(textOf(scalar));
      if (!address) refuse();
      return {true, {}, *address};
    }
    if (scalar.form != (kind == Kind::Flag ? Scalar::Form::Flag : Scalar::Form::Number)) refuse();
    return {true, {}, scalar.number};
  }

  void takeOfProgram(const Scalar& scalar) {
    if (key_ == "path") program_.executable = textOf(scalar);
    if (key_ == "build_id") program_.buildId = textOf(scalar);
    if (key_ == "directory") program_.directory = textOf(scalar);
  }

  void takeOfSection(const Scalar& scalar) {
    Section& section = program_.sections.back();
    if (key_ == "name") section.name = textOf(scalar);
    if (key_ == "size" && scalar.form == Scalar::Form::Number) section.size = scalar.number;
  }

  void finishVariable() {
    if (variable_.name.empty()) {
      throw UserError("holds a variable without a name; if --columns is used to write it, name has to be among them");
    }
    collector_.add(executable_, variable_);
  }

  void finishProgram() {
    Inventory& program = collector_.program(program_.executable);
    program.buildId = program_.buildId;
    program.directory = program_.directory;
    program.sections = program_.sections;
  }

  Collector& collector_;
  const Place outermost_;
  std::vector<Place> places_;
  std::string key_;
  Inventory program_;
  Variable variable_;
  std::string executable_;
};

// Whether the first line is a variable, and no document or its beginning.
bool holdsLines(std::string_view content) {
  const std::string_view line = content.substr(0, content.find('\n'));
  const Json first = Json::parse(line, nullptr, false);
  return first.is_object() && !first.contains("schema") && !first.contains("executables");
}

void parseLines(std::string_view content, Collector& collector) {
  for (std::size_t number = 1; !content.empty(); ++number) {
    const std::string_view line = content.substr(0, content.find('\n'));
    content.remove_prefix(std::min(line.size() + 1, content.size()));
    if (line.find_first_not_of(" \t\r") == std::string_view::npos) continue;
    try {
      Handler handler(collector, Handler::Place::Variable);
      Json::sax_parse(line, &handler);
    } catch (const UserError& error) {
      throw UserError("line " + std::to_string(number) + " " + error.what());
    }
  }
}

}  // namespace

std::vector<Inventory> parseJson(const std::string& path, std::string_view content) try {
  Collector collector(path);
  if (content.empty() || holdsLines(content)) {
    parseLines(content, collector);
  } else {
    Handler handler(collector, Handler::Place::Document);
    Json::sax_parse(content, &handler);
  }
  return collector.take();
} catch (const UserError& error) {
  throw UserError(path + ": " + error.what());
}
