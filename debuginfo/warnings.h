// What is missing in an inventory, and why.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

class Warnings {
 public:
  /// `what` ("x (main.c:3)") is missing because of `why` ("no name"). Of
  /// each reason the first cases are kept, the others counted.
  void add(std::string_view why, const std::string& what);
  /// Takes over those of `sentences` that are new.
  void append(const std::vector<std::string>& sentences);
  /// A sentence for each reason, and those taken over.
  std::vector<std::string> sentences() const;

  struct Reason {
    std::string why;
    std::vector<std::string> first;  ///< cases
    std::size_t count = 0;           ///< of all cases
  };
  /// Adds the cases of `other`, which come after those that are here.
  void add(const Reason& other);
  const std::vector<Reason>& reasons() const { return reasons_; }
  /// What was taken over.
  const std::vector<std::string>& others() const { return others_; }

 private:
  Reason& reason(std::string_view why);

  std::vector<Reason> reasons_;
  std::vector<std::string> others_;
};
