// White space, as defined by isspace in the "C" locale.
#pragma once

#include <algorithm>
#include <string_view>

inline constexpr std::string_view whiteSpace = " \t\n\v\f\r";

/// Whether `character` is white space.
inline bool isWhiteSpace(char character) { return whiteSpace.find(character) != std::string_view::npos; }

/// Whether `text` is empty or consists of white space only.
inline bool isBlank(std::string_view text) { return text.find_first_not_of(whiteSpace) == std::string_view::npos; }

/// `text` without leading and trailing white space.
inline std::string_view trimmed(std::string_view text) {
  text.remove_prefix(std::min(text.find_first_not_of(whiteSpace), text.size()));
  return text.substr(0, text.find_last_not_of(whiteSpace) + 1);
}
