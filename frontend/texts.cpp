#include "frontend/texts.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <numeric>
#include <utility>

namespace {

constexpr std::string_view ellipsis = "\u2026";

bool isWithin(char32_t code, char32_t first, char32_t last) { return code >= first && code <= last; }

// The length of the UTF-8 sequence that starts with `byte`, 0 if none does; sets `code` to the bits in this byte.
std::size_t sequenceLength(unsigned char byte, char32_t& code) {
  if (byte < 0x80) return code = byte, 1;
  if (isWithin(byte, 0xc2, 0xdf)) return code = byte & 0x1f, 2;
  if (isWithin(byte, 0xe0, 0xef)) return code = byte & 0x0f, 3;
  if (isWithin(byte, 0xf0, 0xf4)) return code = byte & 0x07, 4;
  return 0;
}

// Whether `code` is a valid character whose shortest encoding has `length` bytes.
bool isInShortestForm(char32_t code, std::size_t length) {
  constexpr char32_t least[] = {0, 0, 0x80, 0x800, 0x10000};
  return code >= least[length] && code <= 0x10ffff && !isWithin(code, 0xd800, 0xdfff);
}

void appendEscape(std::string& text, const Character& character) {
  char escape[12];
  const char* format = "\\U%08x";
  if (character.code <= 0xffff) format = "\\u%04x";
  if (character.code <= 0x7f || !character.valid) format = "\\x%02x";
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  std::snprintf(escape, sizeof escape, format, static_cast<unsigned>(character.code));
#pragma GCC diagnostic pop
  text += escape;
}

std::size_t columnsOf(const Character& character) {
  const int width = wcwidth(static_cast<wchar_t>(character.code));
  return width < 0 ? 1 : static_cast<std::size_t>(width);
}

// The Levenshtein distance of two words.
std::size_t distance(std::string_view from, std::string_view to) {
  std::vector<std::size_t> costs(to.size() + 1);
  std::iota(costs.begin(), costs.end(), 0);
  for (std::size_t i = 0; i < from.size(); ++i) {
    std::size_t diagonal = std::exchange(costs[0], i + 1);
    for (std::size_t j = 0; j < to.size(); ++j) {
      const std::size_t replaced = diagonal + (from[i] == to[j] ? 0 : 1);
      diagonal = costs[j + 1];
      costs[j + 1] = std::min({replaced, diagonal + 1, costs[j] + 1});
    }
  }
  return costs.back();
}

// Whether the eight bytes at `text` are all printable ASCII. Most texts are, so this checks eight bytes at a time.
bool isPlain(const char* text) {
  constexpr std::uint64_t ones = 0x0101010101010101;
  std::uint64_t bytes = 0;
  std::memcpy(&bytes, text, sizeof bytes);
  // The top bit of a byte is set in `beyond` if the byte is above '~', in `below` if it or a lower byte is under ' '.
  const std::uint64_t beyond = bytes | (bytes + ones);
  const std::uint64_t below = bytes - ones * ' ';
  return ((beyond | below) & (ones << 7)) == 0;
}

}  // namespace

Character firstCharacter(std::string_view text) {
  const auto first = static_cast<unsigned char>(text[0]);
  const Character invalid{first, 1, false};
  char32_t code = 0;
  const std::size_t length = sequenceLength(first, code);
  if (length == 0 || length > text.size()) return invalid;
  for (std::size_t i = 1; i < length; ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    if ((byte & 0xc0) != 0x80) return invalid;
    code = code << 6 | (byte & 0x3f);
  }
  return isInShortestForm(code, length) ? Character{code, length, true} : invalid;
}

bool isControl(char32_t code) {
  if (code < 0x20 || isWithin(code, 0x7f, 0x9f)) return true;
  if (code < 0xad) return false;
  return code == 0xad || code == 0x61c || isWithin(code, 0x200b, 0x200f) || isWithin(code, 0x2028, 0x202e) ||
         isWithin(code, 0x2060, 0x206f) || code == 0xfeff || isWithin(code, 0xfff9, 0xfffb) ||
         isWithin(code, 0xe0000, 0xe0fff);
}

std::size_t plainLength(std::string_view text) {
  std::size_t length = 0;
  while (length + sizeof(std::uint64_t) <= text.size() && isPlain(text.data() + length))
    length += sizeof(std::uint64_t);
  while (length < text.size() && text[length] >= ' ' && text[length] <= '~') ++length;
  return length;
}

std::string shownText(std::string_view text) {
  std::string shown;
  while (!text.empty()) {
    const std::size_t plain = plainLength(text);
    shown += text.substr(0, plain);
    text.remove_prefix(plain);
    if (text.empty()) break;
    const Character character = firstCharacter(text);
    if (!character.valid || isControl(character.code)) {
      appendEscape(shown, character);
    } else {
      shown += text.substr(0, character.length);
    }
    text.remove_prefix(character.length);
  }
  return shown;
}

std::string validText(std::string_view text) {
  std::string valid;
  while (!text.empty()) {
    const Character character = firstCharacter(text);
    valid += character.valid && character.code != 0 ? text.substr(0, character.length) : "\ufffd";
    text.remove_prefix(character.length);
  }
  return valid;
}

std::string_view fileName(std::string_view path) { return path.substr(path.rfind('/') + 1); }

std::size_t displayWidth(std::string_view text) {
  std::size_t width = plainLength(text);
  text.remove_prefix(width);
  while (!text.empty()) {
    const Character character = firstCharacter(text);
    width += columnsOf(character);
    text.remove_prefix(character.length);
  }
  return width;
}

std::string cutEnd(std::string_view text, std::size_t width) {
  if (displayWidth(text) <= width) return std::string(text);
  std::string kept;
  for (std::size_t used = 0; !text.empty();) {
    const Character character = firstCharacter(text);
    used += columnsOf(character);
    if (used + 1 > width) break;
    kept += text.substr(0, character.length);
    text.remove_prefix(character.length);
  }
  return kept.append(ellipsis);
}

std::string cutFront(std::string_view text, std::size_t width) {
  std::size_t left = displayWidth(text);
  if (left <= width) return std::string(text);
  while (!text.empty() && left + 1 > width) {
    const Character character = firstCharacter(text);
    left -= columnsOf(character);
    text.remove_prefix(character.length);
  }
  return std::string(ellipsis).append(text);
}

std::string_view nearestWord(std::string_view word, const std::vector<std::string_view>& known) {
  constexpr std::size_t farthest = 2;
  std::string_view nearest;
  std::size_t least = std::min(farthest, word.size() / 2) + 1;
  for (const std::string_view candidate : known) {
    if (const std::size_t changes = distance(word, candidate); changes < least) {
      least = changes;
      nearest = candidate;
    }
  }
  return nearest;
}
