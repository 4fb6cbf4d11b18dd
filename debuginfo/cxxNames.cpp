#include "debuginfo/cxxNames.h"

#include <cxxabi.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdlib>
#include <memory>
#include <utility>
#include <vector>

#include "debuginfo/inventory.h"

namespace {

bool isWordChar(char c) { return std::isalnum(static_cast<unsigned char>(c)) || c == '_' || c == '$'; }

// The end of the name of an operator that starts at `at`, such as "operator<"; `at` if there is none.
std::size_t endOfOperator(std::string_view name, std::size_t at) {
  constexpr std::string_view word = "operator";
  if (!name.substr(at).starts_with(word) || (at > 0 && isWordChar(name[at - 1]))) return at;
  const std::string_view mark = name.substr(at + word.size());
  for (const std::string_view each : {"<=>", "<<=", ">>=", "->*", "<<", ">>", "<=", ">=", "->", "()", "[]", "<", ">"}) {
    if (mark.starts_with(each)) return at + word.size() + each.size();
  }
  return at;
}

// Collects the words of one integer type and orders them as gdb does.
class IntegerWords {
 public:
  // Adds `word` if it can be part of an integer type. Returns whether it can.
  bool add(std::string_view word) {
    if (word == "unsigned")
      isUnsigned_ = true;
    else if (word == "signed")
      isSigned_ = true;
    else if (word == "long")
      ++longs_;
    else if (word == "short")
      isShort_ = true;
    else if (word == "int" || word == "char" || (word == "double" && longs_ > 0))
      kind_ = word;
    else
      return false;
    ++count_;
    return true;
  }
  bool empty() const { return count_ == 0; }
  std::string text() const {
    std::string result;
    const auto add = [&result](std::string_view word) { result.append(result.empty() ? "" : " ").append(word); };
    if (isUnsigned_) add("unsigned");
    if (isSigned_ && kind_ == "char") add("signed");
    if (isShort_) add("short");
    for (int i = 0; i < longs_; ++i) add("long");
    if (kind_ == "int" || kind_.empty()) {
      if (!isShort_ && longs_ == 0) add("int");
    } else {
      add(kind_);
    }
    return result;
  }

 private:
  int count_ = 0;
  int longs_ = 0;
  bool isUnsigned_ = false, isSigned_ = false, isShort_ = false;
  std::string_view kind_;
};

// Rewrites a name character by character into gdb's spelling.
class Canonicalizer {
 public:
  std::string rewrite(std::string_view name) {
    for (std::size_t at = 0; at < name.size();) {
      if (const std::size_t end = endOfOperator(name, at); end != at) {
        addOperator(name.substr(at, end - at));
        at = end;
      } else if (isWordChar(name[at])) {
        const std::size_t begin = at;
        while (at < name.size() && isWordChar(name[at])) ++at;
        addWord(name.substr(begin, at - begin));
      } else if (const std::size_t after = endOfAddress(name, at); after != at) {
        // g++ writes "(& name)"
        addPunctuation('&');
        result_ += canonicalName(name.substr(at + 3, after - at - 4));
        at = after;
      } else if (name[at] == '\'') {
        const std::size_t literalEnd = endOfLiteral(name, at);
        addLiteral(name.substr(at, literalEnd - at));
        at = literalEnd;
      } else {
        addPunctuation(name[at++]);
      }
    }
    endInteger();
    return std::move(result_);
  }

 private:
  struct Bracket {
    bool isList;             // encloses arguments or parameters
    bool atStart = true;     // at the start of an argument or parameter
    std::string qualifiers;  // found there, to be moved after its type
  };

  // The end of the character literal that starts at `at`.
  static std::size_t endOfLiteral(std::string_view name, std::size_t at) {
    for (++at; at < name.size() && name[at] != '\''; ++at) {
      if (name[at] == '\\') ++at;
    }
    return std::min(at + 1, name.size());
  }

