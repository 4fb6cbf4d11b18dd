// Texts of a program (names, types, files) as they may be shown: in UTF-8, and with nothing in them that a terminal
// would obey.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

/// A character of a text in UTF-8.
struct Character {
  char32_t code;       ///< when not valid, the byte
  std::size_t length;  ///< bytes
  bool valid;          ///< false: the byte is part of no character
};

/// The first character of `text`, which is not empty.
Character firstCharacter(std::string_view text);

/// Whether `code` acts on a terminal instead of being shown there: control characters, those that change the direction
/// of the text around them, and invisible ones.
bool isControl(char32_t code);

/// Length of the start of `text` that consists of printable characters of ASCII.
std::size_t plainLength(std::string_view text);

/// `text` with every control character as an escape such as "\x1b" or "\u202e", and every byte that is part of no
/// character as "\xff".
std::string shownText(std::string_view text);

/// `text` in UTF-8 throughout, for what takes nothing else: every byte that is part of no character becomes U+FFFD, and
/// so does a zero byte, which would end the text for many readers.
std::string validText(std::string_view text);

/// Columns that `text` takes on a terminal. `text` is as shownText returns it.
std::size_t displayWidth(std::string_view text);

/// `text` cut to `width` columns, with an ellipsis where something was cut: at its end, or at its front.
std::string cutEnd(std::string_view text, std::size_t width);
std::string cutFront(std::string_view text, std::size_t width);

/// Of `known`, the word that is nearest to `word`; empty when none is near.
std::string_view nearestWord(std::string_view word, const std::vector<std::string_view>& known);
