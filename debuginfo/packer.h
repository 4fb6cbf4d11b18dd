// Serializes variables, numbers and texts to send them between processes of the same executable. Used by findings and
// by the front end's packed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "debuginfo/inventory.h"

/// Appends values to a byte sequence.
class Packer {
 public:
  void number(std::uint64_t value);
  void text(std::string_view text);
  /// Texts that share storage are written once.
  void variables(const std::vector<Variable>& variables);
  /// The bytes packed so far.
  std::string take() { return std::move(bytes_); }

 private:
  template <typename Item>
  void raw(const Item* items, std::size_t count);

  std::string bytes_;
};

/// Reads the values in the order in which a Packer wrote them. All functions throw UserError at a premature end.
class Unpacker {
 public:
  /// Reads from `bytes`, to which the returned texts refer.
  explicit Unpacker(std::string_view bytes) : left_(bytes) {}

  std::uint64_t number();
  std::string_view text();
  std::vector<Variable> variables();

 private:
  std::string_view take(std::uint64_t size);
  std::string_view takeItems(std::uint64_t count, std::size_t size);

  std::string_view left_;
};
