// What the program writes: results to standard output, messages to standard error.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

/// Standard output with a buffer of its own, for results of any size.
class Output {
 public:
  Output() = default;
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;
  ~Output() = default;  // what has not been flushed is part of a result that failed

  /// Adds `text`, or `character`, to the output. Throws UserError when that cannot be written.
  void put(std::string_view text) {
    buffer_ += text;
    if (buffer_.size() >= blockSize) flush();
  }
  void put(char character) { buffer_ += character; }
  /// Adds `number` in decimal digits.
  void putNumber(std::uint64_t number);
  /// Adds `count` blanks.
  void pad(std::size_t count) { buffer_.append(count, ' '); }

  /// Says that standard output was closed before the program began, so that nothing can be written.
  static void setClosed() { isClosed_ = true; }

  /// Writes what is still in the buffer. Throws UserError when that fails, a full disk included.
  void flush();

 private:
  static constexpr std::size_t blockSize = std::size_t{64} * 1024;

  static inline bool isClosed_ = false;
  std::string buffer_;
};

/// `number` as 0x and hexadecimal digits.
std::string hexadecimal(std::uint64_t number);

/// `number` in decimal digits, with a comma before every three.
std::string withSeparators(std::uint64_t number);

/// `count` and `what` it is of, in the plural unless it is one: "1 byte", "2,000 bytes".
std::string counted(std::uint64_t count, const char* what);

/// Writes "tolquin: `text`" as a line to standard error, with nothing in it that a terminal would obey.
void printMessage(std::string_view text);
