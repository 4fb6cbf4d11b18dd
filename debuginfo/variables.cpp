#include "debuginfo/variables.h"

#include <dwarf.h>

#include <algorithm>
#include <array>

#include "debuginfo/cxxNames.h"
#include "debuginfo/typeSizes.h"

namespace {

using Kind = Location::Kind;

bool isLanguageC(int language) {
  // The last two are C17 and C23, which this version of libdw does not define.
  constexpr std::array<int, 6> languagesOfC{DW_LANG_C89, DW_LANG_C, DW_LANG_C99, DW_LANG_C11, 0x2c, 0x3e};
  return std::find(languagesOfC.begin(), languagesOfC.end(), language) != languagesOfC.end();
}

// Reserves capacity for `count` more variables. Unused capacity costs nothing, as its memory is never touched.
void reserveMore(std::vector<Variable>& variables, std::size_t count) {
  const std::size_t wanted = variables.size() + count;
  if (wanted > variables.capacity()) variables.reserve(std::max(wanted, 2 * variables.capacity()));
}

// Whether the references in a split unit are dangling, as those from gcc with link-time optimization are.
bool isBrokenSplit(const Unit& unit) {
  const char* producer = unit.top.id() != unit.skeleton.id() ? unit.top.text(DW_AT_producer) : nullptr;
  return producer != nullptr && std::string_view(producer).starts_with("GNU GIMPLE");
}

}  // namespace

VariableReader::VariableReader(const DebugFile& file, const ReadOptions& options, TextPool& texts)
    : file_(file), options_(options), texts_(texts), types_(scopes_, texts), files_(scopes_.layouts(), texts) {}

void VariableReader::read(const Unit& unit) {
  unit_ = &unit;
  noteDirectory(unit);
  if (unit.top.id() != unit.skeleton.id()) skeletons_.emplace(unit.top.id(), unit.skeleton);
  const bool isType = unit.top.tag() == DW_TAG_type_unit;
  if (isType && !options_.declarations) return;  // type units define no variables
  if (isBrokenSplit(unit)) {
    return found_.warnings.append(
        {"variables are missing: with both -flto and -gsplit-dwarf, gcc loses their names and types; link without "
         "-gsplit-dwarf"});
  }
  const auto layout = scopes_.layouts().of(unit.top.raw());
  const char* name = unit.top.text(DW_AT_name);
  if (!layout)
    return found_.warnings.append({std::string("the header of a unit is damaged: ") + (name != nullptr ? name : "")});
  layout_ = *layout;
  names_ = &scopes_.layouts().sections(unit.top.raw().cu).texts;
  typesInUnit_.clear();
  filesOfUnit_.clear();
  Dwarf_Die top = unit.top.raw();
  cxx_ = !isLanguageC(dwarf_srclang(&top));
  const UnitScan& scan = scopes_.enter(layout_, unit.top, options_.declarations ? ScanFor::Declared : ScanFor::Located);
  reserveMore(found_.variables, scan.variables.size());
  for (const MetVariable& met : scan.variables) readVariable(met);
  if (scan.damaged)
    found_.warnings.append({std::string("the debugging information is damaged, so variables may be missing: unit ") +
                            (name != nullptr ? name : "without a name")});
}

void VariableReader::noteDirectory(const Unit& unit) {
  const char* directory = unit.skeleton.text(DW_AT_comp_dir);
  const int tag = unit.top.tag();
  if (tag != DW_TAG_compile_unit || directory == nullptr || *directory != '/') return;
  found_.directory.add(directory);
}

