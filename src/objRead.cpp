#include "objRead.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <utility>

#include "gdbControl.h"
#include "io.h"
#include "tolquin.h"

using std::string;
using std::string_view;

void Error(const char* msg) {
  std::fprintf(stderr, "%s\n", msg);
  std::fflush(stderr);
  std::exit(1);
}

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

template <std::size_t size>
bool hasEnd(const char (&field)[size]) {
  return std::memchr(field, 0, size) != nullptr;
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

bool DataFieldType::isWhole() const { return hasEnd(type) && hasEnd(name); }

// ---- Text helpers

void split(const string& text, const string& separators, std::vector<string>& words) {
  std::vector<string> found;  // as `text` may be one of `words`
  std::size_t start = text.find_first_not_of(separators);
  while (start != string::npos) {
    const std::size_t stop = std::min(text.find_first_of(separators, start), text.size());
    found.push_back(text.substr(start, stop - start));
    start = text.find_first_not_of(separators, stop);
  }
  std::move(found.begin(), found.end(), std::back_inserter(words));
}

string stripStarsAndBrackets(string& vname) {
  const std::size_t leading = std::min(vname.find_first_not_of('*'), vname.size());
  vname.erase(0, leading);
  const auto dimensions = std::count(vname.begin(), vname.end(), '[');
  vname.erase(std::min(vname.find('['), vname.size()));
  return string(leading + static_cast<std::size_t>(dimensions), '*');
}

bool remove_one_scope(const char* arg, string& str) {
  const char* last = nullptr;
  int inside = 0;
  for (; arg[0] != '\0' && arg[1] != '\0'; ++arg) {
    if (arg[0] == '<') --inside;
    if (arg[0] == '>') ++inside;
    if (inside == 0 && arg[0] == ':' && arg[1] == ':') last = arg + 2;
  }
  if (last != nullptr) str = string(last);
  return last != nullptr;
}

string remove_all_scopes(const string& arg) {
  string result = arg;
  string rest;
  while (remove_one_scope(result.c_str(), rest)) result = rest;
  return result;
}

// ---- The index build

namespace {

constexpr const char* blanks = " \t";

// Takes the next word off the front of `text`; empty when there is none.
string_view takeWord(string_view& text, const char* separators) {
  text.remove_prefix(std::min(text.find_first_not_of(separators), text.size()));
  const string_view word = text.substr(0, text.find_first_of(separators));
  text.remove_prefix(word.size());
  return word;
}

// The address text of a declaration line: the hexadecimal digits behind "0x" and the zeros after it in the line's last
// comment. Empty when the line has none.
string_view addressInComment(string_view line) {
  if (line.size() < 10 || !line.ends_with("*/;")) return {};
  const std::size_t comment = line.rfind("/*");
  if (comment == string_view::npos) return {};
  const std::size_t prefix = line.find("0x", comment);
  if (prefix == string_view::npos) return {};
  line.remove_prefix(std::min(line.find_first_not_of('0', prefix + 2), line.size()));
  return line.substr(0, line.find_first_not_of("0123456789abcdefABCDEF"));
}

// The declaration part of a line: what stands before its first ':', leading ones passed over.
string_view declarationPart(string_view line) { return takeWord(line, ":"); }

// Splits a declaration into its type words, joined by single blanks, and its declarator. Comments are left out.
void splitDeclaration(string_view declaration, string& datatype, string& vname) {
  bool inComment = false;
  for (string_view word = takeWord(declaration, blanks); !word.empty(); word = takeWord(declaration, blanks)) {
    if (word == "/*") inComment = true;
    if (!inComment) {
      if (!vname.empty()) datatype.append(vname).append(" ");
      vname = word;
    }
    if (word == "*/") inComment = false;
  }
}

// The key of the index for an address text of at most KeyFieldMax characters.
void formKey(string_view address, KeyFieldType& key) {
  std::memset(key, ' ', KeyFieldMax);
  std::memcpy(key, address.data(), address.size());
  key[KeyFieldMax] = '\0';
}

bool readListedAddresses(const string& path, TMAP& listed) {
  LineReader reader(path.c_str());
  if (!reader.isOpen()) return false;
  for (string_view line; reader.next(line);) {
    string_view word = takeWord(line, " ");
    if (word.empty()) continue;
    if (word.front() == '0') word.remove_prefix(1);
    listed.emplace_hint(listed.end(), word, '\0');
  }
  return !reader.failed();
}

bool readDeclarations(const string& path, const TMAP& listed, IndexTable& table) {
  LineReader reader(path.c_str());
  if (!reader.isOpen()) return false;
  for (string_view line; reader.next(line);) {
    ItemType item;
    if (itemFromDeclaration(line, listed, item)) table.Insert(item);
  }
  return !reader.failed();
}

// The index of the run, in the directory that DB names.
struct RunIndex {
  explicit RunIndex(const string& directory)
      : table('w', (directory + "/vifa.dat").c_str()), complaint(fillIndex(directory, table)) {}

  IndexTable table;
  string complaint;
};

RunIndex& runIndex() {
  const char* dbenv = std::getenv("DB");
  static RunIndex index(dbenv != nullptr ? dbenv : "./");
  return index;
}

}  // namespace

bool itemFromDeclaration(string_view line, const TMAP& listed, ItemType& item) {
  constexpr std::size_t shortestAddress = 4;
  const string_view address = addressInComment(line);
  if (address.size() < shortestAddress || address.size() > KeyFieldMax) return false;
  if (listed.find(address) == listed.end()) return false;
  string datatype;
  string vname;
  splitDeclaration(declarationPart(line), datatype, vname);
  if (vname.find_first_not_of('*') == string::npos) return false;
  datatype += stripStarsAndBrackets(vname);
  datatype.erase(datatype.find_last_not_of(blanks) + 1);
  if (datatype.empty()) return false;
  formKey(address, item.KeyField);
  item.DataField.setDataType(datatype.c_str());
  item.DataField.setVarName(vname.c_str());
  return true;
}

string fillIndex(const string& directory, IndexTable& table) {
  const string obj1_file = directory + "/objdump.1";
  const string objtxt_file = directory + "/objdump.txt";
  TMAP tmap;
  if (!readListedAddresses(obj1_file, tmap)) return "cannot open " + obj1_file + "to read\n";
  if (!readDeclarations(objtxt_file, tmap, table)) return "cannot open " + objtxt_file + "to read\n";
  return "";
}

void prepareIndex() { runIndex(); }

IndexTable& crtMap() {
  const string complaint = std::exchange(runIndex().complaint, "");
  std::fputs(complaint.c_str(), stderr);
  return runIndex().table;
}

// ---- The debugger's answer

namespace {

// Removes the source line number, colon and tab that gdb puts before a declaration (the tab alone when it does not know
// the line).
string_view withoutLineNumber(string_view line) {
  const std::size_t digits = std::min(line.find_first_not_of("0123456789"), line.size());
  string_view rest = line.substr(digits);
  if (digits > 0 && !rest.starts_with(":\t")) return line;
  if (digits > 0) rest.remove_prefix(1);
  if (rest.starts_with("\t")) rest.remove_prefix(1);
  return rest;
}

// Whether gdb will take a command with `vname` at its end for one command: a backslash there joins it with the next.
bool isOneLine(const string& vname) { return !vname.ends_with('\\') && vname.find('\n') == string::npos; }

// The command that asks gdb for `vname`; gdb 5 wants names without their first scopes.
string infoVarCommand(const string& vname) {
  static const char* const p = std::getenv("GDB_VERSION");
  static const string gdbversion = p != nullptr ? p : "6";
  string lvname = vname;
  if (gdbversion == "5" && vname.find("::") != string::npos) remove_one_scope(vname.c_str(), lvname);
  return "info var " + lvname + "\n";
}

// Removes the tags that gdb shows behind names whose type has one: "s[abi:cxx11]" is no array.
void removeAbiTags(string& name) {
  for (std::size_t at = name.find("[abi:"); at != string::npos; at = name.find("[abi:", at)) {
    name.erase(at, std::min(name.find(']', at), name.size() - 1) + 1 - at);
  }
}

// Takes the declared name off the end of `words`. A name may hold blanks within brackets, as that of a template
// instance or of an unnamed namespace does: words are joined until the brackets match. Where they never do, as in
// "operator->", the last word is the name.
string takeName(std::vector<string>& words) {
  string name = words.back();
  const auto count = [&name](char c) { return std::count(name.begin(), name.end(), c); };
  std::size_t rest = words.size() - 1;
  while (rest > 0 && (count(')') > count('(') || count('>') > count('<'))) name.insert(0, words[--rest] + " ");
  if (rest == 0) {
    name = words.back();
    rest = words.size() - 1;
  }
  words.resize(rest);
  return name;
}

// Where the name proper begins in a declarator such as "&r" or "T::*member": behind the last '*' or '&' that is not in
// template arguments.
std::size_t endOfMarks(const string& declarator) {
  int inside = 0;
  std::size_t end = 0;
  for (std::size_t at = 0; at < declarator.size(); ++at) {
    const char c = declarator[at];
    if (c == '<') ++inside;
    if (c == '>') --inside;
    if (inside <= 0 && (c == '*' || c == '&')) end = at + 1;
  }
  return end;
}

}  // namespace

bool typeFromDeclaration(string_view line, const string& vname, string& dtype) {
  const string data = string(withoutLineNumber(line)) + '\n';
  if (data.starts_with("File ") || data.starts_with("All variables ")) return false;
  std::vector<string> words;
  split(data, " ", words);
  if (words.size() < 2) return false;
  // The newline stays with the last word: one that ends neither in ';' nor in a dimension matches no name.
  string l_vname = takeName(words);
  removeAbiTags(l_vname);
  // What stands before the name of a reference or of a pointer to a member belongs to the type.
  string marks = l_vname.substr(0, endOfMarks(l_vname));
  if (marks.find('(') != string::npos) return false;  // a pointer to a function or an array: the rest is lost
  l_vname.erase(0, marks.size());
  marks += stripStarsAndBrackets(l_vname);
  l_vname.erase(std::min(l_vname.find(';'), l_vname.size()));
  if (remove_all_scopes(vname) != remove_all_scopes(l_vname)) return false;
  if (words.front() == "class") words.erase(words.begin());
  for (const string& word : words) dtype += word + " ";
  dtype += marks;
  dtype.erase(dtype.find_last_not_of(' ') + 1);
  return true;
}

void AnswerReader::operator()(const string& line) {
  if (ended_ || found_) return;
  if (line.ends_with('{')) {
    opening_ = line;
  } else if (opening_.empty()) {
    examine(line);
  } else if (line.starts_with('}')) {
    examine(opening_ + "..." + line);
    opening_.clear();
  }
}

void AnswerReader::examine(const string& line) {
  ended_ = line.starts_with("Non-debugging symbols");
  if (!ended_) found_ = typeFromDeclaration(line, vname_, dtype_);
}

bool getDataTypeFromGDB(const string& vname, string& dtype) {
  const char* exe = std::getenv("EXEFILE");
  if (exe == nullptr) return false;
  static GDBControl gctl(exe);
  const string command = infoVarCommand(vname);
  if (command.size() >= ToolSession::textSize || !isOneLine(vname)) return false;
  if (!gctl.isGdbActive()) gctl.startGDB();
  if (!gctl.isGdbActive()) return false;
  AnswerReader answer(vname, dtype);
  gctl.queryGDB(command, std::ref(answer));
  return answer.found();
}

// ---- The lookup

bool getVarInfoFromAddr(const char* addr, const string& vname, string& dtype) {
  static IndexTable& btTable = crtMap();
  const string_view inp(addr);
  if (inp.size() <= KeyFieldMax) {
    KeyFieldType key;
    formKey(inp, key);
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
