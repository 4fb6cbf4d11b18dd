// Diagnostics of tolquin.exe: the debug level, traces, the usage text, and fatal errors.
#pragma once

/// The debug level, set by main from the environment variable DEBUG_ERR. 22: verbose messages on standard error.
extern int debug_err;

/// Prints the usage text on standard output.
void tolquin_usage();

/// Ends the program with exit status `ErrNbr` modulo 256; at debug level 22 prints "tolquin: <ErrNbr> - <errmsg>" to
/// standard error. docs/tolquin.exe.md lists the numbers.
[[noreturn]] void err_exit(int ErrNbr, const char* errmsg);

/// The fatal-error routine of the index: prints `msg` to standard error, and ends the program with exit status 1.
[[noreturn]] void Error(const char* msg);

/// 1 when the environment variable VYMDEBUG enables trace lines (set, not empty, not beginning with 'n' or 'N'), else
/// 0.
int shoulddebug();

/// Writes a trace line to standard error if `shoulddebug` was true at the first call.
void dprintf(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