void VariableReader::readVariable(const MetVariable& met) {
  ByteCursor cursor = layout_.cursor(met.attributes);
  const RawEntry raw = scopes_.abbreviations().read(*met.abbreviation, cursor);
  if (options_.declarations) noteDeclaration(met, raw);
  if (met.abbreviation->kind == EntryKind::Declared) return;
  Location location = locationOf(raw);
  if (location.kind == Kind::None) return noteUnplaced(met, raw);
  if (location.kind == Kind::ThreadLocal) location.address = file_.image().threadLocalOffset(location.address);
  const ImageSection* section = nullptr;
  if (location.kind == Kind::Memory) {
    section = file_.image().find(file_.toExecutable(location.address));
    if (section == nullptr) return;  // the linker discarded it
  } else if (location.kind == Kind::ThreadLocal) {
    section = file_.image().findThreadLocal(location.address);
    if (section == nullptr && location.base == 0) return;
  }
  Entry entry = entryOf(met, raw);
  if (location.kind == Kind::ThreadLocal && section == nullptr) {
    // Some compilers do not apply the TLS offset bias of their platform.
    const auto offset = file_.image().threadLocalNamed(entry.name, entry.linkageName);
    if (offset) location.address = *offset;
    section = file_.image().findThreadLocal(location.address);
  }
  if (entry.name.empty()) entry.name = nameBySymbol(entry, location);
  if (section != nullptr && section->isShared) section = file_.image().sectionOf(traitsOf(entry, location));
  // Without a symbol it could also be a copy of another variable.
  if (location.isNarrowed && !file_.image().hasNameAt(inExecutable(location), entry.name, entry.linkageName)) return;
  addVariable(entry, location, section);
}

// Records a variable that is defined outside functions without a location: the symbol table may have its address.
void VariableReader::noteUnplaced(const MetVariable& met, const RawEntry& raw) {
  if (raw[Slot::Declaration].form != 0 || scopes_.isInFunction(met.scope)) return;
  const Entry entry = entryOf(met, raw);
  if (entry.name.empty() || (!options_.artificial && isSet(entry, Slot::Artificial, DW_AT_artificial))) return;
  Variable variable;
  describe(entry, {}, variable);
  const char* unit = unit_->top.text(DW_AT_name);
  found_.unplaced.push_back({variable, entry.linkageName != nullptr ? entry.linkageName : "",
                             unit != nullptr ? unit : "", typeOf(entry).open});
}

// The location of a DIE. A location list, which applies to ranges of code, counts as none.
Location VariableReader::locationOf(const RawEntry& raw) const {
  const RawValue& value = raw[Slot::Location];
  ByteCursor cursor = layout_.cursor(value.at);
  std::uint64_t length = 0;
  switch (value.form) {
    case DW_FORM_exprloc:
    case DW_FORM_block:
      length = cursor.leb();
      break;
    case DW_FORM_block1:
      length = cursor.fixed(1);
      break;
    case DW_FORM_block2:
      length = cursor.fixed(2);
      break;
    case DW_FORM_block4:
      length = cursor.fixed(4);
      break;
    default:
      return {};
  }
  if (length == 0 || length > cursor.left()) return {};
  if (length == 1 + layout_.sizes.address && *cursor.at() == DW_OP_addr) {
    cursor.skip(1);
    const std::uint64_t address = cursor.fixed(layout_.sizes.address);
    return {Kind::Memory, address, address};
  }
  return evaluate({cursor.at(), cursor.at() + length, layout_.bigEndian}, file_, *unit_, layout_.sizes);
}

VariableReader::Entry VariableReader::entryOf(const MetVariable& met, const RawEntry& raw) {
  Entry entry{.die = unit_->top.sibling(met.entry), .raw = raw, .completed = {}, .name = {}};
  if (raw[Slot::Specification].form != 0 || raw[Slot::Origin].form != 0) {
    entry.completed = descriptions(entry.die);
    entry.completed.erase(entry.completed.begin());
  }
  entry.inFunction = met.scope != ScopeMap::global && scopes_.isInFunction(entry.die);
  const char* name = text(raw[Slot::Name]);
  if (name == nullptr) name = firstName(entry.completed);
  if (name != nullptr) entry.name = name;
  entry.linkageName = text(raw[Slot::LinkageName]);
  if (entry.linkageName == nullptr && !entry.completed.empty()) entry.linkageName = firstLinkageName(entry.completed);
  return entry;
}

// The address of a location in the executable; for a thread-local variable, the offset in the TLS block.
ImageAddress VariableReader::inExecutable(const Location& location) const {
  if (location.kind == Kind::ThreadLocal) return {true, location.address};
  return {false, file_.toExecutable(location.address)};
}

