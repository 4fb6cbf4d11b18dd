// A line buffer with bounded memory, used by LineReader for files and by Conversation for the output of tools.
#pragma once

#include <algorithm>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

/// Splits bytes into lines.
class LineBuffer {
 public:
  /// Lines of more than `longest` characters are cut to this length.
  explicit LineBuffer(std::size_t longest) : longest_(longest) {}

  /// Appends `bytes`. Invalidates the lines returned so far.
  void append(std::string_view bytes) {
    buffer_.erase(0, begin_);
    searched_ -= begin_;
    begin_ = 0;
    buffer_.append(bytes);
  }

  /// Removes the next line from the text, and returns it without its newline. Of a line that is too long, returns the
  /// beginning at once, and drops the rest when it comes. Nothing when there is no complete line.
  std::optional<std::string_view> next() {
    for (;;) {
      const std::size_t newline = buffer_.find('\n', searched_);
      const bool whole = newline != std::string::npos;
      searched_ = whole ? newline : buffer_.size();
      const std::string_view line = text().substr(0, searched_ - begin_);
      const bool continued = skipping_;
      if (!whole && !continued && line.size() <= longest_) return std::nullopt;
      drop(line.size() + (whole ? 1 : 0));
      skipping_ = !whole;
      if (!continued) return line.substr(0, longest_);
      if (!whole) return std::nullopt;
    }
  }

  /// The text that has not been removed.
  std::string_view text() const { return std::string_view(buffer_).substr(begin_); }

  /// Removes the first `size` bytes of the text, which must have as many. Ends the dropping of a line that is too long.
  void drop(std::size_t size) {
    skipping_ = false;
    begin_ += size;
    searched_ = std::max(searched_, begin_);
  }

 private:
  std::size_t longest_;
  std::string buffer_;
  std::size_t begin_ = 0;     // of the text
  std::size_t searched_ = 0;  // no newline before this position
  bool skipping_ = false;     // the rest of a line that is too long is being dropped
};
