// Collects warnings about what is missing from an inventory.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

/// Warnings grouped by reason.
class Warnings {
 public:
  /// Adds a case: `what` ("x (main.c:3)") is missing because of `why` ("no name"). For each reason the first cases are
  /// kept and the rest only counted.
  void add(std::string_view why, const std::string& what);
  /// Adds those of `sentences` that have not been added before.
  void append(const std::vector<std::string>& sentences);
  /// A sentence for each reason, then the sentences that were added.
  std::vector<std::string> sentences() const;

  struct Reason {
    std::string why;
    std::vector<std::string> first;  ///< the first cases
    std::size_t count = 0;           ///< of all cases, including `first`
  };
  /// Appends the cases of `other`.
  void add(const Reason& other);
  const std::vector<Reason>& reasons() const { return reasons_; }
  /// The sentences that were added.
  const std::vector<std::string>& others() const { return others_; }

 private:
  Reason& reason(std::string_view why);

  std::vector<Reason> reasons_;
  std::vector<std::string> others_;
};