  // gdb shows the type of a character literal that is a template argument, if it can parse the compiler's spelling.
  void addLiteral(std::string_view literal) {
    constexpr std::size_t longest = std::string_view("'\\000'").size();
    endInteger();
    const bool typed = !result_.empty() && (result_.back() == ')' || isWordChar(result_.back()));
    if (!typed && literal.size() <= longest && !literal.starts_with("'\\x")) result_ += "(char)";
    result_ += literal;
    if (!brackets_.empty()) brackets_.back().atStart = false;
  }

  void addOperator(std::string_view text) {
    endInteger();
    result_ += text;
    if (!brackets_.empty()) brackets_.back().atStart = false;
  }

  // The end of an address "(& name)" that starts at `at`; `at` if there is none.
  static std::size_t endOfAddress(std::string_view name, std::size_t at) {
    const std::size_t end = name.substr(at).starts_with("(& ") ? name.find(')', at) : std::string_view::npos;
    return end == std::string_view::npos ? at : end + 1;
  }

  bool inList() const { return !brackets_.empty() && brackets_.back().isList; }

  void addWord(std::string_view word) {
    if (integer_.add(word)) {
      spaceAfterInteger_ = false;
    } else if (inList() && brackets_.back().atStart && (word == "const" || word == "volatile")) {
      brackets_.back().qualifiers.append(" ").append(word);
      return;
    } else {
      endInteger();
      if (inList() && result_.ends_with('*') && (word == "const" || word == "volatile")) result_ += ' ';
      // gdb shows suffixes of numbers in lower case: "4ul".
      const bool number = std::isdigit(static_cast<unsigned char>(word[0])) != 0;
      for (const char c : word) result_ += number ? static_cast<char>(std::tolower(static_cast<unsigned char>(c))) : c;
    }
    if (!brackets_.empty()) brackets_.back().atStart = false;
  }

  void addPunctuation(char c) {
    if (c == ' ' && !integer_.empty()) {
      spaceAfterInteger_ = true;
      return;
    }
    if (c == ' ' && inList() && brackets_.back().atStart) {
      if (brackets_.back().qualifiers.empty()) result_ += c;
      return;
    }
    const bool opensDeclarator = c == '(' && inList() && !brackets_.back().atStart;
    const bool endsType = c == '*' || c == '&' || c == ',' || c == '>' || c == ')' || opensDeclarator;
    if (endsType) spaceAfterInteger_ = false;
    endInteger();
    if (endsType && inList()) endType();
    if (opensDeclarator && !result_.ends_with(')') && !result_.ends_with('*')) result_ += ' ';
    if (c == '(' && result_.ends_with("* ")) result_.pop_back();
    if (c == '>' && result_.ends_with('>') && !result_.ends_with("->")) result_ += ' ';
    if (c == '[' && !brackets_.empty() && !result_.ends_with(' ') && !result_.ends_with(']')) result_ += ' ';
    if (c == '<' || c == '(') brackets_.push_back({.isList = c == '<' || result_.ends_with(')'), .qualifiers = {}});
    result_ += c;
    if ((c == '>' || c == ')') && !brackets_.empty()) brackets_.pop_back();
    if (c == ',' && !brackets_.empty()) brackets_.back().atStart = true;
  }

  // Moves the qualifiers found before a type after it.
  void endType() {
    while (result_.ends_with(' ')) result_.pop_back();
    result_ += std::exchange(brackets_.back().qualifiers, "");
  }

  void endInteger() {
    if (integer_.empty()) return;
    result_ += integer_.text();
    if (spaceAfterInteger_) result_ += ' ';
    integer_ = {};
    spaceAfterInteger_ = false;
  }

