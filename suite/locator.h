// Finds the definition of the variable that covers an address: what the program addr2line of this project answers.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "debuginfo/inventory.h"

class Locator {
 public:
  /// `inventory` must outlive this object.
  explicit Locator(const Inventory& inventory);

  /// "file:line" of the variable whose bytes hold `address`; "??:0" when there is none, its place is not known, or the
  /// name of its file would be misunderstood in such a reply.
  std::string locate(std::uint64_t address) const;

 private:
  struct Range {
    std::uint64_t begin, end;
    const Variable* variable;
  };
  std::string pathOf(const Variable& variable) const;

  const std::string directory_;
  std::vector<Range> ranges_;
};

/// Answers each line of `in`, an address in hexadecimal, with a line on `out`, flushed. Lines are read in bites of 99
/// characters, each of which is answered, as GNU addr2line does: who asks it counts on that.
void answerAddresses(const Locator& locator, std::FILE* in, std::FILE* out);
