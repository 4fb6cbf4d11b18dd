#include "gdbAnswer.h"

#include <algorithm>
#include <cstddef>
#include <vector>

#include "typeText.h"

using std::string;
using std::string_view;

namespace {

bool isFileHeading(string_view line) { return line.starts_with("File "); }

// Removes the source line number, colon and tab that gdb prints before a declaration (only the tab if the line is
// unknown).
string_view withoutLineNumber(string_view line) {
  const std::size_t digits = std::min(line.find_first_not_of("0123456789"), line.size());
  string_view rest = line.substr(digits);
  if (digits > 0 && !rest.starts_with(":\t")) return line;
  if (digits > 0) rest.remove_prefix(1);
  if (rest.starts_with("\t")) rest.remove_prefix(1);
  return rest;
}

// Removes the ABI tags that gdb prints after names: "s[abi:cxx11]" is not an array.
void removeAbiTags(string& name) {
  for (std::size_t at = name.find("[abi:"); at != string::npos; at = name.find("[abi:", at)) {
    name.erase(at, std::min(name.find(']', at), name.size() - 1) + 1 - at);
  }
}

// Removes the declared name from the end of `words`. It may have blanks within brackets, like that of a template
// instance or of an unnamed namespace: words are joined until the brackets match. If they never match, as in
// "operator->", the name is the last word.
string popDeclaredName(std::vector<string>& words) {
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

// Length of the operators at the start of a declarator: '*', '&', and "T::*" for a pointer to member.
std::size_t ptrOperatorLength(string_view declarator) {
  int inside = 0;
  std::size_t end = 0;
  for (std::size_t at = 0; at < declarator.size(); ++at) {
    const char c = declarator[at];
    if (c == '<' || c == '(') ++inside;
    if (c == '>' || c == ')') --inside;
    if (inside != 0 || (c != '*' && c != '&')) continue;
    if (at != end && !declarator.substr(0, at).ends_with("::")) break;
    end = at + 1;
  }
  return end;
}

}  // namespace

bool typeFromDeclaration(string_view line, const string& vname, string& dtype) {
  if (isFileHeading(line) || line.starts_with("All variables ")) return false;
  const string data = string(withoutLineNumber(line)) + '\n';
  std::vector<string> words;
  split(data, " ", words);
  if (words.size() < 2 || words.front().starts_with('}')) return false;
  // The newline stays with the last word: one that ends neither in ';' nor in a dimension matches no name.
  string l_vname = popDeclaredName(words);
  removeAbiTags(l_vname);
  // The operators before the name belong to the type.
  string ptrOperators = l_vname.substr(0, ptrOperatorLength(l_vname));
  l_vname.erase(0, ptrOperators.size());
  ptrOperators += stripStarsAndBrackets(l_vname);
  l_vname.erase(std::min(l_vname.find(';'), l_vname.size()));
  if (remove_all_scopes(vname) != remove_all_scopes(l_vname)) return false;
  if (words.front() == "class") words.erase(words.begin());
  for (const string& word : words) dtype += word + " ";
  dtype += ptrOperators;
  dtype.erase(dtype.find_last_not_of(' ') + 1);
  return true;
}

void AnswerReader::operator()(string_view line) {
  if (ended_ || found_) return;
  // These end a declaration that lacks its closing brace.
  if (line.empty() || isFileHeading(line)) firstLine_.clear();
  if (!firstLine_.empty()) {
    depth_ += std::count(line.begin(), line.end(), '{') - std::count(line.begin(), line.end(), '}');
    if (depth_ > 0) return;
    examine(firstLine_ + "..." + string(line.substr(line.rfind('}'))));
    firstLine_.clear();
  } else if (line.ends_with('{')) {
    firstLine_ = line;
    depth_ = 1;
  } else {
    examine(line);
  }
}

void AnswerReader::examine(string_view line) {
  ended_ = line.starts_with("Non-debugging symbols");
  if (!ended_) found_ = typeFromDeclaration(line, vname_, dtype_);
}
