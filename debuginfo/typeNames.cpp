#include "debuginfo/typeNames.h"

#include <dwarf.h>

#include "debuginfo/cxxNames.h"
#include "debuginfo/typeSizes.h"

namespace {

bool isCxx(const Die& unit) {
  const std::uint64_t language = unit ? unit.number(DW_AT_language).value_or(0) : 0;
  return language == DW_LANG_C_plus_plus || language == DW_LANG_C_plus_plus_03 || language == DW_LANG_C_plus_plus_11 ||
         language == DW_LANG_C_plus_plus_14;
}

// The qualifiers of a type, "const volatile": they follow a '*' and precede a base type.
struct Qualifiers {
  bool isConst = false, isVolatile = false, isRestrict = false, isAtomic = false;

  // Adds the qualifier `tag`. False if it is not one.
  bool add(int tag) {
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

// How a type is used, which decides where its text needs brackets and spaces.
struct TypeUse {
  bool isPointee = false;   // a pointer points to it: functions and arrays need parentheses
  bool spaceAfter = false;  // more text follows the qualifiers of a pointer
};

}  // namespace

// Builds the text of one type.
struct TypeNames::Builder {
  Scopes& scopes;
  bool cxx;
  int& budget;           // remaining types to visit: nested function types can grow exponentially
  std::string base{};    // "const char"
  std::string prefix{};  // "* const "; the text between base and name
  std::string suffix{};  // "[3]", ")(int)"; the text after the name
  bool damaged = false;  // or too many types

  static constexpr int mostTypes = 5000;  // in one text

  std::string type() const {
    std::string around = prefix;
    around.erase(around.find_last_not_of(' ') + 1);
    // A qualifier is separated by a space: "* const [3]".
    if (!around.empty() && suffix.starts_with('[') && around.back() != '*') around += ' ';
    around += suffix;
    return around.empty() ? base : base + " " + around;
  }

  // Adds the text of the type of `of`, void if it has none. `outer`: qualifiers of the array whose element type it is;
  // they apply to the elements.
  void addTypeOf(const Die& of, int depth, const TypeUse& use, const Qualifiers& outer = {}) {
    const Die type = of.reference(DW_AT_type);
    if (type) {
      add(type, depth + 1, use, outer);
    } else if (of.has(DW_AT_type)) {
      damaged = true;
    } else {
      base = (outer.words(cxx).empty() ? "" : outer.words(cxx) + " ") + "void";
    }
  }

  void add(Die type, int depth, const TypeUse& use, Qualifiers qualifiers) {
    while (qualifiers.add(type.tag())) {
      if (++depth > maxTypeDepth) break;
      const Die inner = type.reference(DW_AT_type);
      if (!inner) return addTypeOf(type, depth, {}, qualifiers);
      type = inner;
    }
    if (depth > maxTypeDepth || --budget < 0) damaged = true;
    if (damaged) return;
    switch (type.tag()) {
      case DW_TAG_pointer_type:
        addPointer(type, depth, "*", qualifiers, use);
        break;
      case DW_TAG_reference_type:
        addPointer(type, depth, "&", qualifiers, use);
        break;
      case DW_TAG_rvalue_reference_type:
        addPointer(type, depth, "&&", qualifiers, use);
        break;
      case DW_TAG_ptr_to_member_type:
        addMemberPointer(type, depth, qualifiers);
        break;
      case DW_TAG_subroutine_type:
        addFunction(type, depth, use);
        break;
      case DW_TAG_array_type:
        addArray(type, depth, use, qualifiers);
        break;
      default:
        addBase(type, qualifiers);
    }
  }

  void addPointer(const Die& type, int depth, const char* mark, const Qualifiers& qualifiers, const TypeUse& use) {
    const bool isReference = *mark == '&';
    addTypeOf(type, depth, {.isPointee = true, .spaceAfter = !isReference});
    prefix += mark;
    if (const std::string words = qualifiers.words(cxx); !words.empty()) {
      prefix += " " + words + (use.spaceAfter ? " " : "");
    }
  }

  void addMemberPointer(const Die& type, int depth, const Qualifiers& qualifiers) {
    const Die target = type.reference(DW_AT_type);
    addTypeOf(type, depth, {.isPointee = target && target.tag() == DW_TAG_subroutine_type});
    const Die of = type.reference(DW_AT_containing_type);
    if (!of) damaged = true;
    if (of) prefix += typeName(of) + "::*";
    if (const std::string words = qualifiers.words(cxx); !words.empty()) prefix += " " + words;
  }

