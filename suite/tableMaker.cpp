#include "suite/tableMaker.h"

#include <algorithm>
#include <charconv>
#include <map>
#include <optional>
#include <set>
#include <stdexcept>
#include <unordered_map>

#include "debuginfo/inventory.h"
#include "objRead.h"
#include "src/io.h"
#include "src/whiteSpace.h"
#include "textTables.h"
#include "util.h"

namespace {

std::string hexadecimal(std::uint64_t number) {
  char digits[16];
  const auto end = std::to_chars(digits, digits + sizeof digits, number, 16).ptr;
  return {digits, end};
}

bool hasBlank(const std::string& text) { return text.find_first_of(whiteSpace) != std::string::npos; }

// A component of a name as a table can hold it: template arguments are cut off if they have blanks.
std::string tableName(const std::string& name) {
  return hasBlank(name) ? name.substr(0, std::min(name.find('<'), name.find_first_of(whiteSpace))) : name;
}

// The name by which tolquin.exe looks up the size of a type; its text in the index has stars in place of dimensions.
std::string lookupNameOf(std::string_view type) {
  std::size_t end = type.size();
  while (end > 0 && type[end - 1] == ']' && type.find('(') == std::string_view::npos) end = type.rfind('[', end - 1);
  return std::string(sizeLookupName(type.substr(0, end)));
}

// Makes sizes.tbl, in byte order: the sizes of all names that tolquin.exe will look up. A lookup finds the first row
// that begins with the name.
class SizeTable {
 public:
  using Size = std::optional<std::uint64_t>;

  // Adds a name. `size` is empty if the type has none, or if it is unknown; with `incomplete`, another variable may
  // know it.
  void add(const std::string& name, Size size, bool incomplete) {
    // The table cannot hold such a name.
    if (name.empty() || name.size() > RecordSize - 32 || name.find_first_of("\t\n") != std::string::npos) return;
    // Functions and references have no size in the table.
    if (name.ends_with('(') || name.ends_with('&') || name.find("(&") != std::string::npos) size = std::nullopt;
    const bool declaredOnly = incomplete && !size;
    const auto [at, isNew] = sizeOfName_.try_emplace(name, size);
    if (isNew && declaredOnly) declaredOnly_.insert(name);
    if (isNew || declaredOnly) return;
    if (declaredOnly_.erase(name) > 0)
      at->second = size;
    else if (at->second != size)
      at->second = std::nullopt;
  }

  // Makes the rows. A name without a size gets one only if a lookup would otherwise find a longer name: with size -1,
  // unknown.
  void finish() {
    // NOLINTNEXTLINE(modernize-loop-convert): clang 14 cannot compile the reverse view of g++ 12's library
    for (auto at = sizeOfName_.rbegin(); at != sizeOfName_.rend(); ++at) {
      const bool extended = !rows_.empty() && answersSizeLookup(rows_.begin()->first, at->first);
      if (at->second || extended) rows_.insert(rows_.begin(), *at);
    }
    for (const auto& [name, size] : sizeOfName_) {
      if (lookup(name) != size) throw std::logic_error("sizes.tbl would give a wrong size for " + name);
    }
  }

  std::string text() const {
    std::string result;
    for (const auto& [name, size] : rows_) result += name + "\t" + (size ? std::to_string(*size) : "-1") + "\n";
    return result;
  }
  std::size_t lines() const { return rows_.size(); }

 private:
  using Sizes = std::map<std::string, Size>;

  // The result of a lookup.
  Size lookup(const std::string& name) const {
    const auto at = rows_.lower_bound(name);
    return at != rows_.end() && answersSizeLookup(at->first, name) ? at->second : Size();
  }

  Sizes sizeOfName_;
  std::set<std::string> declaredOnly_;  // names whose types have only been declared so far
  Sizes rows_;
};

// Makes all three tables of a program.
class TableMaker {
 public:
  TableMaker(const Inventory& inventory, bool qualified) : inventory_(inventory), qualified_(qualified) {}

  SuiteTables make() {
    const Variable* last = nullptr;
    for (const Variable& variable : inventory_.variables) {
      if (!variable.address || variable.threadLocal.value_or(false)) continue;
      // tolquin.exe looks up types and locations by address, so only one variable per address is kept: the first with a
      // size.
      const bool sameAddress = last != nullptr && last->address == variable.address;
      if (sameAddress && (variable.size == 0 || last->size != 0)) {
        if (variable.size != 0) ++tables_.sharing;
        continue;
      }
      if (last != nullptr && !sameAddress) add(*last);
      last = &variable;
    }
    if (last != nullptr) add(*last);
    sizes_.finish();
    tables_.sizeText = sizes_.text();
    tables_.sizes = sizes_.lines();
    return std::move(tables_);
  }