// Whether a flag is set in the DIE or in one that it completes.
bool VariableReader::isSet(const Entry& entry, Slot slot, unsigned name) const {
  const RawValue& value = entry.raw[slot];
  if (value.form == DW_FORM_flag_present || (value.form == DW_FORM_flag && *value.at != 0)) return true;
  return std::any_of(entry.completed.begin(), entry.completed.end(), [name](const Die& die) { return die.flag(name); });
}

void VariableReader::addVariable(Entry& entry, const Location& location, const ImageSection* section) {
  if (entry.name.empty() && location.kind == Kind::Memory && addMembers(entry, location, section)) return;
  if (isOmitted(entry, location, section)) return;
  Variable variable;
  if (section != nullptr) variable.section = section->name;
  if (section != nullptr) variable.writable = file_.image().isWritable(*section, file_.toExecutable(location.address));
  variable.threadLocal = location.kind == Kind::ThreadLocal;
  if (*variable.threadLocal) variable.writable = true;
  if ((section != nullptr || location.kind == Kind::Memory) && !location.isApart)
    variable.address = inExecutable(location).value;
  describe(entry, location, variable);
  found_.variables.push_back(variable);
}

// Adds the members of an unnamed union, which some compilers describe as a variable. False if `entry` is not one.
bool VariableReader::addMembers(const Entry& entry, const Location& location, const ImageSection* section) {
  constexpr int deepest = 8;
  const Die type = typeEntry(entry);
  const bool isUnnamed = type && type.name() == nullptr &&
                         (type.tag() == DW_TAG_union_type || (type.tag() == DW_TAG_structure_type && unionDepth_ > 0));
  if (!isUnnamed || unionDepth_ == deepest) return false;
  ++unionDepth_;
  for (const Die& child : type.children()) {
    if (child.tag() != DW_TAG_member) continue;
    Entry member{.die = child, .raw = {}, .completed = {child, entry.die}, .inFunction = entry.inFunction, .name = {}};
    member.completed.insert(member.completed.end(), entry.completed.begin(), entry.completed.end());
    if (const char* name = child.name()) member.name = name;
    Location memberLocation = location;
    memberLocation.address += child.number(DW_AT_data_member_location).value_or(0);
    addVariable(member, memberLocation, section);
  }
  --unionDepth_;
  return true;
}

// Whether a variable is not listed. If the program has it in memory, adds a warning.
bool VariableReader::isOmitted(const Entry& entry, const Location& location, const ImageSection* section) {
  if (entry.raw[Slot::Declaration].form != 0) return true;
  if (!options_.artificial && isSet(entry, Slot::Artificial, DW_AT_artificial)) return true;
  if (location.kind == Kind::Computed || location.kind == Kind::Unreadable) {
    found_.warnings.add(location.kind == Kind::Computed ? "the address is known only at run time"
                                                        : "the location expression cannot be read",
                        about(entry));
    return true;
  }
  if (entry.name.empty()) {
    // Some compilers describe string literals as variables.
    if (location.kind != Kind::ThreadLocal && section != nullptr && !section->writable && entry.linkageName == nullptr)
      return true;
    found_.nameless.emplace_back(location.kind == Kind::Memory ? file_.toExecutable(location.address) : 0,
                                 about(entry));
    return true;
  }
  // Variables that the linker discarded have the address 0, where there may be another variable.
  return location.base == 0 && !file_.image().mayBeThere(traitsOf(entry, location));
}

// The properties by which the symbol of a variable is recognized.
SymbolTraits VariableReader::traitsOf(const Entry& entry, const Location& location) {
  const char* unit = unit_->top.text(DW_AT_name);
  const TypeFacts& type = typeOf(entry);
  SymbolTraits traits{inExecutable(location), entry.name, entry.linkageName, unit != nullptr ? unit : ""};
  if (!location.bytes && !location.isNarrowed && !type.open) traits.size = type.size;
  return traits;
}

