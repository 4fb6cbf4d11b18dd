#include "frontend/jsonInput.h"

#include <algorithm>
#include <charconv>
#include <map>
#include <nlohmann/json.hpp>
#include <tuple>

#include "frontend/fields.h"
#include "src/userError.h"
#include "src/whiteSpace.h"

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

// Collects the programs of a document in the order in which they appear.
class Collector {
 public:
  explicit Collector(std::string defaultName) : defaultName_(std::move(defaultName)) {}

  std::string_view intern(std::string_view text) { return texts_.intern(text); }

  Inventory& program(std::string_view name) {
    const auto [at, isNew] = numbers_.try_emplace(std::string(name), programs_.size());
    if (isNew) programs_.emplace_back().executable = name;
    return programs_[at->second];
  }

  // Adds `variable` to the program named `program`; if that is empty, to the default program.
  void add(std::string_view program, const Variable& variable) {
    this->program(program.empty() ? defaultName_ : program).variables.push_back(variable);
  }

  std::vector<Inventory> take() {
    if (programs_.empty()) {
      program(defaultName_).warnings.emplace_back("contains no variables");
    }
    for (Inventory& program : programs_) sort(program.variables);
    programs_[0].texts = std::move(texts_);
    return std::move(programs_);
  }

 private:
  // Restores the order of an Inventory: results may have been sorted differently when they were written.
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

// Receives the events of the JSON parser, for a whole document or for one line of JSON lines, which is a variable.
class Handler : public nlohmann::json_sax<Json> {
 public:
  // The element that the parser is in.
  enum class Context { Outside, Document, Programs, Program, Sections, Section, Variables, Variable, Ignored };

  // `outermost`: the element that the outermost object represents.
  Handler(Collector& collector, Context outermost) : collector_(collector), outermost_(outermost) {}

  bool null() override { return handle({Scalar::Form::Null}); }
  bool boolean(bool value) override { return handle({Scalar::Form::Flag, {}, value ? 1u : 0u}); }
  bool number_integer(number_integer_t) override { return handle({Scalar::Form::Other}); }  // negative
  bool number_unsigned(number_unsigned_t value) override { return handle({Scalar::Form::Number, {}, value}); }
  bool number_float(number_float_t, const string_t&) override { return handle({Scalar::Form::Other}); }
  bool string(string_t& value) override { return handle({Scalar::Form::Text, value}); }
  bool binary(binary_t&) override { return handle({Scalar::Form::Other}); }
  bool key(string_t& value) override {
    key_ = value;
    return true;
  }

  bool start_object(std::size_t) override {
    switch (context()) {
      case Context::Outside:
        return enter(outermost_);
      case Context::Programs:
        program_ = {};
        return enter(Context::Program);
      case Context::Sections:
        program_.sections.emplace_back();
        return enter(Context::Section);
      case Context::Variables:
        return enter(Context::Variable);
      default:
        return enter(Context::Ignored);
    }
  }
  bool start_array(std::size_t) override {
    if (context() == Context::Document && key_ == "executables") return enter(Context::Programs);
    if (context() == Context::Document && key_ == "variables") return enter(Context::Variables);
    if (context() == Context::Document && key_ == "sums") throw UserError("contains sums, not variables");
    if (context() == Context::Document && key_ == "exceeded")
      throw UserError("contains the result of a check, not variables");
    if (context() == Context::Document && key_ == "changes") throw UserError("contains changes, not variables");
    return enter(context() == Context::Program && key_ == "sections" ? Context::Sections : Context::Ignored);
  }
  bool end_object() override {
    if (context() == Context::Variable) finishVariable();
    if (context() == Context::Program) finishProgram();
    contexts_.pop_back();
    return true;
  }
  bool end_array() override {
    contexts_.pop_back();
    return true;
  }
  bool parse_error(std::size_t, const std::string&, const Json::exception& error) override {
    const std::string_view what = error.what();
    throw UserError("is not valid JSON: " + std::string(what.substr(std::min(what.find("] ") + 2, what.size()))));
  }

 private:
  Context context() const { return contexts_.empty() ? Context::Outside : contexts_.back(); }
  bool enter(Context context) {
    if (context == Context::Variable) {
      variable_ = {};
      executable_.clear();
    }
    contexts_.push_back(context);
    return true;
  }

  bool handle(const Scalar& scalar) {
    if (context() == Context::Variable) setField(scalar);
    if (context() == Context::Program) setProgramField(scalar);
    if (context() == Context::Section) setSectionField(scalar);
    if (context() == Context::Document && key_ == "schema" && scalar.number != 1) {
      throw UserError("was written by a different version of tolquin");
    }
    return true;
  }

  [[noreturn]] void refuse() const { throw UserError("has an invalid value for \"" + key_ + "\""); }

  std::string_view textOf(const Scalar& scalar) const {
    if (scalar.form != Scalar::Form::Text && scalar.form != Scalar::Form::Null) refuse();
    return scalar.text;
  }

  void setField(const Scalar& scalar) {
    const auto field = std::find_if(variableFields.begin(), variableFields.end(),
                                    [this](const Field<Row>& candidate) { return candidate.name == key_; });
    if (field == variableFields.end()) {
      if (key_ == "variables" || key_ == "bytes") throw UserError("contains sums, not variables");
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

  void setProgramField(const Scalar& scalar) {
    if (key_ == "path") program_.executable = textOf(scalar);
    if (key_ == "build_id") program_.buildId = textOf(scalar);
    if (key_ == "directory") program_.directory = textOf(scalar);
  }

  void setSectionField(const Scalar& scalar) {
    Section& section = program_.sections.back();
    if (key_ == "name") section.name = textOf(scalar);
    if (key_ == "size" && scalar.form == Scalar::Form::Number) section.size = scalar.number;
  }

  void finishVariable() {
    if (variable_.name.empty()) {
      throw UserError("contains a variable without a name; if it was written with --columns, these must include name");
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
  const Context outermost_;
  std::vector<Context> contexts_;
  std::string key_;
  Inventory program_;
  Variable variable_;
  std::string executable_;
};

// Whether `content` is JSON lines: its first line is a complete object that is not a document.
bool holdsLines(std::string_view content) {
  const std::string_view line = content.substr(0, content.find('\n'));
  const Json first = Json::parse(line, nullptr, false);
  return first.is_object() && !first.contains("schema") && !first.contains("executables");
}

void parseLines(std::string_view content, Collector& collector) {
  for (std::size_t number = 1; !content.empty(); ++number) {
    const std::string_view line = content.substr(0, content.find('\n'));
    content.remove_prefix(std::min(line.size() + 1, content.size()));
    if (isBlank(line)) continue;
    try {
      Handler handler(collector, Handler::Context::Variable);
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
    Handler handler(collector, Handler::Context::Document);
    Json::sax_parse(content, &handler);
  }
  return collector.take();
} catch (const UserError& error) {
  throw UserError(path + ": " + error.what());
}
