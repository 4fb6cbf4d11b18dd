// Bytes in, lines out, with bounded memory: the buffer of the readers of files and of child tools.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

class LineBuffer {
 public:
  /// What `next` found.
  enum class Found { Nothing, Line, Overlong };

  /// A line of more than `longest` characters, its newline not counted, is overlong.
  explicit LineBuffer(std::size_t longest) : longest_(longest) {}

  /// Appends `bytes`. Lines delivered before become invalid.
  void append(std::string_view bytes) {
    buffer_.erase(0, begin_);
    searched_ -= begin_;
    begin_ = 0;
    buffer_.append(bytes);
    received_ += bytes.size();
  }

  /// Takes the next whole line off the text; `line` is without its newline. An overlong line is reported once, as soon
  /// as it is known to be one, and is discarded up to its newline.
  Found next(std::string_view& line) {
    for (;;) {
      const std::size_t newline = buffer_.find('\n', searched_);
      const bool whole = newline != std::string::npos;
      const std::size_t end = whole ? newline : buffer_.size();
      line = std::string_view(buffer_).substr(begin_, end - begin_);
      searched_ = end;
      const bool overlong = line.size() > longest_;
      if (!whole && !overlong && !discarding_) return Found::Nothing;
      const bool continued = discarding_;
      drop(line.size() + (whole ? 1 : 0));
      discarding_ = !whole;
      if (!continued) return overlong ? Found::Overlong : Found::Line;
      if (!whole) return Found::Nothing;
    }
  }

  /// The text not taken yet.
  std::string_view text() const { return std::string_view(buffer_).substr(begin_); }

  /// Takes `size` bytes, which must not exceed the text, off its front. An overlong line is over with that.
  void drop(std::size_t size) {
    discarding_ = false;
    begin_ += size;
    if (searched_ < begin_) searched_ = begin_;
  }

  /// Bytes appended since the construction or the last `clear`.
  std::uint64_t received() const { return received_; }

  /// Forgets everything.
  void clear() { *this = LineBuffer(longest_); }

 private:
  std::size_t longest_;
  std::string buffer_;
  std::size_t begin_ = 0;     // of the text not taken yet
  std::size_t searched_ = 0;  // up to here there is no newline
  bool discarding_ = false;   // the beginning of an overlong line is gone
  std::uint64_t received_ = 0;
};
