// Text and record helpers of the driver: trimming in place and line reading on fixed-size buffers.
// White space is what isspace reports in the "C" locale: blank, \t, \n, \v, \f and \r.
#pragma once

#include <cstdio>
#include <string_view>

/// Size in bytes of a line or text field of the suite's tables, the terminating NUL included.
inline constexpr int RecordSize = 4096;

/// Copies `text`, cut to its size, into a text field of a record.
void setText(char (&field)[RecordSize], std::string_view text);

/// Removes leading white space from the NUL-terminated `buffer` in place. Returns `buffer`.
char* str_l_trim(char* buffer);

/// Removes trailing white space in place. Returns `buffer`; a null pointer is returned unchanged.
char* str_r_trim(char* buffer);

/// Removes leading and trailing white space in place. Returns `buffer`.
char* str_trim(char* buffer);

/// `text` without leading and trailing white space.
std::string_view trimmed(std::string_view text);

/// Converts text as strtol does in `base`, stopping at the limits of 32 bits; errno is then ERANGE.
int saturatingInt(const char* text, int base);

/// Reads the next record of `file1` into `readbuffer` (RecordSize bytes) as fgets does: at most RecordSize - 1
/// characters, the newline kept; a longer line comes back in pieces. Returns 0, or -1 when nothing could be read
/// (`readbuffer` is then left as it was).
int get_rec(FILE* file1, char* readbuffer);
