// The variable information index: which data type has the variable at this address? Answered from the suite's objdump
// files by way of the disk table vifa.dat, and by the debugger for variables that these files lack.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "btree.h"

inline constexpr int KeyFieldMax = 50;              ///< significant characters of a key
inline constexpr int KFMaxPlus1 = KeyFieldMax + 1;  ///< bytes of a key, terminator included

/// The key of an item: an address text padded with blanks to KeyFieldMax characters, then NUL.
using KeyFieldType = char[KFMaxPlus1];

/// What is known of a variable. Bytes behind the end of a text are zeros.
class DataFieldType {
 public:
  /// The type text, NUL-terminated.
  const char* getDataType() const { return type; }
  /// The name text, NUL-terminated.
  const char* getVarName() const { return name; }

  /// Stores `t` as the type text. False when it has more than 1999 characters: the text is then empty, and at debug
  /// level 22 a line on standard error says so.
  bool setDataType(const char* t);
  /// Stores `t` as the name text. False when it has more than 499 characters, with the same consequences.
  bool setVarName(const char* t);

  /// Whether both texts have an end, as they must when they come from a file.
  bool isWhole() const;

 private:
  char type[2000]{};
  char name[500]{};
};

/// One record of the index.
struct ItemType {
  KeyFieldType KeyField{};
  DataFieldType DataField;

  /// Whether all texts have an end.
  bool isWhole() const { return DataField.isWhole(); }
};

static_assert(sizeof(ItemType) == KFMaxPlus1 + 2000 + 500);
static_assert(sizeof(NodeType<ItemType>) == 4 + MaxKeys * sizeof(ItemType) + 3 + std::size_t{4} * MaxKeysPlusOne);

using IndexTable = BTTableClass<KeyFieldType, ItemType>;

/// Orders texts byte by byte; a proper prefix orders first.
struct ltstr {
  using is_transparent = void;
  bool operator()(std::string_view s1, std::string_view s2) const { return s1 < s2; }
};

/// The set of listed addresses; only the keys matter.
using TMAP = std::map<std::string, char, ltstr>;

/// Appends to `words` every longest run of characters of `text` that are not in the set `separators`.
void split(const std::string& text, const std::string& separators, std::vector<std::string>& words);

/// Turns the declarator `vname` into the bare name: leading stars removed, cut at the first '['. Returns the stars that
/// it adds to the type: one for each leading '*' and one for each '['.
std::string stripStarsAndBrackets(std::string& vname);

/// Sets `str` to the text behind the last "::" of `arg` that is not within angle brackets. False, `str` untouched, when
/// there is none.
bool remove_one_scope(const char* arg, std::string& str);

/// Returns the last component of the qualified name `arg`.
std::string remove_all_scopes(const std::string& arg);

/// Makes the item of the index for one line of `objdump.txt` (no newline). False when the line does not declare a
/// variable whose address is in `listed`.
bool itemFromDeclaration(std::string_view line, const TMAP& listed, ItemType& item);

/// Fills `table` from `objdump.1` and `objdump.txt` in `directory` (text put before "/objdump.1" as it is). Returns
/// what is to be said on standard error: empty, or a line about a file that cannot be opened (the table then stays
/// empty) or not be read to its end.
std::string fillIndex(const std::string& directory, IndexTable& table);

/// Builds the index ahead of the first lookup, so that it can be done while a child is at work. What there is to say
/// about missing files is left to that lookup. A `vifa.dat` that cannot be created ends the program through Error.
void prepareIndex();

/// Builds the index on the first call unless it is built, in the directory that the environment variable DB names
/// (default "./"), and returns it, open until the program ends. A `vifa.dat` that cannot be created ends the program
/// through Error.
IndexTable& crtMap();

/// Examines one line (no newline) of gdb's answer to "info var". True when it declares a variable whose last name
/// component is that of `vname`; `dtype` then has the type appended.
bool typeFromDeclaration(std::string_view line, const std::string& vname, std::string& dtype);

/// Finds the first declaration of a variable in the lines (no newlines) of gdb's answer to "info var", given one by
/// one. Nothing behind the line "Non-debugging symbols" counts, as these symbols have no type. A declaration that gdb
/// spreads over several lines, that of an unnamed struct, counts as one line with "{...}" in it.
class AnswerReader {
 public:
  /// `dtype` has the type of the variable `vname` appended when it is found.
  AnswerReader(const std::string& vname, std::string& dtype) : vname_(vname), dtype_(dtype) {}

  /// Examines the next line.
  void operator()(const std::string& line);
  /// Whether the declaration was among the lines so far.
  bool found() const { return found_; }

 private:
  void examine(const std::string& line);

  const std::string& vname_;
  std::string& dtype_;
  std::string opening_;  // first line of a declaration of several
  bool ended_ = false;
  bool found_ = false;
};

/// Asks gdb for the type of the variable `vname` in the executable that the environment variable EXEFILE names. True
/// with the type appended to `dtype`; false, `dtype` untouched, when gdb knows none or cannot be asked.
bool getDataTypeFromGDB(const std::string& vname, std::string& dtype);

/// Finds the data type of the variable at `addr` (hexadecimal text without its first '0'): by address in the index,
/// which the first call builds, else by its name `vname` from the debugger. True with `dtype` set; false when neither
/// knows it, with a line on standard error at debug level 22.
bool getVarInfoFromAddr(const char* addr, const std::string& vname, std::string& dtype);
