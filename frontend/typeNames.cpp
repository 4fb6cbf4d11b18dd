#include "typeNames.h"

#include <dwarf.h>

#include <algorithm>
#include <cctype>
#include <utility>

#include "dwarfEntries.h"
#include "io.h"

namespace {

bool isWordChar(char c) { return std::isalnum(static_cast<unsigned char>(c)) || c == '_' || c == '$'; }

// The words of one integer type, as gdb orders them.
class IntegerWords {
 public:
  // Takes `word` if it can be part of an integer type.
  bool take(std::string_view word) {
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
      if (isWordChar(name[at])) {
        const std::size_t begin = at;
        while (at < name.size() && isWordChar(name[at])) ++at;
        takeWord(name.substr(begin, at - begin));
      } else if (name[at] == '\'') {
        const std::size_t end = endOfLiteral(name, at);
        takeLiteral(name.substr(at, end - at));
        at = end;
      } else {
        takeMark(name[at++]);
      }
    }
    endInteger();
    return std::move(result_);
  }

 private:
  struct Bracket {
    char open;
    bool atStart = true;     // of an argument
    std::string qualifiers;  // found there, to be put behind the argument's first type
  };

  // The position behind the character literal that begins at `at`.
  static std::size_t endOfLiteral(std::string_view name, std::size_t at) {
    for (++at; at < name.size() && name[at] != '\''; ++at) {
      if (name[at] == '\\') ++at;
    }
    return std::min(at + 1, name.size());
  }

  // gdb shows the type of a character that is a template argument.
  void takeLiteral(std::string_view literal) {
    endInteger();
    if (!result_.ends_with(')')) result_ += "(char)";
    result_ += literal;
    if (!brackets_.empty()) brackets_.back().atStart = false;
  }

  bool inTemplate() const { return !brackets_.empty() && brackets_.back().open == '<'; }

  void takeWord(std::string_view word) {
    if (integer_.take(word)) {
      blankAfterInteger_ = false;
    } else if (inTemplate() && brackets_.back().atStart && (word == "const" || word == "volatile")) {
      brackets_.back().qualifiers.append(" ").append(word);
      return;
    } else {
      endInteger();
      // The suffix of a number: "4UL" is shown as "4ul".
      const bool number = std::isdigit(static_cast<unsigned char>(word[0])) != 0;
      for (const char c : word) result_ += number ? static_cast<char>(std::tolower(static_cast<unsigned char>(c))) : c;
    }
    if (!brackets_.empty()) brackets_.back().atStart = false;
  }

  void takeMark(char c) {
    if (c == ' ' && !integer_.empty()) {
      blankAfterInteger_ = true;
      return;
    }
    if (c == ' ' && inTemplate() && brackets_.back().atStart) {
      if (brackets_.back().qualifiers.empty()) result_ += c;
      return;
    }
    const bool endsType = c == '*' || c == '&' || c == ',' || c == '>';
    if (endsType) blankAfterInteger_ = false;
    endInteger();
    if (endsType && inTemplate()) {
      while (result_.ends_with(' ')) result_.pop_back();
      result_ += std::exchange(brackets_.back().qualifiers, "");
    }
    if (c == '>' && result_.ends_with('>') && !result_.ends_with("->")) result_ += ' ';
    result_ += c;
    if (c == '<' || c == '(') brackets_.push_back({.open = c, .qualifiers = {}});
    if ((c == '>' || c == ')') && !brackets_.empty()) brackets_.pop_back();
    if (c == ',' && !brackets_.empty()) brackets_.back().atStart = true;
  }

  void endInteger() {
    if (integer_.empty()) return;
    result_ += integer_.text();
    if (blankAfterInteger_) result_ += ' ';
    integer_ = {};
    blankAfterInteger_ = false;
  }

  std::string result_;
  IntegerWords integer_;
  bool blankAfterInteger_ = false;
  std::vector<Bracket> brackets_;
};

}  // namespace

std::string canonicalName(std::string_view name) {
  // gdb leaves these as they are.
  if (name.find("__int128") != std::string_view::npos) return std::string(name);
  return Canonicalizer().rewrite(name);
}

