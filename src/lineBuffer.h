// Bytes in, lines out, with bounded memory: the buffer of the readers of files and of child tools.
#pragma once

#include <algorithm>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

class LineBuffer {
 public:
  /// Of a line of more than `longest` characters, only the first `longest` are delivered.
  explicit LineBuffer(std::size_t longest) : longest_(longest) {}

  /// Appends `bytes`. Lines delivered before become invalid.
  void append(std::string_view bytes) {
    buffer_.erase(0, begin_);
    searched_ -= begin_;
    begin_ = 0;
    buffer_.append(bytes);
  }

  /// Takes the next line, without its newline, off the text: a whole one, or the beginning of one that is too long, the
  /// rest of which will be dropped.
  std::optional<std::string_view> next() {
    for (;;) {
      const std::size_t newline = buffer_.find('\n', searched_);
      const bool whole = newline != std::string::npos;
      searched_ = whole ? newline : buffer_.size();
      const std::string_view line = text().substr(0, searched_ - begin_);
      const bool continued = dropping_;
      if (!whole && !continued && line.size() <= longest_) return std::nullopt;
      drop(line.size() + (whole ? 1 : 0));
      dropping_ = !whole;
      if (!continued) return line.substr(0, longest_);
      if (!whole) return std::nullopt;
    }
  }

  /// The text not taken yet.
  std::string_view text() const { return std::string_view(buffer_).substr(begin_); }

  /// Takes `size` bytes, which must not exceed the text, off its front. A line that is too long is over with that.
  void drop(std::size_t size) {
    dropping_ = false;
    begin_ += size;
    searched_ = std::max(searched_, begin_);
  }

 private:
  std::size_t longest_;
  std::string buffer_;
  std::size_t begin_ = 0;     // of the text not taken yet
  std::size_t searched_ = 0;  // up to here there is no newline
  bool dropping_ = false;     // the beginning of a line that is too long was delivered
};