void VariableReader::describe(const Entry& entry, const Location& location, Variable& variable) {
  const TypeFacts& type = typeOf(entry);
  variable.type = type.text;
  variable.namedSize = type.namedSize;
  variable.namedIncomplete = type.namedIncomplete;
  // Prefer the size of the type, as some compilers pad the size of the symbol; but if the type ends with a flexible
  // array, only the symbol has the size.
  variable.size = location.bytes;
  if (!variable.size && !type.open && !location.isNarrowed) variable.size = type.size;
  if (!variable.size && variable.address)
    variable.size = file_.image().symbolSize(inExecutable(location), entry.name, entry.linkageName);
  if (!variable.size && !location.isNarrowed) variable.size = type.size;
  const SourceLocation place = sourceLocationOf(entry);
  variable.file = place.file;
  variable.line = place.line;
  variable.name = fullName(entry, location, variable);
  // Some compilers mark members of a class as external even if other units cannot name the class.
  const bool isExternal = isSet(entry, Slot::External, DW_AT_external) &&
                          (!cxx_ || variable.name.find("(anonymous namespace)") == std::string_view::npos);
  variable.linkage = entry.inFunction ? Linkage::Function : isExternal ? Linkage::External : Linkage::Internal;
}

std::string_view VariableReader::fullName(const Entry& entry, const Location& location, Variable& variable) {
  const Die& outermost = entry.completed.empty() ? entry.die : entry.completed.back();
  std::string scopes = scopes_.ofVariable(outermost, cxx_);
  const bool isUncertain = (cxx_ && layout_.sizes.version <= 2) ||
                           ((entry.inFunction || !scopes.empty()) && scopes_.isInNameless(outermost));
  if (!cxx_) variable.namespaceLength = 0;
  if (cxx_ && !isUncertain) variable.namespaceLength = scopes_.namespacesOf(outermost);
  if (!isUncertain && scopes.empty() && !cxx_) return texts_.keep(entry.name);
  if (isUncertain) scopes = scopesBySymbol(entry, location).value_or(scopes);
  if (!cxx_) return texts_.keep(scopes.append(entry.name));
  return texts_.keep(scopes + withoutTags(canonicalName(entry.name)) +
                     templateArguments(entry.name, entry.linkageName));
}

// The name of the variable of a structured binding, which only its symbol has. Empty if it is not one.
std::string_view VariableReader::nameBySymbol(const Entry& entry, const Location& location) {
  for (const std::string_view symbol : symbolsOf(entry, location)) {
    if (const std::string name = bindingInSymbol(symbol); !name.empty()) return texts_.intern(name);
  }
  return {};
}

// Scopes that are missing from the debugging information: namespaces in DWARF 2, functions that were inlined everywhere
// (some compilers omit them), and classes whose type unit is missing.
std::optional<std::string> VariableReader::scopesBySymbol(const Entry& entry, const Location& location) const {
  if (location.kind != Kind::Memory && location.kind != Kind::ThreadLocal) return {};
  for (const std::string_view symbol : symbolsOf(entry, location)) {
    if (auto scopes = scopesInSymbol(symbol, entry.name)) return scopes;
  }
  return {};
}

// The names of the symbols of a variable: its linkage name, or else those at its address.
std::vector<std::string_view> VariableReader::symbolsOf(const Entry& entry, const Location& location) const {
  if (entry.linkageName != nullptr) return {entry.linkageName};
  return file_.image().symbolNames(inExecutable(location));
}

// A definition has only the attributes that differ from its declaration: often the line, but not the file.
VariableReader::SourceLocation VariableReader::sourceLocationOf(const Entry& entry) {
  SourceLocation place;
  place.line = static_cast<int>(number(entry.raw[Slot::Line]).value_or(0));
  if (const auto file = number(entry.raw[Slot::File])) place.file = ownFile(*file);
  for (const Die& die : entry.completed) {
    if (place.line == 0) place.line = static_cast<int>(die.number(DW_AT_decl_line).value_or(0));
    const auto file = place.file.empty() ? die.number(DW_AT_decl_file) : std::nullopt;
    if (file) place.file = fileOf(die.unit(), *file);
  }
  if (place.file.empty() || place.line < 0) place.line = 0;
  return place;
}

// The file `number` of the current unit.
std::string_view VariableReader::ownFile(std::uint64_t number) {
  const auto [known, isNew] = filesOfUnit_.try_emplace(number);
  if (isNew) known->second = fileOf(unit_->top, number);
  return known->second;
}

