// The suite's text tables as the driver reads and writes them.
#pragma once

#include <cstdio>
#include <string>

#include "tabledefs.h"

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
