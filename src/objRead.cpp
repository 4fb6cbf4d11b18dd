#include "objRead.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>

#include "gdbControl.h"
#include "io.h"
#include "suiteFiles.h"

using std::string;
using std::string_view;

// ---- The records of the index

namespace {

template <std::size_t size>
bool storeText(char (&field)[size], const char* text) {
  const std::size_t length = std::strlen(text);
  std::memset(field, 0, size);
  if (length >= size) return false;
  std::memcpy(field, text, length);
  return true;
}

}  // namespace

bool DataFieldType::setDataType(const char* t) {
  const bool stored = storeText(type, t);
  if (!stored && debug_err == 22) std::fprintf(stderr, "type too lengthy..[%s]\n", t);
  return stored;
}

bool DataFieldType::setVarName(const char* t) {
  const bool stored = storeText(name, t);
  if (!stored && debug_err == 22) std::fprintf(stderr, "name too lengthy..\n");
  return stored;
}

bool ItemType::isValid() const {
  const auto& [type, name] = DataField;
  return std::memchr(type, 0, sizeof type) != nullptr && std::memchr(name, 0, sizeof name) != nullptr;
}

// ---- The index build

namespace {

constexpr const char* blanks = " \t";

// The address in the last comment of a declaration line, in hexadecimal without "0x" and leading zeros. Empty if there
// is none.
string_view addressInComment(string_view line) {
  if (line.size() < 10 || !line.ends_with("*/;")) return {};
  const std::size_t comment = line.rfind("/*");
  if (comment == string_view::npos) return {};
  const std::size_t prefix = line.find("0x", comment);
  if (prefix == string_view::npos) return {};
  line.remove_prefix(std::min(line.find_first_not_of('0', prefix + 2), line.size()));
  return line.substr(0, line.find_first_not_of("0123456789abcdefABCDEF"));
}

// Splits a declaration into its type words, joined by single blanks, and its declarator. Skips comments.
void splitDeclaration(string_view declaration, string& datatype, string& vname) {
  bool inComment = false;
  for (string_view word = nextWord(declaration, blanks); !word.empty(); word = nextWord(declaration, blanks)) {
    if (word == "/*") inComment = true;
    if (!inComment) {
      if (!vname.empty()) datatype.append(vname).append(" ");
      vname = word;
    }
    if (word == "*/") inComment = false;
  }
}

// The key of the index for an address text of at most KeyFieldMax characters.
void makeKey(string_view address, KeyFieldType& key) {
  std::memset(key, ' ', KeyFieldMax);
  std::memcpy(key, address.data(), address.size());
  key[KeyFieldMax] = '\0';
}

// Passes each line of a file to `useLine`. False, after a message on standard error, when the file cannot be opened or
// read completely.
template <typename UseLine>
bool forEachLine(const string& path, UseLine useLine) {
  LineReader reader(path.c_str());
  for (string_view line; reader.isOpen() && reader.next(line);) useLine(line);
  const bool complete = reader.isOpen() && !reader.failed();
  if (!complete) std::fprintf(stderr, "cannot open %sto read\n", path.c_str());
  return complete;
}

}  // namespace

bool itemFromDeclaration(string_view line, const TMAP& addresses, ItemType& item) {
  constexpr std::size_t shortestAddress = 4;
  const string_view address = addressInComment(line);
  if (address.size() < shortestAddress || address.size() > KeyFieldMax) return false;
  if (addresses.find(address) == addresses.end()) return false;
  string datatype;
  string vname;
  // The declaration ends at the first ':' that does not begin the line.
  splitDeclaration(nextWord(line, ":"), datatype, vname);
  if (vname.find_first_not_of('*') == string::npos) return false;
  datatype += stripStarsAndBrackets(vname);
  datatype.erase(datatype.find_last_not_of(blanks) + 1);
  if (datatype.empty()) return false;
  makeKey(address, item.KeyField);
  item.DataField.setDataType(datatype.c_str());
  item.DataField.setVarName(vname.c_str());
  return true;
}

void fillIndex(const string& directory, IndexTable& table) {
  TMAP tmap;
  const bool complete = forEachLine(directory + "/" + suiteFiles::variables, [&tmap](string_view line) {
    string_view word = nextWord(line, " ");
    if (word.empty()) return;
    if (word.front() == '0') word.remove_prefix(1);
    tmap.emplace_hint(tmap.end(), word, '\0');
  });
  if (!complete) return;
  forEachLine(directory + "/" + suiteFiles::declarations, [&tmap, &table](string_view line) {
    ItemType item;
    if (itemFromDeclaration(line, tmap, item)) table.Insert(item);
  });
  table.Flush();
}

IndexTable& crtMap() {
  const char* dbenv = std::getenv("DB");
  const string directory = dbenv != nullptr ? dbenv : "./";
  static IndexTable btTable('w', (directory + "/" + suiteFiles::index).c_str());
  fillIndex(directory, btTable);
  return btTable;
}

// ---- The debugger

namespace {

// Whether gdb reads a command that ends with `vname` as exactly one: a backslash at its end would continue the line.
bool isSingleCommand(const string& vname) { return !vname.ends_with('\\') && vname.find('\n') == string::npos; }

// The name to ask gdb for; for gdb 5, the last component alone.
string nameForGdb(const string& vname) {
  static const char* const p = std::getenv("GDB_VERSION");
  static const string gdbversion = p != nullptr ? p : "6";
  string lvname = vname;
  if (gdbversion == "5" && vname.find("::") != string::npos) remove_one_scope(vname.c_str(), lvname);
  return lvname;
}

}  // namespace

bool getDataTypeFromGDB(const string& vname, string& dtype) {
  const char* exe = std::getenv("EXEFILE");
  if (exe == nullptr) return false;
  static GDBControl gctl(exe);
  const string lvname = nameForGdb(vname);
  const string command = "info var " + lvname + "\n";
  if (command.size() >= ToolSession::textSize || !isSingleCommand(vname)) return false;
  AnswerReader answer(vname, dtype);
  gctl.queryGDB(command, lvname, std::ref(answer));
  return answer.found();
}

// ---- The lookup

bool getVarInfoFromAddr(const char* addr, const string& vname, string& dtype) {
  static IndexTable& btTable = crtMap();
  const string_view inp(addr);
  if (inp.size() <= KeyFieldMax) {
    KeyFieldType key;
    makeKey(inp, key);
    ItemType Item;
    if (btTable.Retrieve(key, Item)) {
      dtype = Item.DataField.getDataType();
      return true;
    }
  }
  if (getDataTypeFromGDB(vname, dtype)) return true;
  if (debug_err == 22) std::fprintf(stderr, "Var info from Address %s Not Found\n", addr);
  return false;
}