 private:
  void add(const Variable& variable) {
    const std::string line =
        hexadecimal(*variable.address) + " " + (variable.size ? hexadecimal(*variable.size) : "<NULL>") + " ";
    const std::vector<std::string_view> parts = scopesOf(variable.name);
    std::string name = qualifiedName(parts);
    // tolquin.exe would read a longer line as several.
    if (line.size() + name.size() + 2 > RecordSize) name = tableName(std::string(parts.back()));
    // gdb cannot be asked for a structured binding, "[a, b]".
    const bool fits = !name.empty() && !parts.back().starts_with('[') && line.size() + name.size() + 2 <= RecordSize;
    // For a variable without a type, gdb answers "int"; for one with an endless type, it never stops.
    if (!fits || variable.type.empty() ||
        (!addDeclaration(variable, parts.back()) &&
         (gdbMightConfuse(name, variable.type) || isNameWithin(variable.type)))) {
      ++tables_.leftOut;
      return;
    }
    tables_.variableText += line + name + "\n";
    ++tables_.variables;
  }

  // Whether gdb, asked for `name` because the tables lack the variable, might answer with the type of another variable:
  // tolquin.exe takes the first one that gdb lists with `name` in its name and the same last component.
  bool gdbMightConfuse(const std::string& name, std::string_view type) {
    if (typesByName_.empty()) {
      for (const Declaration& each : inventory_.declarations)
        typesByName_.emplace(remove_all_scopes(std::string(each.name)), &each);
    }
    const auto [begin, end] = typesByName_.equal_range(remove_all_scopes(name));
    return std::any_of(begin, end, [&](const auto& entry) {
      return entry.second->name.find(name) != std::string_view::npos && entry.second->type != type;
    });
  }

  // Whether gdb writes the name of a variable of this type inside it, "int (T::*name)(int)", where tolquin.exe does not
  // find it.
  static bool isNameWithin(std::string_view type) {
    int open = 0;  // template argument lists
    for (std::size_t at = 0; at < type.size(); ++at) {
      if (type[at] == '<') ++open;
      if (type[at] == '>') --open;
      if (type[at] != '(' || open > 0) continue;
      const std::string_view within = type.substr(at + 1);
      if (within.substr(0, within.find_first_of("()")).find_first_of("*&") != std::string_view::npos) return true;
    }
    return false;
  }

  // The name in objdump.1: with its scopes, except those that have blanks.
  static std::string qualifiedName(const std::vector<std::string_view>& parts) {
    std::string result;
    for (std::size_t i = 0; i + 1 < parts.size(); ++i) {
      if (!hasBlank(std::string(parts[i]))) result.append(parts[i]).append("::");
    }
    return result + tableName(std::string(parts.back()));
  }

  // Adds the declaration, and the sizes that will be looked up for it. False if the index cannot hold it.
  bool addDeclaration(const Variable& variable, std::string_view name) {
    const std::string plain = withoutScopes(variable.type);
    sizes_.add(lookupNameOf(plain), variable.namedSize, variable.namedIncomplete);
    sizes_.add(lookupNameOf(variable.type), variable.namedSize, variable.namedIncomplete);
    const std::string own = tableName(std::string(name)).substr(0, name.find('<'));
    const bool internal = variable.linkage != Linkage::External;
    const std::string declaration = (internal ? "static " : "") +
                                    declare(qualified_ ? variable.type : std::string_view(plain), own) + " /* 0x" +
                                    hexadecimal(*variable.address) + " */;";
    if (!indexHolds(declaration, *variable.address, own)) return false;
    tables_.declarationText += declaration + "\n";
    ++tables_.declarations;
    return true;
  }

  // Whether tolquin.exe will make an item with a type and the name `own` of this declaration.
  static bool indexHolds(const std::string& declaration, std::uint64_t address, const std::string& own) {
    if (declaration.size() > LineReader::maxLength || declaration.find(':') != std::string::npos) return false;
    TMAP listed;
    listed[hexadecimal(address)] = 0;
    ItemType item;
    return itemFromDeclaration(declaration, listed, item) && *item.DataField.getDataType() != '\0' &&
           item.DataField.getVarName() == own;
  }

  SuiteTables tables_;
  SizeTable sizes_;
  const Inventory& inventory_;
  std::unordered_multimap<std::string, const Declaration*> typesByName_;  // by the last component of the name
  const bool qualified_;
};

}  // namespace

SuiteTables makeTables(const std::string& executable, bool qualified) {
  Inventory inventory = readInventory(executable, {.artificial = false, .declarations = true});
  SuiteTables tables = TableMaker(inventory, qualified).make();
  tables.warnings = std::move(inventory.warnings);
  return tables;
}
