#include "frontend/conditions.h"

#include <algorithm>
#include <array>
#include <charconv>

#include "src/userError.h"
#include "src/whiteSpace.h"

namespace {

using Operator = Condition::Operator;

// An operator and how it is written.
struct OperatorText {
  std::string_view text;
  Operator meaning;
};

// Longer operators come before their prefixes.
constexpr std::array<OperatorText, 7> operators{{{"!=", Operator::NotEqual},
                                                 {"<=", Operator::LessOrEqual},
                                                 {">=", Operator::GreaterOrEqual},
                                                 {"=", Operator::Equal},
                                                 {"<", Operator::Less},
                                                 {">", Operator::Greater},
                                                 {"~", Operator::Matches}}};

// Parses the number in a condition: decimal, or hexadecimal with 0x; numbers of bytes may end with K (1,024) or M
// (1,048,576). Empty when `text` is malformed or too large.
std::optional<std::uint64_t> parseNumber(std::string_view text, Kind kind) {
  std::uint64_t factor = 1;
  if (kind == Kind::Bytes && text.ends_with('K')) factor = 1024;
  if (kind == Kind::Bytes && text.ends_with('M')) factor = std::uint64_t{1024} * 1024;
  if (factor > 1) text.remove_suffix(1);
  const bool isHexadecimal = text.starts_with("0x");
  if (isHexadecimal) text.remove_prefix(2);
  std::uint64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, isHexadecimal ? 16 : 10);
  if (error != std::errc() || end != text.data() + text.size() || number > UINT64_MAX / factor) return {};
  return number * factor;
}

// Parses an expression from left to right.
class ConditionParser {
 public:
  explicit ConditionParser(std::string_view expression) : left_(expression), whole_(expression) {}

  std::vector<Condition> parse() {
    std::vector<Condition> conditions;
    do {
      const Field<Row>& field = parseField();
      const Operator comparison = parseOperator();
      bool quoted = false;
      const std::string value = parseValue(quoted);
      conditions.emplace_back(field, comparison, value, quoted);
    } while (skipComma());
    return conditions;
  }

 private:
  [[noreturn]] void fail(const std::string& what) const {
    throw UsageError("--where \"" + std::string(whole_) + "\": " + what);
  }

  void skipBlanks() { left_.remove_prefix(std::min(left_.find_first_not_of(whiteSpace), left_.size())); }

  const Field<Row>& parseField() {
    skipBlanks();
    const std::size_t end = std::min({left_.find_first_of(whiteSpace), left_.find_first_of("=!<>~,\""), left_.size()});
    const std::string_view name = left_.substr(0, end);
    if (name.empty()) fail("a condition starts with a column name, such as size or file");
    left_.remove_prefix(end);
    return findField<Row>(variableFields, name);
  }

  Operator parseOperator() {
    skipBlanks();
    for (const OperatorText& candidate : operators) {
      if (!left_.starts_with(candidate.text)) continue;
      left_.remove_prefix(candidate.text.size());
      return candidate.meaning;
    }
    fail("expected one of = != < <= > >= ~ after the column name");
  }

  std::string parseValue(bool& quoted) {
    skipBlanks();
    quoted = left_.starts_with('"');
    if (quoted) return parseQuoted();
    const std::string_view value = left_.substr(0, left_.find(','));
    left_.remove_prefix(value.size());
    if (isBlank(value)) fail("missing value; write null for an unknown value, \"\" for an empty text");
    return std::string(trimmed(value));
  }

  // A backslash escapes only a quotation mark, so that regular expressions can be written as usual.
  std::string parseQuoted() {
    std::string value;
    for (std::size_t at = 1; at < left_.size(); ++at) {
      if (left_.substr(at).starts_with("\\\"")) {
        ++at;
      } else if (left_[at] == '"') {
        left_.remove_prefix(at + 1);
        return value;
      }
      value += left_[at];
    }
    fail("missing closing quotation mark");
  }

  bool skipComma() {
    skipBlanks();
    if (left_.empty()) return false;
    if (!left_.starts_with(',')) fail("expected a comma between conditions");
    left_.remove_prefix(1);
    return true;
  }

  std::string_view left_;
  const std::string_view whole_;
};

bool fits(Operator comparison, int order) {
  switch (comparison) {
    case Operator::Equal:
      return order == 0;
    case Operator::NotEqual:
      return order != 0;
    case Operator::Less:
      return order < 0;
    case Operator::LessOrEqual:
      return order <= 0;
    case Operator::Greater:
      return order > 0;
    default:
      return order >= 0;
  }
}

}  // namespace

Regex::Regex(const std::string& pattern) {
  auto compiled = std::make_unique<regex_t>();
  if (const int error = regcomp(compiled.get(), pattern.c_str(), REG_EXTENDED); error != 0) {
    char reason[200];
    regerror(error, compiled.get(), reason, sizeof reason);
    throw UsageError("invalid regular expression \"" + pattern + "\": " + reason);
  }
  compiled_.reset(compiled.release());
}

bool Regex::matches(std::string_view text) const {
  regmatch_t range{0, static_cast<regoff_t>(text.size())};
  return regexec(compiled_.get(), text.data(), 0, &range, REG_STARTEND) == 0;
}

Condition::Condition(const Field<Row>& field, Operator comparison, const std::string& value, bool quoted)
    : field_(&field), comparison_(comparison), null_(!quoted && value == "null"), text_(value) {
  const bool isEquality = comparison == Operator::Equal || comparison == Operator::NotEqual;
  if (null_) {
    require(isEquality, "null can be compared with = and != only");
  } else if (field.kind == Kind::Text) {
    if (comparison == Operator::Matches) regex_.emplace_back(value);
  } else if (field.kind == Kind::Flag) {
    require(isEquality && (value == "true" || value == "false"), "expected = or != and one of true, false and null");
    number_ = value == "true" ? 1 : 0;
  } else {
    const std::optional<std::uint64_t> number = parseNumber(value, field.kind);
    require(comparison != Operator::Matches, "~ applies to text columns only");
    require(number.has_value(), "the value must be a number or null");
    number_ = number.value_or(0);
  }
}

void Condition::require(bool satisfied, const char* message) const {
  if (satisfied) return;
  throw UsageError("--where: column " + std::string(field_->name) + ", value \"" + text_ + "\": " + message);
}

bool Condition::holds(const Row& row) const {
  const Value value = field_->get(row);
  if (null_) return value.known == (comparison_ == Operator::NotEqual);
  if (!value.known) return false;
  if (!regex_.empty()) return regex_[0].matches(value.text);
  return fits(comparison_, compareValues(field_->kind, value, {true, text_, number_}));
}

std::optional<std::uint64_t> parseBytes(std::string_view text) { return parseNumber(text, Kind::Bytes); }

std::vector<Condition> parseConditions(std::string_view expression) { return ConditionParser(expression).parse(); }
