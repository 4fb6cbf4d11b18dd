// The driver: diagnostics, the suite's table files, and the main loop that determines type, size and place of every
// global variable that a program's `objdump.1` lists.
#pragma once

#include <cstdio>
#include <string>

#include "tabledefs.h"

/// Debug level, set once from the environment variable DEBUG_ERR. 22: verbose messages on standard error.
extern int debug_err;

/// Prints the usage text on standard output.
void tolquin_usage();

/// Ends the program with exit status `ErrNbr` (modulo 256, as every status); at debug level 22 with the message
/// "tolquin: <ErrNbr> - <errmsg>" on standard error. The numbers are listed in the manual page.
[[noreturn]] void err_exit(int ErrNbr, const char* errmsg);

/// 1 when the environment variable VYMDEBUG asks for trace lines (set, not empty, not beginning with 'n' or 'N'),
/// else 0.
int shoulddebug();

/// Writes a trace line to standard error, or nothing; whether, is decided by `shoulddebug` at the first call.
void dprintf(const char* fmt, ...) __attribute__((format(printf, 1, 2)));

/// Opens the four table files in the directory `dirname`, which ends in '/'. Returns 0; a file that cannot be opened
/// ends the program through err_exit: 114 objdump.txt, 120 objdump.1, 126 tGlobalVarDef.tbl, 132 sizes.tbl.
int open_files(const char* dirname, FILE** FDobjdump, FILE** FDobjdump1, FILE** FDGlobalVarDef_tbl, FILE** FDsizes_tbl);

/// Ends the program through err_exit with `ErrNbr` and "Unable to close file <error>", `error` being an errno.
[[noreturn]] void exitUnclosed(int ErrNbr, int error);

/// Closes three of the four files. Returns 0; a failure ends the program through exitUnclosed: 146 objdump.txt,
/// 151 objdump.1, 156 tGlobalVarDef.tbl.
int close_files(FILE* FDobjdump, FILE* FDobjdump1, FILE* FDGlobalVarDef_tbl);

/// Parses one line of `objdump.1`, which is modified, into `structure`. Returns 0, or -1 when the line has fewer than
/// three words.
int populate_sobjdump1(sobjdump1* structure, char* objdump1_readbuf);

/// Converts hexadecimal text, "0x" allowed, up to its first other character; "<NULL>" gives -1. Returns 0, or -1 when
/// the value is out of the range of 32 bits, at whose limits it then stops.
int hex2dec(int* cvtint, const char* str);

/// Looks up the size in bytes of the type `DataType`, cut at its first '*', in the stream of `sizes.tbl`: that of the
/// first line whose type begins with the name sought. `*Dsize` is -1 when there is none. `readbuffer` has RecordSize
/// bytes.
void get_Dsize(FILE* Size_Tbl, int* Dsize, char* readbuffer, const char* DataType);

/// The line of `tGlobalVarDef.tbl` for `record`, newline included: ten columns separated by tabs; text columns are
/// trimmed, and "<NULL>" when empty.
std::string formatGlobalVarDef(const sGlobalVarDef_tbl& record);

/// The main loop: reads the tables in `dirname`, which ends in '/', and writes `tGlobalVarDef.tbl` there. `ExeName` is
/// the executable for addr2line. Returns 0; every failure ends the program through err_exit.
int process_objdump1(const char* dirname, const char* ExeName);