std::string withoutScopes(std::string_view name) {
  std::string result;
  std::vector<std::size_t> starts{0};  // where the name at work began, for each open bracket
  for (std::size_t at = 0; at < name.size(); ++at) {
    const char c = name[at];
    if (c == ':' && name.substr(at).starts_with("::")) {
      // The '*' of a pointer to a member needs its class.
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

std::vector<std::string> Scopes::path(Id scope) const {
  std::vector<std::string> names;
  for (; scope != global; scope = scopes_[scope - 1].parent) names.emplace_back(scopes_[scope - 1].name);
  std::reverse(names.begin(), names.end());
  return names;
}

std::string Scopes::prefix(Id scope) const {
  std::string text;
  for (const std::string& name : path(scope)) text += name + "::";
  return text;
}

std::string TypeText::type() const {
  std::string around = prefix;
  around.erase(around.find_last_not_of(' ') + 1);
  around += suffix;
  return around.empty() ? base : base + " " + around;
}

std::string TypeText::declare(const std::string& name) const {
  return apart ? type() + " " + name : base + " " + prefix + name + suffix;
}

// Builds the text of one type.
struct TypeNames::Builder {
  const Scopes& scopes;
  bool qualified;
  bool cxx;
  int& budget;  // types that may still be visited: functions that take functions can need exponentially many
  TypeText text{};
  bool damaged = false;  // or too large for any table

  static constexpr int deepest = 64;  // types within types; a longer chain goes in circles
  static constexpr int mostTypes = static_cast<int>(LineReader::maxLength);  // each puts a character on the line

  // What stands behind a '*' or before a base type: "const volatile".
  struct Qualifiers {
    bool isConst = false, isVolatile = false, isRestrict = false, isAtomic = false;

    bool take(int tag) {
      if (tag == DW_TAG_const_type)
        isConst = true;
      else if (tag == DW_TAG_volatile_type)
        isVolatile = true;
      else if (tag == DW_TAG_restrict_type)
        isRestrict = true;
      else if (tag == DW_TAG_atomic_type)
        isAtomic = true;
      else
        return tag == DW_TAG_packed_type || tag == DW_TAG_shared_type;
      return true;
    }
    std::string words(bool inCxx) const {
      std::string result;
      const auto add = [&result](const char* word) { result.append(result.empty() ? "" : " ").append(word); };
      if (isConst) add("const");
      if (isVolatile) add("volatile");
      if (isRestrict) add(inCxx ? "__restrict__" : "restrict");
      if (isAtomic) add(inCxx ? "std::atomic" : "_Atomic");
      return result;
    }
  };

  // Adds the text of the type that `of` has (void when none). `inPointer`: it is what a pointer points to, so that
  // functions and arrays need brackets around it. `blankBehind`: more follows behind qualifiers of a pointer.
  void addTypeOf(Dwarf_Die& of, int depth, bool inPointer, bool blankBehind) {
    Dwarf_Die type;
    if (referredDie(of, DW_AT_type, type)) {
      add(type, depth + 1, inPointer, blankBehind);
    } else if (dwarf_hasattr(&of, DW_AT_type)) {
      damaged = true;
    } else {
      text.base = "void";
    }
  }

  void add(Dwarf_Die type, int depth, bool inPointer, bool blankBehind) {
    Qualifiers qualifiers;
    while (qualifiers.take(dwarf_tag(&type))) {
      Dwarf_Die inner;
      if (++depth > deepest) break;
      if (!referredDie(type, DW_AT_type, inner)) {
        text.base = qualifiers.words(cxx) + " void";
        return;
      }
      type = inner;
    }
    if (depth > deepest || --budget < 0) damaged = true;
    if (damaged) return;
    switch (dwarf_tag(&type)) {
      case DW_TAG_pointer_type:
        addPointer(type, depth, "*", qualifiers, blankBehind);
        break;
      case DW_TAG_reference_type:
        addPointer(type, depth, "&", qualifiers, blankBehind);
        break;
      case DW_TAG_rvalue_reference_type:
        addPointer(type, depth, "&&", qualifiers, blankBehind);
        break;
      case DW_TAG_ptr_to_member_type:
        addMemberPointer(type, depth);
        break;
      case DW_TAG_subroutine_type:
        addFunction(type, depth, inPointer);
        break;
      case DW_TAG_array_type:
        addArray(type, depth, inPointer, blankBehind, qualifiers);
        break;
      default:
        addBase(type, qualifiers);
    }
  }

  void addPointer(Dwarf_Die& type, int depth, const char* mark, const Qualifiers& qualifiers, bool blankBehind) {
    const bool isReference = *mark == '&';
    addTypeOf(type, depth, true, !isReference);
    if (isReference) text.apart = true;
    text.prefix += mark;
    if (const std::string words = qualifiers.words(cxx); !words.empty()) {
      text.prefix += " " + words + (blankBehind ? " " : "");
    }
  }

  void addMemberPointer(Dwarf_Die& type, int depth) {
    Dwarf_Die target;
    const bool toFunction = referredDie(type, DW_AT_type, target) && dwarf_tag(&target) == DW_TAG_subroutine_type;
    addTypeOf(type, depth, toFunction, false);
    Dwarf_Die of;
    if (!referredDie(type, DW_AT_containing_type, of))
      damaged = true;
    else
      text.prefix += typeName(of) + "::*";
    text.apart = true;
  }

  void addFunction(Dwarf_Die& type, int depth, bool inPointer) {
    text.apart = true;
    text.suffix += (inPointer ? ")" : "") + parameters(type, depth);
    addTypeOf(type, depth, false, false);
    if (inPointer) text.prefix += "(";
  }

  std::string parameters(Dwarf_Die& type, int depth) {
    std::string list;
    Dwarf_Die child;
    for (int more = dwarf_child(&type, &child); more == 0 && !damaged; more = dwarf_siblingof(&child, &child)) {
      if (dwarf_tag(&child) == DW_TAG_unspecified_parameters) {
        list += list.empty() ? "..." : ", ...";
      } else if (dwarf_tag(&child) == DW_TAG_formal_parameter) {
        Builder parameter{scopes, qualified, cxx, budget};
        parameter.addTypeOf(child, depth, false, false);
        damaged = parameter.damaged;
        list += (list.empty() ? "" : ", ") + parameter.text.type();
      }
    }
    const bool saysNothing = (list.empty() || list == "...") && !cxx && !dwarf_hasattr(&type, DW_AT_prototyped);
    if (saysNothing) return "()";
    return "(" + (list.empty() ? "void" : list) + ")";
  }

  void addVector(Dwarf_Die& type, int depth, const Qualifiers& qualifiers) {
    Dwarf_Die dimension;
    const std::string words = qualifiers.words(cxx);
    addTypeOf(type, depth, false, false);
    if (dwarf_child(&type, &dimension) != 0) return;
    text.base =
        (words.empty() ? "" : words + " ") + text.base + " __attribute__ ((vector_size(" + extent(dimension) + ")))";
  }

  void addArray(Dwarf_Die& type, int depth, bool inPointer, bool blankBehind, const Qualifiers& qualifiers) {
    if (dwarf_hasattr(&type, DW_AT_GNU_vector)) return addVector(type, depth, qualifiers);
    if (inPointer) text.apart = true;
    text.suffix += inPointer ? ")" : "";
    Dwarf_Die child;
    for (int more = dwarf_child(&type, &child); more == 0; more = dwarf_siblingof(&child, &child)) {
      if (dwarf_tag(&child) == DW_TAG_subrange_type) text.suffix += "[" + extent(child) + "]";
    }
    addTypeOf(type, depth, false, blankBehind);
    // Qualifiers of an array are those of its elements, which mostly have them anyway.
    const std::string words = qualifiers.words(cxx) + " ";
    if (words != " " && text.prefix.empty() && !text.base.starts_with(words)) text.base.insert(0, words);
    if (inPointer) text.prefix += "(";
  }

  static std::string extent(Dwarf_Die& dimension) {
    const auto number = arrayExtent(dimension);
    return number ? std::to_string(*number) : "";
  }

  void addBase(Dwarf_Die& type, const Qualifiers& qualifiers) {
    const std::string words = qualifiers.words(cxx);
    text.base = (words.empty() ? "" : words + " ") + keyword(type) + typeName(type);
  }

  std::string keyword(Dwarf_Die& type) const {
    const bool named = dwarf_diename(&type) != nullptr;
    if (cxx && named) return "";
    switch (dwarf_tag(&type)) {
      case DW_TAG_structure_type:
        return "struct ";
      case DW_TAG_class_type:
        return "class ";
      case DW_TAG_union_type:
        return "union ";
      case DW_TAG_enumeration_type:
        return "enum ";
      default:
        return "";
    }
  }

  std::string typeName(Dwarf_Die& type) {
    // The definition of a class in another unit knows its scope, a declaration here may too.
    const char* name = dwarf_diename(&type);
    // A type whose unit cannot be found has a name that is not known.
    if (name == nullptr && dwarf_hasattr(&type, DW_AT_signature)) damaged = true;
    if (name == nullptr) return "{...}";
    std::string canonical = canonicalName(name);
    if (!cxx) return canonical;
    if (!qualified) return withoutScopes(canonical);
    return scopes.prefix(scopes.of(type)) + canonical;
  }
};

const std::optional<TypeText>& TypeNames::spell(const Dwarf_Die& type, bool cxx) {
  const auto [known, isNew] = known_[cxx ? 1 : 0].try_emplace(type.addr);
  if (!isNew) return known->second;
  int budget = Builder::mostTypes;
  Builder builder{scopes_, qualified_, cxx, budget};
  builder.add(type, 0, false, true);
  if (!builder.damaged) known->second = builder.text;
  return known->second;
}
