// Conditions on variables: what follows --where, such as `size >= 4K, section = .bss, file ~ "^src/(net|io)"`.
#pragma once

#include <regex.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "frontend/fields.h"

/// An extended regular expression, as `grep -E` takes it.
class Regex {
 public:
  /// Throws UsageError when `pattern` is not one.
  explicit Regex(const std::string& pattern);

  /// Whether a part of `text` matches.
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

  /// The condition that `field` compares with the value written as `value`; `quoted` is a text, whatever it says.
  /// Throws UsageError when they do not fit together.
  Condition(const Field<Row>& field, Operator comparison, const std::string& value, bool quoted);

  /// Whether `row` fulfils it. What is not known fulfils comparisons with null only.
  bool holds(const Row& row) const;

 private:
  // Throws the UsageError that says `otherwise`, unless `fulfilled`.
  void require(bool fulfilled, const char* otherwise) const;

  const Field<Row>* field_;
  Operator comparison_;
  bool null_ = false;         // compares with null
  std::string text_;          // compares with this text,
  std::uint64_t number_ = 0;  // this number,
  std::vector<Regex> regex_;  // or this expression (one at most)
};

/// The number of bytes that `text` says: decimal, or hexadecimal after 0x, also with K or M at its end (1,024 of the
/// one before). None when it says none.
std::optional<std::uint64_t> parseBytes(std::string_view text);

/// The conditions in `expression`, which are joined by commas. Throws UsageError when it cannot be understood.
std::vector<Condition> parseConditions(std::string_view expression);
