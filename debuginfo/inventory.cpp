#include "debuginfo/inventory.h"

#include <dwarf.h>

#include <algorithm>
#include <cstring>
#include <unordered_set>

#include "cxxNames.h"
#include "debugFile.h"
#include "src/userError.h"
#include "variables.h"

struct TextPool::Storage {
  std::unordered_set<std::string> texts;
};
TextPool::TextPool() : storage_(std::make_unique<Storage>()) {}
TextPool::~TextPool() = default;
TextPool::TextPool(TextPool&&) noexcept = default;
TextPool& TextPool::operator=(TextPool&&) noexcept = default;
std::string_view TextPool::intern(std::string_view text) { return *storage_->texts.emplace(text).first; }

Inventory readInventory(const std::string& path, const ReadOptions&) {
  Inventory inventory;
  inventory.executable = path;
  const DebugFile file(path);
  const Variables variables = readVariables(file, Wanted::Places);
  TypeNames types(variables.scopes, true);
  inventory.buildId = file.buildId();
  for (const auto& section : file.sections()) inventory.sections.push_back({section.name, section.size});
  for (const GlobalVariable& each : variables.list) {
    Variable variable;
    variable.name = inventory.texts.intern(variables.scopes.prefix(each.scope) + canonicalName(each.name));
    if (each.type.addr != nullptr) {
      const auto& text = types.spell(each.type, each.cxx);
      if (text && !text->endless) variable.type = inventory.texts.intern(text->type());
      variable.endless = text && text->endless;
    }
    variable.size = each.size;
    if (const auto* section = file.sectionAt(each.address)) {
      variable.section = inventory.texts.intern(section->name);
      variable.writable = section->writable && !file.isRelro(each.address);
    }
    variable.threadLocal = false;
    variable.linkage = each.inFunction ? Linkage::Function : each.internal ? Linkage::Internal : Linkage::External;
    std::string place = each.file;
    if (!variables.directory.empty() && place.starts_with(variables.directory + "/"))
      place.erase(0, variables.directory.size() + 1);
    variable.file = inventory.texts.intern(place);
    variable.line = each.line;
    variable.address = each.address;
    inventory.variables.push_back(variable);
  }
  inventory.directory = variables.directory;
  if (!variables.missing.damage.empty())
    inventory.warnings.push_back("the debugging information is damaged: " + variables.missing.damage);
  for (const std::string& missing : variables.missing.files)
    inventory.warnings.push_back(missing + " cannot be found, so variables may be missing");
  return inventory;
}
