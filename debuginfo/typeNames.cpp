#include "typeNames.h"

#include <dwarf.h>

#include "cxxNames.h"
#include "debuginfo/inventory.h"
#include "dwarfEntries.h"
#include "src/io.h"

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
  bool damaged = false;

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
    if (--budget < 0) text.endless = true;
    if (depth > deepest || text.endless) damaged = true;
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
        text.endless = parameter.text.endless;
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
    return scopes.prefix(scopes.of(descriptions(type).back(), scopes.of(type))) + canonical;
  }
};

const std::optional<TypeText>& TypeNames::spell(const Dwarf_Die& type, bool cxx) {
  const auto [known, isNew] = known_[cxx ? 1 : 0].try_emplace(type.addr);
  if (!isNew) return known->second;
  int budget = Builder::mostTypes;
  Builder builder{scopes_, qualified_, cxx, budget};
  builder.add(type, 0, false, true);
  if (!builder.damaged) known->second = builder.text;
  if (builder.text.endless) known->second.emplace().endless = true;
  return known->second;
}
