// Output of the program: results on standard output, messages on standard error.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

/// Buffered standard output, for results of any size.
class Output {
 public:
  Output() = default;
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;
  ~Output() = default;  // does not flush: the rest of the buffer belongs to a result that failed

  /// Appends `text` or `character`. Throws UserError when writing fails.
  void put(std::string_view text) {
    buffer_ += text;
    if (buffer_.size() >= blockSize) flush();
  }
  void put(char character) { buffer_ += character; }
  /// Appends `number` in decimal.
  void putNumber(std::uint64_t number);
  /// Appends `count` spaces.
  void pad(std::size_t count) { buffer_.append(count, ' '); }

  /// Says that standard output was closed before the program began, so that nothing can be written.
  static void setClosed() { isClosed_ = true; }

  /// Writes the rest of the buffer. Throws UserError when writing fails, for example because the disk is full.
  void flush();

 private:
  static constexpr std::size_t blockSize = std::size_t{64} * 1024;

  static inline bool isClosed_ = false;
  std::string buffer_;
};

/// `number` in hexadecimal, with "0x" in front.
std::string hexadecimal(std::uint64_t number);

/// `number` in decimal, with commas as thousands separators.
std::string withSeparators(std::uint64_t number);

/// `count` followed by the noun `what`, in the plural unless `count` is 1: "1 byte", "2,000 bytes".
std::string counted(std::uint64_t count, const char* what);

/// Writes the line "tolquin: `text`" to standard error, with control characters escaped.
void printMessage(std::string_view text);
