#include "tableMaker.h"

#include <cxxabi.h>
#include <dwarf.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <unordered_map>

#include "cxxNames.h"
#include "debuginfo/inventory.h"
#include "dwarfEntries.h"
#include "io.h"
#include "objRead.h"
#include "outputFiles.h"
#include "typeNames.h"
#include "userError.h"
#include "util.h"
#include "variables.h"

namespace {

std::string hexadecimal(std::uint64_t number) {
  char digits[16];
  const auto end = std::to_chars(digits, digits + sizeof digits, number, 16).ptr;
  return {digits, end};
}

bool holdsBlank(const std::string& text) { return text.find_first_of(" \t\n") != std::string::npos; }

// A name part that can stand in a table: without blanks, template arguments that hold some cut off.
std::string tableName(const std::string& name) {
  return holdsBlank(name) ? name.substr(0, name.find_first_of("< \t\n")) : name;
}

// What the lookup of a type's size searches for: the type up to its first '*'.
std::string soughtName(const TypeText& text) {
  const std::string type = text.apart ? text.type() : text.base;
  const std::string sought = type.substr(0, type.find('*'));
  return sought.substr(0, sought.find_last_not_of(' ') + 1);
}

// The sizes of the names that lookups ask for. A lookup is answered by the first name in byte order that begins with
// what is sought.
class SizeTable {
 public:
  using Size = std::optional<std::uint64_t>;

  // `size` empty: the name has none, or none that is known.
  void add(const std::string& name, Size size) {
    // The table could not hold it, and no lookup could find it.
    if (name.empty() || name.size() > RecordSize - 32 || name.find_first_of("\t\n") != std::string::npos) return;
    // A function or a reference.
    if (name.ends_with('(') || name.ends_with('&') || name.find("(&") != std::string::npos) size = std::nullopt;
    const auto [at, isNew] = asked_.try_emplace(name, size);
    if (!isNew && at->second != size) at->second = std::nullopt;
  }

  // Decides which names are listed. A name without a size is left out unless a longer one would answer for it: then it
  // is listed without a size, which a lookup reports as "not known".
  void finish() {
    // NOLINTNEXTLINE(modernize-loop-convert): clang 14 cannot compile the reverse view of g++ 12's library
    for (auto at = asked_.rbegin(); at != asked_.rend(); ++at) {
      const bool extended = !listed_.empty() && listed_.begin()->first.starts_with(at->first);
      if (at->second || extended) listed_.insert(listed_.begin(), *at);
    }
    for (const auto& [name, size] : asked_) {
      if (answer(name) != size) throw std::logic_error("sizes.tbl would answer wrongly for " + name);
    }
  }

  std::string text() const {
    std::string result;
    for (const auto& [name, size] : listed_) result += name + "\t" + (size ? std::to_string(*size) : "-1") + "\n";
    return result;
  }
  std::size_t lines() const { return listed_.size(); }

 private:
  using Sizes = std::map<std::string, Size>;

  // What a lookup will be told.
  Size answer(const std::string& name) const {
    const auto at = listed_.lower_bound(name);
    return at != listed_.end() && at->first.starts_with(name) ? at->second : Size();
  }

  Sizes asked_;
  Sizes listed_;
};

class TableMaker {
 public:
  TableMaker(const Variables& variables, bool qualified)
      : variables_(variables), plain_(variables.scopes, false), full_(variables.scopes, true), qualified_(qualified) {}

  void make() {
    for (const GlobalVariable& variable : variables_.list) add(variable);
    sizes.finish();
    summary.sizes = sizes.lines();
  }

  std::string list, declarations;
  SizeTable sizes;
  TableSummary summary;

 private:
  void add(const GlobalVariable& variable) {
    const std::string line =
        hexadecimal(variable.address) + " " + (variable.size ? hexadecimal(*variable.size) : "<NULL>") + " ";
    std::string name = qualifiedName(variable);
    // A longer line would be taken for several by its reader.
    if (line.size() + name.size() + 2 > RecordSize) name = tableName(variable.name);
    const bool fits = !name.empty() && line.size() + name.size() + 2 <= RecordSize;
    // Of what has no type gdb says that it is an int.
    if (!fits || !variable.typed || isEndless(variable) ||
        (!addDeclaration(variable) && wouldBeMistaken(name, typeText(variable.type, variable.cxx)))) {
      ++summary.leftOut;
      return;
    }
    list += line + name + "\n";
    ++summary.variables;
  }

  // Whether gdb would not come to an end with the type.
  bool isEndless(const GlobalVariable& variable) {
    if (variable.type.addr == nullptr) return false;
    const std::optional<TypeText>& text = plain_.spell(variable.type, variable.cxx);
    return text && text->endless;
  }

  // The full text of a type; empty when there is none.
  std::string typeText(const Dwarf_Die& type, bool cxx) {
    if (type.addr == nullptr) return "";
    const std::optional<TypeText>& text = full_.spell(type, cxx);
    return text ? text->type() : "";
  }

  // Whether the debugger, asked for `name` because the tables lack the variable, might answer with the type of another:
  // it takes the first variable that has `name` in its name and the same last component.
  bool wouldBeMistaken(const std::string& name, const std::string& type) {
    if (known_.empty()) readKnown();
    const auto [begin, end] = known_.equal_range(remove_all_scopes(name));
    return std::any_of(begin, end, [&](const auto& entry) {
      return entry.second.name.find(name) != std::string::npos && entry.second.type != type;
    });
  }

