// Reads and writes the suite's text tables for the main loop.
#pragma once

#include <cstdio>
#include <string>
#include <string_view>

#include "tabledefs.h"
#include "whiteSpace.h"

/// Opens the four table files in the directory `dirname`, which ends in '/'. Returns 0; if a file cannot be opened,
/// ends the program through err_exit: 114 objdump.txt, 120 objdump.1, 126 tGlobalVarDef.tbl, 132 sizes.tbl.
int open_files(const char* dirname, FILE** FDobjdump, FILE** FDobjdump1, FILE** FDGlobalVarDef_tbl, FILE** FDsizes_tbl);

/// Ends the program through err_exit with `ErrNbr` and "Unable to close file <error>", where `error` is an errno; also
/// used for read and write errors, which have no messages of their own.
[[noreturn]] void exitOnTableError(int ErrNbr, int error);

/// Closes three of the four files. Returns 0; if that fails, ends the program through exitOnTableError: 146
/// objdump.txt, 151 objdump.1, 156 tGlobalVarDef.tbl.
int close_files(FILE* FDobjdump, FILE* FDobjdump1, FILE* FDGlobalVarDef_tbl);

/// Parses one line of `objdump.1` into `structure`, and modifies the line. Returns 0, or -1 when it has fewer than
/// three words.
int populate_sobjdump1(sobjdump1* structure, char* objdump1_readbuf);

/// Converts hexadecimal text, with or without "0x", up to the first other character; "<NULL>" gives -1. Returns 0, or
/// -1 when the value is out of range; it then saturates at the limits of 32 bits.
int hex2dec(int* cvtint, const char* str);

/// The name by which get_Dsize looks up `type`: the text before its first '*', trimmed.
inline std::string_view sizeLookupName(std::string_view type) { return trimmed(type.substr(0, type.find('*'))); }

/// Whether a line of `sizes.tbl` for `type` answers a lookup of `name`: if the type begins with it.
inline bool answersSizeLookup(std::string_view type, std::string_view name) { return type.starts_with(name); }

/// Sets `*Dsize` to the size in bytes of the type `DataType`: that of the first line of `sizes.tbl` that answers a
/// lookup of its sizeLookupName without "static ", -1 if there is none. `readbuffer` has RecordSize bytes.
void get_Dsize(FILE* Size_Tbl, int* Dsize, char* readbuffer, const char* DataType);

/// Formats `record` as a line of `tGlobalVarDef.tbl`, including the newline: ten columns separated by tabs; texts are
/// trimmed, and "<NULL>" if empty.
std::string formatGlobalVarDef(const sGlobalVarDef_tbl& record);
