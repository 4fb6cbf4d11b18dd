// The driver: the main loop, which determines type, size and location of every global variable listed in `objdump.1`.
// Called by main.
#pragma once

#include "diagnostics.h"
#include "textTables.h"

/// Reads the tables in `dirname`, which ends in '/', and writes `tGlobalVarDef.tbl` there. `ExeName` is the executable
/// for addr2line. Returns 0; every failure ends the program through err_exit.
int process_objdump1(const char* dirname, const char* ExeName);
