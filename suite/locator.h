// Finds the definition of the variable at an address, for the project's own program addr2line (locatorMain.cpp).
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "debuginfo/inventory.h"

/// The variables of a program, by address range.
class Locator {
 public:
  /// `inventory` must outlive this object.
  explicit Locator(const Inventory& inventory);

  /// "file:line" of the variable whose address range includes `address`; "??:0" if there is none, its location is
  /// unknown, or tolquin.exe would misread the name of its file.
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

/// Answers each line of `in`, an address in hexadecimal, with a line on `out`, flushed. Like GNU addr2line, reads lines
/// in chunks of 99 characters and answers each chunk; tolquin.exe relies on that.
void answerAddresses(const Locator& locator, std::FILE* in, std::FILE* out);
