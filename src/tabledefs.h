// The records of the suite's tables that the driver reads and writes: one struct per kind of line.
#pragma once

#include "util.h"

/// One line of `objdump.1`: "<address> <size> <name>", separated by blanks; address and size are hexadecimal.
struct sobjdump1 {
  char Address[RecordSize];       ///< text as in the file, e.g. "08049f40"
  int DataSize;                   ///< bytes; -1 when the file says "<NULL>"
  char VariableName[RecordSize];  ///< ends with the line's newline until it is trimmed
};

/// One line of `tGlobalVarDef.tbl`, in column order.
struct sGlobalVarDef_tbl {
  int GlobalVarKey = 0;                ///< number of the line: 1, 2, 3, ...
  char VariableName[RecordSize] = "";  ///< name from `objdump.1`
  char DataType[RecordSize] = "";      ///< type text from the index or the debugger
  int DataSize = -1;                   ///< bytes, from `objdump.1`; -1: unknown
  int DRefDataSize = -1;               ///< bytes of the type without its stars, from `sizes.tbl`; -1: unknown
  char TypedefType[RecordSize] = "";   ///< not determined by tolquin.exe
  char StructType[RecordSize] = "";    ///< not determined by tolquin.exe
  char SourceFile[RecordSize] = "";    ///< of the definition; empty: unknown
  int LineNbr = 0;                     ///< of the definition, counted from 1; 0: unknown
  int LineCount = -1;                  ///< not determined by tolquin.exe
};