  void readKnown() {
    for (const KnownVariable& variable : variables_.known) {
      const std::vector<Dwarf_Die> chain = descriptions(variable.die);
      const char* own = firstName(chain);
      if (own == nullptr) continue;
      const Scopes& scopes = variables_.scopes;
      const std::string name = scopes.prefix(scopes.of(chain.back(), variable.scope)) + own;
      known_.emplace(remove_all_scopes(name), Known{name, typeText(typeOf(chain), variable.cxx)});
    }
  }

  // The name in objdump.1: in C++ with its scopes, but for those that hold blanks.
  std::string qualifiedName(const GlobalVariable& variable) const {
    std::string result;
    for (const std::string& scope : variables_.scopes.path(variable.scope)) {
      const std::string part = canonicalName(scope);
      if (!holdsBlank(part)) result += part + "::";
    }
    return result + tableName(canonicalName(variable.name + templateArguments(variable)));
  }

  // The arguments of an instance of a variable template, "<3>", which compilers tell in the symbol's name alone.
  static std::string templateArguments(const GlobalVariable& variable) {
    if (variable.linkageName == nullptr || variable.name.find('<') != std::string::npos) return "";
    const std::unique_ptr<char, void (*)(void*)> full(
        abi::__cxa_demangle(variable.linkageName, nullptr, nullptr, nullptr), std::free);
    const std::string_view symbol = full ? full.get() : "";
    const std::size_t name = symbol.rfind(variable.name + "<");
    return name != std::string_view::npos && symbol.ends_with('>')
               ? std::string(symbol.substr(name + variable.name.size()))
               : "";
  }

  // Writes the declaration and notes the sizes that will be asked for. False when the index could not hold it.
  bool addDeclaration(const GlobalVariable& variable) {
    if (variable.type.addr == nullptr) return false;
    const std::optional<TypeText>& plain = plain_.spell(variable.type, variable.cxx);
    const std::optional<TypeText>& full = full_.spell(variable.type, variable.cxx);
    if (!plain || !full || plain->endless) return false;
    const std::optional<std::uint64_t> size = sizeWithoutPointers(variable.type);
    sizes.add(soughtName(*plain), size);
    sizes.add(soughtName(*full), size);
    const std::string own = tableName(variable.name).substr(0, variable.name.find('<'));
    const std::string declaration = (variable.internal ? "static " : "") + (qualified_ ? full : plain)->declare(own) +
                                    " /* 0x" + hexadecimal(variable.address) + " */;";
    if (!isHeld(declaration, variable.address, own)) return false;
    declarations += declaration + "\n";
    ++summary.declarations;
    return true;
  }

  // Whether the index build will make an item with a type and the name `own` of the line.
  static bool isHeld(const std::string& declaration, std::uint64_t address, const std::string& own) {
    if (declaration.size() > LineReader::maxLength || declaration.find(':') != std::string::npos) return false;
    TMAP listed;
    listed[hexadecimal(address)] = 0;
    ItemType item;
    return itemFromDeclaration(declaration, listed, item) && *item.DataField.getDataType() != '\0' &&
           item.DataField.getVarName() == own;
  }

  // The size of a type behind all its pointers, arrays, functions and references; none for vectors, unnamed and
  // incomplete types.
  static std::optional<std::uint64_t> sizeWithoutPointers(Dwarf_Die type);

  // What the debugger would show of a variable.
  struct Known {
    std::string name;
    std::string type;
  };

  const Variables& variables_;
  std::unordered_multimap<std::string, Known> known_;  // by the last component of the name; read when first needed
  TypeNames plain_, full_;
  const bool qualified_;
};

std::optional<std::uint64_t> TableMaker::sizeWithoutPointers(Dwarf_Die type) {
  for (int depth = 0; depth < 64; ++depth) {
    Dwarf_Die inner;
    if (dwarf_hasattr(&type, DW_AT_GNU_vector)) return {};
    switch (dwarf_tag(&type)) {
      case DW_TAG_pointer_type:
      case DW_TAG_array_type:
      case DW_TAG_const_type:
      case DW_TAG_volatile_type:
      case DW_TAG_restrict_type:
      case DW_TAG_atomic_type:
      case DW_TAG_subroutine_type:
      case DW_TAG_reference_type:
      case DW_TAG_rvalue_reference_type:
        if (!referredDie(type, DW_AT_type, inner)) return {};
        type = inner;
        continue;
      default:
        break;
    }
    return dwarf_diename(&type) != nullptr ? sizeOfType(type) : std::nullopt;
  }
  return {};
}

}  // namespace

TableSummary makeTables(const std::string& executable, const std::string& directory, bool qualified) {
  const DebugFile file(executable);
  const Variables variables = readVariables(file, Wanted::Types);
  TableMaker maker(variables, qualified);
  maker.make();
  maker.summary.sharing = variables.sharing;
  const MissingParts& missing = maker.summary.missing = variables.missing;
  if (variables.list.empty() && !missing.files.empty()) {
    throw UserError(executable + ": its debugging information was split off, and " + missing.files.front() +
                    " cannot be found or read; it has to lie where the compiler left it, or in " + executable + ".dwp");
  }
  makeDirectory(directory);
  OutputFiles output(directory);
  output.write("objdump.1", maker.list);
  output.write("objdump.txt", maker.declarations);
  output.write("sizes.tbl", maker.sizes.text());
  output.commit();
  return maker.summary;
}
