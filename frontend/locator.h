// Finds the definition of the variable that covers an address: what the program addr2line of this project answers.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "variables.h"

class Locator {
 public:
  /// `variables`: sorted by address, as readVariables returns them; they must outlive this object.
  explicit Locator(const std::vector<GlobalVariable>& variables);

  /// "file:line" of the variable whose bytes hold `address`; "??:0" when there is none, its place is not known, or the
  /// name of its file would be misunderstood in such a reply.
  std::string locate(std::uint64_t address) const;

 private:
  struct Range {
    std::uint64_t begin, end;
    const GlobalVariable* variable;
  };
  std::vector<Range> ranges_;
};

/// Answers each line of `in`, an address in hexadecimal, with a line on `out`, flushed. Lines are read in bites of 99
/// characters, each of which is answered, as GNU addr2line does: who asks it counts on that.
void answerAddresses(const Locator& locator, std::FILE* in, std::FILE* out);
