#include "util.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "whiteSpace.h"

void setText(char (&field)[RecordSize], std::string_view text) { field[text.copy(field, RecordSize - 1)] = '\0'; }

char* str_l_trim(char* buffer) {
  const std::size_t skip = std::strspn(buffer, whiteSpace.data());
  if (skip > 0) std::memmove(buffer, buffer + skip, std::strlen(buffer + skip) + 1);
  return buffer;
}

char* str_r_trim(char* buffer) {
  if (buffer != nullptr) buffer[std::string_view(buffer).find_last_not_of(whiteSpace) + 1] = '\0';
  return buffer;
}

char* str_trim(char* buffer) { return str_l_trim(str_r_trim(buffer)); }

int saturatingInt(const char* text, int base) {
  const long value = std::strtol(text, nullptr, base);
  if (value > INT_MAX || value < INT_MIN) errno = ERANGE;
  return static_cast<int>(std::clamp<long>(value, INT_MIN, INT_MAX));
}

int get_rec(FILE* file1, char* readbuffer) { return std::fgets(readbuffer, RecordSize, file1) == nullptr ? -1 : 0; }
