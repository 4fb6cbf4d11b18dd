// The variable information index: the data type of the variable at an address. It comes from the suite's objdump files,
// by way of the disk table vifa.dat, or from the debugger if these files lack the variable.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <string_view>

#include "btree.h"
#include "diagnostics.h"
#include "gdbAnswer.h"
#include "typeText.h"

inline constexpr int KeyFieldMax = 50;              ///< significant characters of a key
inline constexpr int KFMaxPlus1 = KeyFieldMax + 1;  ///< bytes of a key, terminator included

/// The key of an item: an address text padded with blanks to KeyFieldMax characters, then NUL.
using KeyFieldType = char[KFMaxPlus1];

/// The data of an item. Bytes after the end of a text are zeros.
struct DataFieldType {
  /// The type text, NUL-terminated.
  const char* getDataType() const { return type; }
  /// The name text, NUL-terminated.
  const char* getVarName() const { return name; }

  /// Stores `t` as the type text. If it has more than 1999 characters, stores an empty text and returns false, with a
  /// message on standard error at debug level 22.
  bool setDataType(const char* t);
  /// Stores `t` as the name text, in the same way; at most 499 characters.
  bool setVarName(const char* t);

  char type[2000]{};  ///< data type
  char name[500]{};   ///< name
};

/// One record of the index.
struct ItemType {
  KeyFieldType KeyField{};
  DataFieldType DataField;

  /// Whether the texts of `DataField` are NUL-terminated; those read from a damaged file may not be.
  bool isValid() const;
};

static_assert(sizeof(ItemType) == KFMaxPlus1 + 2000 + 500);
static_assert(sizeof(NodeType<ItemType>) == 4 + MaxKeys * sizeof(ItemType) + 3 + std::size_t{4} * MaxKeysPlusOne);

using IndexTable = BTTableClass<KeyFieldType, ItemType>;

/// Orders texts byte by byte, a prefix before the longer text.
struct ltstr {
  using is_transparent = void;
  bool operator()(std::string_view s1, std::string_view s2) const { return s1 < s2; }
};

/// The addresses that `objdump.1` lists; only the keys matter.
using TMAP = std::map<std::string, char, ltstr>;

/// Makes the index item for one line of `objdump.txt` (no newline). False when the line does not declare a variable
/// whose address is in `addresses`.
bool itemFromDeclaration(std::string_view line, const TMAP& addresses, ItemType& item);

/// Fills `table` from `objdump.1` and `objdump.txt` in `directory` (prepended to "/objdump.1" unchanged), and writes
/// its nodes to its file. A file that cannot be opened or read completely is reported on standard error; the table then
/// has what was read of `objdump.txt` up to there.
void fillIndex(const std::string& directory, IndexTable& table);

/// Builds the index in the directory that the environment variable DB names (default "./"). The table returned is open
/// until the program ends. To be called once. If `vifa.dat` cannot be created, ends the program through Error.
IndexTable& crtMap();

/// Asks gdb for the type of the variable `vname` in the executable that the environment variable EXEFILE names. True
/// with the type appended to `dtype`; false, with `dtype` unchanged, when gdb knows none or cannot be asked.
bool getDataTypeFromGDB(const std::string& vname, std::string& dtype);

/// Finds the data type of the variable at `addr` (hexadecimal text without its first '0'): by address in the index,
/// which the first call builds, otherwise by its name `vname` with the debugger. True with `dtype` set; false when
/// neither knows it, with a message on standard error at debug level 22.
bool getVarInfoFromAddr(const char* addr, const std::string& vname, std::string& dtype);
