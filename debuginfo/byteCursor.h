// Reads numbers and texts from a byte range that may be damaged. Used by all code that parses DWARF sections.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

/// A position in a byte range. Reading past the end yields 0 and sets failed().
class ByteCursor {
 public:
  ByteCursor(const unsigned char* begin, const unsigned char* end, bool bigEndian)
      : at_(begin), end_(end), bigEndian_(bigEndian) {}

  const unsigned char* at() const { return at_; }
  bool atEnd() const { return at_ == end_; }
  bool failed() const { return failed_; }
  std::size_t left() const { return static_cast<std::size_t>(end_ - at_); }

  void skip(std::uint64_t count) {
    if (count <= left())
      at_ += count;
    else
      fail();
  }

  std::uint8_t byte() {
    if (at_ != end_) return *at_++;
    fail();
    return 0;
  }

  /// An unsigned number of `width` bytes, at most 8.
  std::uint64_t fixed(std::size_t width) {
    if (width > left()) {
      fail();
      return 0;
    }
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < width; ++i) value = value << 8 | at_[bigEndian_ ? i : width - 1 - i];
    at_ += width;
    return value;
  }

  /// An unsigned LEB128 number. Bits beyond 64 are dropped.
  std::uint64_t leb() {
    if (at_ != end_ && *at_ < 0x80) return *at_++;
    std::uint64_t value = 0;
    for (unsigned shift = 0;; shift += 7) {
      const std::uint8_t part = byte();
      if (shift < 64) value |= std::uint64_t{part & 0x7fU} << shift;
      if (part < 0x80) return value;
    }
  }

  /// A signed LEB128 number, in two's complement.
  std::uint64_t signedLeb() {
    const unsigned char* begin = at_;
    const std::uint64_t value = leb();
    const auto bits = static_cast<std::size_t>(at_ - begin) * 7;
    const bool negative = at_ != begin && (at_[-1] & 0x40) != 0;
    return negative && bits < 64 ? value | ~std::uint64_t{0} << bits : value;
  }

  /// A zero-terminated text; empty, with failed() set, if the terminator is missing.
  const char* text() {
    const auto* begin = reinterpret_cast<const char*>(at_);
    const void* zero = left() > 0 ? std::memchr(at_, 0, left()) : nullptr;
    if (zero == nullptr) {
      fail();
      return "";
    }
    at_ = static_cast<const unsigned char*>(zero) + 1;
    return begin;
  }

 private:
  void fail() {
    failed_ = true;
    at_ = end_;
  }

  const unsigned char* at_;
  const unsigned char* end_;
  bool bigEndian_;
  bool failed_ = false;
};