  std::string result_;
  IntegerWords integer_;
  bool spaceAfterInteger_ = false;
  std::vector<Bracket> brackets_;
};

// Whether the parenthesis at `at` belongs to a declarator, "(*)" or "(T::*)", or to "(anonymous namespace)".
bool isDeclarator(std::string_view name, std::size_t at) {
  const std::string_view within = name.substr(at + 1, name.find(')', at) - at - 1);
  return within.starts_with('*') || within.starts_with('&') || within.ends_with("::*") ||
         within == "anonymous namespace";
}

// Whether gdb can parse `name`. It leaves other names unchanged: those with 128-bit integers, empty argument lists, and
// function types as arguments, "F<int(char)>".
bool isParsedByGdb(std::string_view name) {
  if (name.find("__int128") != std::string_view::npos || name.find("<>") != std::string_view::npos) return false;
  for (std::size_t at = name.find('<'); at < name.size(); ++at) {
    if (name[at] != '(') continue;
    const std::size_t before = name.find_last_not_of(' ', at - 1);
    const bool followsType = isWordChar(name[before]) || name[before] == '>';
    if (followsType && !isDeclarator(name, at)) return false;
  }
  return true;
}

// The demangled symbol `name`; empty if it is not a mangled name. Suffixes that only make a symbol unique (".0") are
// ignored.
std::string demangled(std::string name) {
  if (!name.starts_with("_Z")) return "";
  while (true) {
    const std::unique_ptr<char, void (*)(void*)> full(abi::__cxa_demangle(name.c_str(), nullptr, nullptr, nullptr),
                                                      std::free);
    if (full) return full.get();
    const std::size_t suffix = name.rfind('.');
    if (suffix == std::string::npos) return "";
    name.resize(suffix);
  }
}

// The name in the text of a function: "f<int>" in "void f<int>(int) const".
std::string_view functionName(std::string_view text) {
  std::size_t begin = 0;
  std::size_t end = text.size();
  int open = 0;
  for (std::size_t at = 0; at < text.size(); ++at) {
    const char c = text[at];
    if (c == '(' && open == 0 && !text.substr(0, at).ends_with("operator")) end = std::min(end, at);
    if (c == ' ' && open == 0 && at < end && !text.substr(0, at).ends_with("operator")) begin = at + 1;
    if (c == '<' || c == '(' || c == '[' || c == '{') ++open;
    if (c == '>' || c == ')' || c == ']' || c == '}') --open;
  }
  return text.substr(begin, end - begin);
}

// The scopes `parts` of a demangled symbol as a prefix of a name; empty if there are none.
std::optional<std::string> joinedScopes(const std::vector<std::string_view>& parts) {
  std::string result;
  for (const std::string_view each : parts) {
    const std::string_view part = each.starts_with('(') ? each : functionName(each);
    result.append(withoutTags(canonicalName(part))).append("::");
  }
  return result.empty() ? std::nullopt : std::optional(result);
}

}  // namespace

std::string canonicalName(std::string_view name) {
  // Fast path: most names are a single word that is not an integer type.
  if (std::all_of(name.begin(), name.end(), isWordChar) && !IntegerWords().add(name)) return std::string(name);
  if (!isParsedByGdb(name)) return std::string(name);
  return Canonicalizer().rewrite(name);
}

std::string withoutScopes(std::string_view name) {
  std::string result;
  std::vector<std::size_t> starts{0};  // where the current name starts, for each open bracket
  for (std::size_t at = 0; at < name.size(); ++at) {
    if (const std::size_t end = endOfOperator(name, at); end != at) {
      result += name.substr(at, end - at);
      at = end - 1;
      continue;
    }
    const char c = name[at];
    if (c == ':' && name.substr(at).starts_with("::")) {
      // A pointer to a member, "C::*", keeps its class.
      if (name.substr(at).starts_with("::*")) {
        result += "::";
      } else {
        result.resize(starts.back());
      }
      ++at;
      continue;
    }
    result += c;
    if (c == '<' || c == '(' || c == '[' || c == '{') {
      starts.push_back(result.size());
    } else if ((c == '>' || c == ')' || c == ']' || c == '}') && starts.size() > 1) {
      starts.pop_back();
    } else if (c == ' ' || c == ',' || c == '*' || c == '&') {
      starts.back() = result.size();
    }
  }
  return result;
}

