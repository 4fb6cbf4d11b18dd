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
#include "util.h"

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
std::string soughtName(std::string_view type) {
  std::size_t end = type.size();
  while (end > 0 && type[end - 1] == ']' && type.find('(') == std::string_view::npos) end = type.rfind('[', end - 1);
  const std::string_view sought = type.substr(0, std::min(end, type.find('*')));
  return std::string(sought.substr(0, sought.find_last_not_of(' ') + 1));
}

// The sizes of the names that lookups ask for. A lookup is answered by the first name in byte order that begins with
// what is sought.
class SizeTable {
 public:
  using Size = std::optional<std::uint64_t>;

  // `size` empty: the name has none, or none that is known. `incomplete`: it may be known elsewhere.
  void add(const std::string& name, Size size, bool incomplete) {
    // The table could not hold it, and no lookup could find it.
    if (name.empty() || name.size() > RecordSize - 32 || name.find_first_of("\t\n") != std::string::npos) return;
    // A function or a reference.
    if (name.ends_with('(') || name.ends_with('&') || name.find("(&") != std::string::npos) size = std::nullopt;
    const bool undecided = incomplete && !size;
    const auto [at, isNew] = asked_.try_emplace(name, size);
    if (isNew && undecided) undecided_.insert(name);
    if (isNew || undecided) return;
    if (undecided_.erase(name) > 0)
      at->second = size;
    else if (at->second != size)
      at->second = std::nullopt;
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
  std::set<std::string> undecided_;  // those that have only been declared so far
  Sizes listed_;
};

class TableMaker {
 public:
  TableMaker(const Inventory& inventory, bool qualified) : inventory_(inventory), qualified_(qualified) {}

  SuiteTables make() {
    const Variable* last = nullptr;
    for (const Variable& variable : inventory_.variables) {
      if (!variable.address || variable.threadLocal.value_or(false)) continue;
      // Type and place are looked up by the address, so there is one of each: the first with a size.
      const bool sharing = last != nullptr && last->address == variable.address;
      if (sharing && (variable.size == 0 || last->size != 0)) {
        if (variable.size != 0) ++tables_.sharing;
        continue;
      }
      if (last != nullptr && !sharing) add(*last);
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
    // A longer line would be taken for several by its reader.
    if (line.size() + name.size() + 2 > RecordSize) name = tableName(std::string(parts.back()));
    const bool fits = !name.empty() && line.size() + name.size() + 2 <= RecordSize;
    // Of what has no type gdb says that it is an int, and with an endless one it would not come to an end.
    if (!fits || variable.type.empty() ||
        (!addDeclaration(variable, parts.back()) && wouldBeMistaken(name, variable.type))) {
      ++tables_.leftOut;
      return;
    }
    tables_.list += line + name + "\n";
    ++tables_.variables;
  }

  // Whether the debugger, asked for `name` because the tables lack the variable, might answer with the type of another:
  // it takes the first variable that has `name` in its name and the same last component.
  bool wouldBeMistaken(const std::string& name, std::string_view type) {
    if (known_.empty()) {
      for (const Declaration& each : inventory_.declarations)
        known_.emplace(remove_all_scopes(std::string(each.name)), &each);
    }
    const auto [begin, end] = known_.equal_range(remove_all_scopes(name));
    return std::any_of(begin, end, [&](const auto& entry) {
      return entry.second->name.find(name) != std::string_view::npos && entry.second->type != type;
    });
  }

  // The name in objdump.1: with its scopes, but for those that hold blanks.
  static std::string qualifiedName(const std::vector<std::string_view>& parts) {
    std::string result;
    for (std::size_t i = 0; i + 1 < parts.size(); ++i) {
      if (!holdsBlank(std::string(parts[i]))) result.append(parts[i]).append("::");
    }
    return result + tableName(std::string(parts.back()));
  }

  // Writes the declaration and notes the sizes that will be asked for. False when the index could not hold it.
  bool addDeclaration(const Variable& variable, std::string_view name) {
    const std::string plain = withoutScopes(variable.type);
    sizes_.add(soughtName(plain), variable.namedSize, variable.namedIncomplete);
    sizes_.add(soughtName(variable.type), variable.namedSize, variable.namedIncomplete);
    const std::string own = tableName(std::string(name)).substr(0, name.find('<'));
    const bool internal = variable.linkage != Linkage::External;
    const std::string declaration = (internal ? "static " : "") +
                                    declare(qualified_ ? variable.type : std::string_view(plain), own) + " /* 0x" +
                                    hexadecimal(*variable.address) + " */;";
    if (!isHeld(declaration, *variable.address, own)) return false;
    tables_.declarationText += declaration + "\n";
    ++tables_.declarations;
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

  SuiteTables tables_;
  SizeTable sizes_;
  const Inventory& inventory_;
  std::unordered_multimap<std::string, const Declaration*> known_;  // by the last component of the name
  const bool qualified_;
};

}  // namespace

SuiteTables makeTables(const std::string& executable, bool qualified) {
  Inventory inventory = readInventory(executable, {.artificial = false, .declarations = true});
  SuiteTables tables = TableMaker(inventory, qualified).make();
  tables.warnings = std::move(inventory.warnings);
  return tables;
}
