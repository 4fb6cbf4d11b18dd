// Variables as bytes, for the way from one process to another of the same program. What is between them is put together
// by those who send it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "debuginfo/inventory.h"

class Packer {
 public:
  void number(std::uint64_t value);
  void text(std::string_view text);
  /// Texts that are the same in memory are sent once.
  void variables(const std::vector<Variable>& variables);
  /// All that was packed.
  std::string take() { return std::move(bytes_); }

 private:
  template <typename Item>
  void raw(const Item* items, std::size_t count);

  std::string bytes_;
};

/// Takes out in the same order what a Packer took. All its functions throw UserError when the bytes end before.
class Unpacker {
 public:
  /// Reads from `bytes`, in which the texts that it gives lie.
  explicit Unpacker(std::string_view bytes) : left_(bytes) {}

  std::uint64_t number();
  std::string_view text();
  std::vector<Variable> variables();

 private:
  std::string_view take(std::uint64_t size);
  std::string_view takeItems(std::uint64_t count, std::size_t size);

  std::string_view left_;
};