std::vector<std::string_view> scopesOf(std::string_view name) {
  std::vector<std::string_view> parts;
  std::size_t begin = 0;
  int open = 0;
  for (std::size_t at = 0; at < name.size(); ++at) {
    at = endOfOperator(name, at);
    const char c = at < name.size() ? name[at] : '\0';
    if (c == '<' || c == '(' || c == '[' || c == '{') ++open;
    if (c == '>' || c == ')' || c == ']' || c == '}') --open;
    if (c != ':' || open > 0 || !name.substr(at).starts_with("::")) continue;
    parts.push_back(name.substr(begin, at - begin));
    begin = ++at + 1;
  }
  parts.push_back(name.substr(begin));
  return parts;
}

std::string declare(std::string_view type, std::string_view name) {
  const std::string_view outer = scopesOf(type).back();
  const bool apart = type.find("::*") != std::string_view::npos || outer.find_first_of("(&") != std::string_view::npos;
  std::string result(type);
  if (apart) return result.append(" ").append(name);
  std::size_t end = type.size();
  while (end > 0 && type[end - 1] == ']') end = type.rfind('[', end - 1);
  const std::string_view suffix = type.substr(end);
  result.resize(end);
  while (result.ends_with(' ')) result.pop_back();
  if (!result.ends_with('*')) result += ' ';
  return result.append(name).append(suffix);
}

std::string withoutTags(std::string name) {
  for (std::size_t begin = 0; (begin = name.find("[abi:", begin)) != std::string::npos;) {
    const std::size_t end = name.find(']', begin);
    name.erase(begin, end == std::string::npos ? end : end - begin + 1);
  }
  return name;
}

std::string templateArguments(std::string_view name, const char* linkageName) {
  if (linkageName == nullptr || name.find('<') != std::string_view::npos) return "";
  const std::string full = demangled(linkageName);
  const std::size_t at = full.rfind(std::string(name).append("<"));
  return at != std::string::npos && full.ends_with('>') ? canonicalName(full.substr(at + name.size())) : "";
}

std::optional<std::string> scopesInSymbol(std::string_view symbol, std::string_view name) {
  std::string full = demangled(std::string(symbol));
  if (full.empty()) {
    // In C: "function.name", followed by a number if there are several.
    const std::size_t dot = symbol.find('.');
    if (dot == 0 || dot == std::string_view::npos || !symbol.substr(dot + 1).starts_with(name)) return {};
    return std::string(symbol.substr(0, dot)).append("::");
  }
  std::vector<std::string_view> parts = scopesOf(full);
  if (!parts.back().starts_with(name.substr(0, name.find('<')))) return {};
  parts.pop_back();
  return joinedScopes(parts);
}

std::optional<std::string> scopesInFunction(const char* linkageName) {
  const std::string full = linkageName != nullptr ? demangled(linkageName) : "";
  return full.empty() ? std::nullopt : joinedScopes(scopesOf(full));
}

std::string variableOfSymbol(std::string_view symbol) {
  // Symbols generated by compilers, such as vtables and guards, and symbols of entities within functions.
  for (const std::string_view other : {"_ZT", "_ZG", "_ZZ"}) {
    if (symbol.starts_with(other)) return "";
  }
  return symbol.starts_with("_Z") ? withoutTags(canonicalName(demangled(std::string(symbol)))) : "";
}

std::string bindingInSymbol(std::string_view symbol) {
  const std::size_t begin = symbol.starts_with("_Z") ? symbol.find("DC") : std::string_view::npos;
  if (begin == std::string_view::npos) return "";
  std::string names;
  std::string_view rest = symbol.substr(begin + 2);
  while (!rest.empty() && std::isdigit(static_cast<unsigned char>(rest.front())) != 0) {
    std::size_t length = 0;
    const auto end = std::from_chars(rest.data(), rest.data() + rest.size(), length).ptr;
    rest.remove_prefix(static_cast<std::size_t>(end - rest.data()));
    names.append(names.empty() ? "[" : ", ").append(rest.substr(0, length));
    rest.remove_prefix(std::min(length, rest.size()));
  }
  return names.empty() ? "" : names + "]";
}
