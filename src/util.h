// Text and record helpers of the driver: trimming in place, and reading lines into buffers of fixed size.
#pragma once

#include <cstdio>
#include <string_view>

/// Size in bytes of a line or text field of the suite's tables, including the terminating NUL.
inline constexpr int RecordSize = 4096;

/// Copies `text` into a text field of a record; cuts it if it is too long.
void setText(char (&field)[RecordSize], std::string_view text);

/// Removes leading white space from the NUL-terminated `buffer` in place. Returns `buffer`.
char* str_l_trim(char* buffer);

/// Removes trailing white space in place. Returns `buffer`; a null pointer is returned unchanged.
char* str_r_trim(char* buffer);

/// Removes leading and trailing white space in place. Returns `buffer`.
char* str_trim(char* buffer);

/// Converts `text` like strtol in `base`, but saturates at the limits of 32 bits, with errno set to ERANGE.
int saturatingInt(const char* text, int base);

/// Reads the next record of `file1` into `readbuffer` (RecordSize bytes) like fgets: at most RecordSize - 1 characters
/// including the newline; a longer line is returned in pieces. Returns 0, or -1, with `readbuffer` unchanged, when
/// nothing could be read.
int get_rec(FILE* file1, char* readbuffer);
