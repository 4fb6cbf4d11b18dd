// Diagnostics: the debug level, traces, the usage text, and the end of the program by an error.
#pragma once

/// Debug level, set once from the environment variable DEBUG_ERR. 22: verbose messages on standard error.
extern int debug_err;

/// Prints the usage text on standard output.
void tolquin_usage();

/// Ends the program with exit status `ErrNbr` (modulo 256, as every status); at debug level 22 with the message
/// "tolquin: <ErrNbr> - <errmsg>" on standard error. The numbers are listed in the manual page.
[[noreturn]] void err_exit(int ErrNbr, const char* errmsg);

/// The fatal-error routine of the index: writes `msg` and a newline to standard error and ends the program with exit
/// status 1.
[[noreturn]] void Error(const char* msg);

/// 1 when the environment variable VYMDEBUG asks for trace lines (set, not empty, not beginning with 'n' or 'N'),
/// else 0.
int shoulddebug();

/// Writes a trace line to standard error, or nothing; whether, is decided by `shoulddebug` at the first call.
void dprintf(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
