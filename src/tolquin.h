// The driver: the main loop that determines type, size and place of every global variable that a program's `objdump.1`
// lists.
#pragma once

#include "diagnostics.h"
#include "textTables.h"

/// The main loop: reads the tables in `dirname`, which ends in '/', and writes `tGlobalVarDef.tbl` there. `ExeName` is
/// the executable for addr2line. Returns 0; every failure ends the program through err_exit.
int process_objdump1(const char* dirname, const char* ExeName);
