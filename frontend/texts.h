// Prepares the texts of a program (names, types, files) for output: valid UTF-8, control characters escaped, and width
// on a terminal.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

/// A character of a UTF-8 text.
struct Character {
  char32_t code;       ///< the code point; if not valid, the byte
  std::size_t length;  ///< bytes
  bool valid;          ///< false for a byte that is not part of a valid character
};

/// The first character of `text`, which must not be empty.
Character firstCharacter(std::string_view text);

/// Whether `code` must not be sent to a terminal: control characters, those that change the direction of the
/// surrounding text, and invisible ones.
bool isControl(char32_t code);

/// Length of the longest prefix of `text` that is printable ASCII.
std::size_t plainLength(std::string_view text);

/// `text` with escapes such as "\x1b" and "\u202e" for control characters, and "\xff" for invalid UTF-8 bytes.
std::string shownText(std::string_view text);

/// `text` as valid UTF-8: each invalid byte becomes U+FFFD, and so does a zero byte, at which many readers would stop.
std::string validText(std::string_view text);

/// The last component of `path`.
std::string_view fileName(std::string_view path);

/// The number of columns that `text`, a result of shownText, takes on a terminal.
std::size_t displayWidth(std::string_view text);

/// `text` cut to `width` columns at its end or at its front, with an ellipsis in place of the part cut off.
std::string cutEnd(std::string_view text, std::size_t width);
std::string cutFront(std::string_view text, std::size_t width);

/// The word in `known` that is most similar to `word`, to suggest a correction; empty when none is similar.
std::string_view nearestWord(std::string_view word, const std::vector<std::string_view>& known);