  void addFunction(const Die& type, int depth, const TypeUse& use) {
    suffix += (use.isPointee ? ")" : "") + parameters(type, depth);
    addTypeOf(type, depth, {});
    if (use.isPointee) prefix += "(";
  }

  std::string parameters(const Die& type, int depth) {
    std::string list;
    for (const Die& child : type.children()) {
      if (damaged) break;
      if (child.tag() == DW_TAG_unspecified_parameters) {
        list += list.empty() ? "..." : ", ...";
      } else if (child.tag() == DW_TAG_formal_parameter) {
        Builder parameter{scopes, cxx, budget};
        parameter.addTypeOf(child, depth, {});
        // gdb shows the pointer this as const.
        if (cxx && child.flag(DW_AT_artificial) && parameter.prefix == "*") parameter.prefix += " const";
        damaged = parameter.damaged;
        list += (list.empty() ? "" : ", ") + parameter.type();
      }
    }
    // With link-time optimization, C units can refer to types in C++ units, which have no DW_AT_prototyped.
    const bool saysNothing =
        (list.empty() || list == "...") && !cxx && !type.has(DW_AT_prototyped) && !isCxx(type.unit());
    if (saysNothing) return "()";
    return "(" + (list.empty() ? "void" : list) + ")";
  }

  void addVector(const Die& type, int depth, const Qualifiers& qualifiers) {
    addTypeOf(type, depth, {}, qualifiers);
    for (const Die& dimension : type.children()) {
      if (dimension.tag() == DW_TAG_subrange_type) base += " __attribute__ ((vector_size(" + extent(dimension) + ")))";
    }
  }

  void addArray(const Die& type, int depth, const TypeUse& use, const Qualifiers& qualifiers) {
    if (type.has(DW_AT_GNU_vector)) return addVector(type, depth, qualifiers);
    suffix += use.isPointee ? ")" : "";
    for (const Die& child : type.children()) {
      if (child.tag() == DW_TAG_subrange_type || child.tag() == DW_TAG_enumeration_type)
        suffix += "[" + extent(child) + "]";
    }
    addTypeOf(type, depth, {.spaceAfter = use.spaceAfter}, qualifiers);
    if (use.isPointee) prefix += "(";
  }

  static std::string extent(const Die& dimension) {
    const auto number = arrayExtent(dimension);
    return number ? std::to_string(*number) : "";
  }

  void addBase(const Die& type, const Qualifiers& qualifiers) {
    const std::string words = qualifiers.words(cxx);
    base = (words.empty() ? "" : words + " ") + keyword(type) + typeName(type);
  }

  std::string keyword(const Die& type) const {
    if (cxx && firstName(descriptions(type)) != nullptr) return "";
    switch (type.tag()) {
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

  std::string typeName(const Die& type) {
    const std::vector<Die> chain = descriptions(type);
    const char* name = firstName(chain);
    // Without a name, it is a stub whose type unit cannot be found, an unnamed structure or the like, or a type that C
    // does not have, such as a Fortran string.
    const bool mayHaveNone = type.tag() == DW_TAG_structure_type || type.tag() == DW_TAG_class_type ||
                             type.tag() == DW_TAG_union_type || type.tag() == DW_TAG_enumeration_type;
    if (name == nullptr && (type.has(DW_AT_signature) || !mayHaveNone)) damaged = true;
    if (name == nullptr) return "{...}";
    std::string canonical = canonicalName(name);
    if (!cxx) return canonical;
    // The DIE at the end of the chain, the declaration if there is one, is the one within the scopes.
    return scopes.ofType(chain.back()) + canonical;
  }
};

std::string_view TypeNames::spell(const Die& type, bool cxx) {
  const auto [known, isNew] = spelled_[cxx ? 1 : 0].try_emplace(type.id());
  if (!isNew) return known->second;
  int budget = Builder::mostTypes;
  Builder builder{scopes_, cxx, budget};
  builder.add(type, 0, {.spaceAfter = true}, {});
  if (!builder.damaged) known->second = texts_.intern(builder.type());
  return known->second;
}