// The file `number` of `unit`; for a split unit, the skeleton has the line number table.
std::string_view VariableReader::fileOf(const Die& unit, std::uint64_t number) {
  const auto split = skeletons_.find(unit.id());
  return files_.name(split != skeletons_.end() ? split->second : unit, number, unit_->skeleton.text(DW_AT_comp_dir));
}

Die VariableReader::typeEntry(const Entry& entry) {
  if (entry.raw[Slot::Type].form != 0) return entry.die.reference(DW_AT_type);
  for (const Die& die : entry.completed) {
    if (die.has(DW_AT_type)) return die.reference(DW_AT_type);
  }
  return {};
}

// Fast path: most variables refer to a type in their own unit, which is cached by its offset.
const VariableReader::TypeFacts& VariableReader::typeOf(const Entry& entry) {
  const RawValue& value = entry.raw[Slot::Type];
  if (value.form != DW_FORM_ref4 || value.at == nullptr) return facts(typeEntry(entry));
  const TypeFacts*& known = typesInUnit_[layout_.cursor(value.at).fixed(4)];
  if (known == nullptr) known = &facts(typeEntry(entry));
  return *known;
}

const VariableReader::TypeFacts& VariableReader::facts(const Die& type) {
  static const TypeFacts none;
  if (!type) return none;
  const auto [known, isNew] = facts_[cxx_ ? 1 : 0].try_emplace(type.id());
  TypeFacts& result = known->second;
  if (!isNew) return result;
  result.text = types_.spell(type, cxx_);
  result.size = sizeOfType(type);
  result.open = hasOpenEnd(type);
  if (const Die named = namedTypeWithin(type)) {
    result.namedSize = sizeOfType(named);
    result.namedIncomplete = named.flag(DW_AT_declaration);
  }
  return result;
}

void VariableReader::noteDeclaration(const MetVariable& met, const RawEntry& raw) {
  const Die die = unit_->top.sibling(met.entry);
  if (die.tag() == DW_TAG_member && raw[Slot::Declaration].form == 0) return;
  const Entry entry = entryOf(met, raw);
  if (entry.inFunction || entry.name.empty()) return;
  const Die& outermost = entry.completed.empty() ? entry.die : entry.completed.back();
  found_.declarations.push_back(
      {texts_.intern(scopes_.ofVariable(outermost, cxx_) + std::string(entry.name)), typeOf(entry).text});
}

// The description of a variable in warnings.
std::string VariableReader::about(const Entry& entry) {
  const SourceLocation place = sourceLocationOf(entry);
  std::string result(entry.name);
  const std::string_view type = typeOf(entry).text;
  if (result.empty()) result = type.empty() ? "a variable of unknown type" : "a variable of type " + std::string(type);
  if (!place.file.empty()) result += " (" + std::string(place.file) + ":" + std::to_string(place.line) + ")";
  return result;
}

const char* VariableReader::text(const RawValue& value) const {
  if (value.form == 0) return nullptr;
  if (value.form == DW_FORM_strp) {
    ByteCursor cursor(names_->begin(), names_->end(), false);
    cursor.skip(layout_.cursor(value.at).fixed(layout_.sizes.offset));
    const char* found = cursor.text();
    return cursor.failed() ? nullptr : found;
  }
  Dwarf_Attribute attribute{value.name, value.form, const_cast<unsigned char*>(value.at), unit_->top.raw().cu};
  return unit_->top.textOf(attribute);
}

std::optional<std::uint64_t> VariableReader::number(const RawValue& value) const {
  if (value.form == DW_FORM_implicit_const)
    return ByteCursor(value.at, layout_.abbreviationsEnd, layout_.bigEndian).signedLeb();
  if (value.form == DW_FORM_udata) return layout_.cursor(value.at).leb();
  if (value.form == DW_FORM_sdata) return layout_.cursor(value.at).signedLeb();
  const int size = formSize(value.form, layout_.sizes);
  if (size <= 0 || size > 8) return {};
  return layout_.cursor(value.at).fixed(static_cast<std::size_t>(size));
}
