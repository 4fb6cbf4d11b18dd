// Conditions on variables, the value of --where: `size >= 4K, section = .bss, file ~ "^src/(net|io)"`.
#pragma once

#include <regex.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "frontend/fields.h"

/// A POSIX extended regular expression, as in `grep -E`.
class Regex {
 public:
  /// Throws UsageError when `pattern` is malformed.
  explicit Regex(const std::string& pattern);

  /// Whether any part of `text` matches.
  bool matches(std::string_view text) const;

 private:
  struct Free {
    void operator()(regex_t* compiled) const {
      regfree(compiled);
      delete compiled;
    }
  };
  std::unique_ptr<regex_t, Free> compiled_;
};

/// One comparison of a field with a value.
class Condition {
 public:
  enum class Operator { Equal, NotEqual, Less, LessOrEqual, Greater, GreaterOrEqual, Matches };

  /// The condition that compares `field` with `value`, as the user wrote it. With `quoted`, `value` is always a text,
  /// never null. Throws UsageError when field, operator and value do not fit together.
  Condition(const Field<Row>& field, Operator comparison, const std::string& value, bool quoted);

  /// Whether `row` meets the condition. An unknown value fails every comparison except one with null.
  bool holds(const Row& row) const;

 private:
  // Throws UsageError with `message` unless `satisfied`.
  void require(bool satisfied, const char* message) const;

  const Field<Row>* field_;
  Operator comparison_;
  bool null_ = false;         // the field is compared with null,
  std::string text_;          // this text,
  std::uint64_t number_ = 0;  // this number,
  std::vector<Regex> regex_;  // or this expression (at most one)
};

/// Parses a number of bytes: decimal, or hexadecimal with 0x, optionally followed by K (1,024) or M (1,048,576). Empty
/// when `text` is malformed or too large.
std::optional<std::uint64_t> parseBytes(std::string_view text);

/// Parses the conditions in `expression`, which are separated by commas. Throws UsageError when it is malformed.
std::vector<Condition> parseConditions(std::string_view expression);
