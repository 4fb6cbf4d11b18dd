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

}  // namespace

// Builds the text of one type.
struct TypeNames::Builder {
  Scopes& scopes;
  bool cxx;
  int& budget;           // types that may still be visited: functions that take functions can need exponentially many
  std::string base{};    // "const char"
  std::string prefix{};  // "* const "; what stands between base and name
  std::string suffix{};  // "[3]", ")(int)"; what stands behind the name
  bool damaged = false;
  bool endless = false;

  static constexpr int deepest = 64;      // types within types; a longer chain goes in circles
  static constexpr int mostTypes = 5000;  // in one text

  std::string type() const {
    std::string around = prefix;
    around.erase(around.find_last_not_of(' ') + 1);
    // A qualifier is a word of its own: "* const [3]".
    if (!around.empty() && suffix.starts_with('[') && around.back() != '*') around += ' ';
    around += suffix;
    return around.empty() ? base : base + " " + around;
  }

  // Adds the text of the type that `of` has (void when none). `inPointer`: it is what a pointer points to, so that
  // functions and arrays need brackets around it. `blankBehind`: more follows behind qualifiers of a pointer. `outer`:
  // qualifiers of the array that it is the element of, which are its own too.
  void addTypeOf(const Die& of, int depth, bool inPointer, bool blankBehind, const Qualifiers& outer = {}) {
    const Die type = of.reference(DW_AT_type);
    if (type) {
      add(type, depth + 1, inPointer, blankBehind, outer);
    } else if (of.has(DW_AT_type)) {
      damaged = true;
    } else {
      base = (outer.words(cxx).empty() ? "" : outer.words(cxx) + " ") + "void";
    }
  }

  void add(Die type, int depth, bool inPointer, bool blankBehind, Qualifiers qualifiers) {
    while (qualifiers.take(type.tag())) {
      if (++depth > deepest) break;
      const Die inner = type.reference(DW_AT_type);
      if (!inner) return addTypeOf(type, depth, false, false, qualifiers);
      type = inner;
    }
    if (--budget < 0) endless = true;
    if (depth > deepest || endless) damaged = true;
    if (damaged) return;
    switch (type.tag()) {
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
        addMemberPointer(type, depth, qualifiers);
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

  void addPointer(const Die& type, int depth, const char* mark, const Qualifiers& qualifiers, bool blankBehind) {
    const bool isReference = *mark == '&';
    addTypeOf(type, depth, true, !isReference);
    prefix += mark;
    if (const std::string words = qualifiers.words(cxx); !words.empty()) {
      prefix += " " + words + (blankBehind ? " " : "");
    }
  }

  void addMemberPointer(const Die& type, int depth, const Qualifiers& qualifiers) {
    const Die target = type.reference(DW_AT_type);
    addTypeOf(type, depth, target && target.tag() == DW_TAG_subroutine_type, false);
    const Die of = type.reference(DW_AT_containing_type);
    if (!of) damaged = true;
    if (of) prefix += typeName(of) + "::*";
    if (const std::string words = qualifiers.words(cxx); !words.empty()) prefix += " " + words;
  }

  void addFunction(const Die& type, int depth, bool inPointer) {
    suffix += (inPointer ? ")" : "") + parameters(type, depth);
    addTypeOf(type, depth, false, false);
    if (inPointer) prefix += "(";
  }

  std::string parameters(const Die& type, int depth) {
    std::string list;
    for (const Die& child : type.children()) {
      if (damaged) break;
      if (child.tag() == DW_TAG_unspecified_parameters) {
        list += list.empty() ? "..." : ", ...";
      } else if (child.tag() == DW_TAG_formal_parameter) {
        Builder parameter{scopes, cxx, budget};
        parameter.addTypeOf(child, depth, false, false);
        // As gdb shows it.
        if (cxx && child.flag(DW_AT_artificial) && parameter.prefix == "*") parameter.prefix += " const";
        damaged = parameter.damaged;
        endless = parameter.endless;
        list += (list.empty() ? "" : ", ") + parameter.type();
      }
    }
    // Optimisation at link time lets units of C use the types of C++ ones, where no mark is needed.
    const bool saysNothing =
        (list.empty() || list == "...") && !cxx && !type.has(DW_AT_prototyped) && !isCxx(type.unit());
    if (saysNothing) return "()";
    return "(" + (list.empty() ? "void" : list) + ")";
  }

  void addVector(const Die& type, int depth, const Qualifiers& qualifiers) {
    addTypeOf(type, depth, false, false, qualifiers);
    for (const Die& dimension : type.children()) {
      if (dimension.tag() == DW_TAG_subrange_type) base += " __attribute__ ((vector_size(" + extent(dimension) + ")))";
    }
  }

  void addArray(const Die& type, int depth, bool inPointer, bool blankBehind, const Qualifiers& qualifiers) {
    if (type.has(DW_AT_GNU_vector)) return addVector(type, depth, qualifiers);
    suffix += inPointer ? ")" : "";
    for (const Die& child : type.children()) {
      if (child.tag() == DW_TAG_subrange_type || child.tag() == DW_TAG_enumeration_type)
        suffix += "[" + extent(child) + "]";
    }
    addTypeOf(type, depth, false, blankBehind, qualifiers);
    if (inPointer) prefix += "(";
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
    // A type whose unit cannot be found has a name that is not known; others are no types of C, such as texts of
    // Fortran.
    const bool mayHaveNone = type.tag() == DW_TAG_structure_type || type.tag() == DW_TAG_class_type ||
                             type.tag() == DW_TAG_union_type || type.tag() == DW_TAG_enumeration_type;
    if (name == nullptr && (type.has(DW_AT_signature) || !mayHaveNone)) damaged = true;
    if (name == nullptr) return "{...}";
    std::string canonical = canonicalName(name);
    if (!cxx) return canonical;
    // The definition of a class in another unit knows its scope, a declaration here may too.
    return scopes.ofType(chain.back()) + canonical;
  }
};

const TypeText& TypeNames::spell(const Die& type, bool cxx) {
  const auto [known, isNew] = known_[cxx ? 1 : 0].try_emplace(type.id());
  if (!isNew) return known->second;
  int budget = Builder::mostTypes;
  Builder builder{scopes_, cxx, budget};
  builder.add(type, 0, false, true, {});
  if (!builder.damaged) known->second.text = texts_.intern(builder.type());
  known->second.endless = builder.endless;
  return known->second;
}
