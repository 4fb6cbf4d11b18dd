#include "variables.h"

#include <dwarf.h>

#include <algorithm>
#include <array>
#include <optional>
#include <unordered_map>
#include <utility>

namespace {

constexpr int deepestNesting = 256;  // of entries; more is damage

// Whether an attribute says yes: a declaration only for itself, the rest also for what it completes.
bool isFlagSet(Dwarf_Die& die, unsigned name) {
  Dwarf_Attribute attribute;
  const auto read = name == DW_AT_declaration ? dwarf_attr : dwarf_attr_integrate;
  bool value = false;
  return dwarf_formflag(read(&die, name, &attribute), &value) == 0 && value;
}

// The address that a location expression consists of, if it is such. `skeleton`: top entry of the unit that has the
// list of addresses.
std::optional<std::uint64_t> fixedAddress(const DebugFile& file, const Dwarf_Die& skeleton, Dwarf_Die& die) {
  Dwarf_Attribute attribute;
  if (dwarf_attr(&die, DW_AT_location, &attribute) == nullptr) return {};
  Dwarf_Op* operations = nullptr;
  std::size_t count = 0;
  if (dwarf_getlocation(&attribute, &operations, &count) != 0 || count == 0) return {};
  std::optional<std::uint64_t> address;
  if (operations[0].atom == DW_OP_addr) address = operations[0].number;
  if (operations[0].atom == DW_OP_addrx || operations[0].atom == DW_OP_GNU_addr_index)
    address = file.listedAddress(skeleton, operations[0].number);
  if (!address || count == 1) return address;
  // A variable that the compiler made part of a larger object.
  if (count == 2 && operations[1].atom == DW_OP_plus_uconst) return *address + operations[1].number;
  return {};
}

class Reader {
 public:
  Reader(const DebugFile& file, Wanted wanted) : file_(file), wanted_(wanted) {}

  Variables read() {
    result_.missing = file_.forEachUnit([this](const Dwarf_Die& top, const Dwarf_Die& skeleton) {
      if (top.addr != skeleton.addr) skeletons_.emplace(top.addr, skeleton);
      skeleton_ = skeleton;
      noteDirectory(top, skeleton);
      readUnit(top);
    });
    if (result_.directory == "/") result_.directory.clear();
    if (result_.missing.damage.empty()) result_.missing.damage = damage_;
    for (Candidate& candidate : candidates_) complete(candidate);
    sortAndUnite();
    return std::move(result_);
  }

 private:
  // A variable with an address whose other descriptions may not have been reached yet.
  struct Candidate {
    Dwarf_Die die;
    std::uint64_t address;
    Scopes::Id scope;
    bool inFunction;
    bool cxx;
  };
  struct TypeSize {
    std::optional<std::uint64_t> size;
    bool open = false;
  };
  struct Place {
    Scopes::Id scope = Scopes::global;
    bool inFunction = false;
  };

  void noteDirectory(Dwarf_Die top, Dwarf_Die skeleton) {
    Dwarf_Attribute attribute;
    const char* directory = dwarf_formstring(dwarf_attr(&skeleton, DW_AT_comp_dir, &attribute));
    if (dwarf_tag(&top) != DW_TAG_compile_unit || directory == nullptr || *directory != '/') return;
    std::string& common = result_.directory;
    if (common.empty()) common = directory;
    const std::string path = std::string(directory) + "/";
    while (!path.starts_with(common == "/" ? common : common + "/")) {
      common.erase(common.rfind('/'));
      if (common.empty()) common = "/";
    }
  }

  void readUnit(Dwarf_Die top) {
    // The last two are C17 and C23, which libdw's header does not name yet.
    constexpr std::array<int, 6> languagesOfC{DW_LANG_C89, DW_LANG_C, DW_LANG_C99, DW_LANG_C11, 0x2c, 0x3e};
    cxx_ = std::find(languagesOfC.begin(), languagesOfC.end(), dwarf_srclang(&top)) == languagesOfC.end();
    readChildren(top, {}, 0);
  }

  void readChildren(Dwarf_Die& parent, Place place, int depth) {
    if (depth > deepestNesting) return;
    Dwarf_Die child;
    int more = dwarf_child(&parent, &child);
    for (; more == 0; more = dwarf_siblingof(&child, &child)) readEntry(child, place, depth);
    if (more < 0) damage_ = dwarfError();
  }

  void readEntry(Dwarf_Die& die, Place place, int depth) {
    switch (dwarf_tag(&die)) {
      case DW_TAG_variable:
        readVariable(die, place);
        break;
      case DW_TAG_member:
        if (dwarf_hasattr(&die, DW_AT_declaration)) noteKnown(die, place);
        [[fallthrough]];
      case DW_TAG_typedef:
        result_.scopes.note(die, place.scope);
        break;
      case DW_TAG_namespace: {
        const char* name = dwarf_diename(&die);
        readInner(die, name != nullptr ? name : "(anonymous namespace)", place, depth);
        break;
      }
      case DW_TAG_structure_type:
      case DW_TAG_class_type:
      case DW_TAG_union_type:
      case DW_TAG_enumeration_type:
        result_.scopes.note(die, place.scope);
        readInner(die, entryName(die), place, depth);
        break;
      case DW_TAG_subprogram:
        result_.scopes.note(die, place.scope);
        place.inFunction = true;
        readInner(die, firstName(descriptions(die)), place, depth);
        break;
      case DW_TAG_lexical_block:
      case DW_TAG_inlined_subroutine:
      case DW_TAG_try_block:
      case DW_TAG_catch_block:
      case DW_TAG_module:
      case DW_TAG_common_block:
        readChildren(die, place, depth + 1);
        break;
      default:
        break;
    }
  }

  void readInner(Dwarf_Die& die, const char* name, Place place, int depth) {
    if (!dwarf_haschildren(&die)) return;
    if (name != nullptr && cxx_) place.scope = result_.scopes.enter(outerScope(die, place.scope), name);
    readChildren(die, place, depth + 1);
  }

  // The scope around a namespace, class or function: that of its declaration where it is defined elsewhere.
  Scopes::Id outerScope(Dwarf_Die& die, Scopes::Id here) { return result_.scopes.of(descriptions(die).back(), here); }

  void noteKnown(const Dwarf_Die& die, const Place& place) {
    if (wanted_ == Wanted::Types) result_.known.push_back({die, place.scope, cxx_});
  }

  void readVariable(Dwarf_Die& die, const Place& place) {
    result_.scopes.note(die, place.scope);
    if (!place.inFunction) noteKnown(die, place);
    const auto address = fixedAddress(file_, skeleton_, die);
    if (!address || isFlagSet(die, DW_AT_declaration)) return;
    const std::uint64_t inExecutable = file_.toExecutable(*address);
    if (file_.isInMemory(inExecutable)) candidates_.push_back({die, inExecutable, place.scope, place.inFunction, cxx_});
  }

  void complete(Candidate& candidate) {
    std::vector<Dwarf_Die> chain = descriptions(candidate.die);
    GlobalVariable variable;
    const char* name = firstName(chain);
    if (name == nullptr || *name == '\0') return;
    variable.name = name;
    variable.address = candidate.address;
    variable.scope = result_.scopes.of(chain.back(), candidate.scope);
    variable.cxx = candidate.cxx;
    variable.inFunction = candidate.inFunction;
    variable.internal = candidate.inFunction || !isFlagSet(candidate.die, DW_AT_external);
    variable.type = typeOf(chain);
    variable.typed = std::any_of(chain.begin(), chain.end(), [](auto& die) { return dwarf_hasattr(&die, DW_AT_type); });
    readSize(chain, variable);
    if (wanted_ == Wanted::Places) readDefinition(chain, variable);
    result_.list.push_back(std::move(variable));
  }

  // The size of the type counts, unless it has an open end: then that of the symbol of this name, which is no better
  // otherwise (some compilers add a margin to it), or that of whatever symbol is there.
  void readSize(std::vector<Dwarf_Die>& chain, GlobalVariable& variable) {
    const char*& linkageName = variable.linkageName;
    for (Dwarf_Die& die : chain) {
      Dwarf_Attribute attribute;
      for (const unsigned kind : {DW_AT_linkage_name, DW_AT_MIPS_linkage_name}) {
        const char* found = dwarf_formstring(dwarf_attr(&die, kind, &attribute));
        if (found != nullptr) linkageName = found;
      }
    }
    const std::string_view symbol = linkageName != nullptr ? linkageName : variable.name.c_str();
    const TypeSize ofType = sizeOf(variable.type);
    if (!ofType.open) variable.size = ofType.size;
    if (!variable.size) variable.size = file_.symbolSize(variable.address, symbol);
    if (!variable.size) variable.size = file_.onlySymbolSize(variable.address);
    if (!variable.size) variable.size = ofType.size;
  }

  TypeSize sizeOf(const Dwarf_Die& type) {
    if (type.addr == nullptr) return {};
    const auto [known, isNew] = sizes_.try_emplace(type.addr);
    if (isNew) known->second = {sizeOfType(type), hasOpenEnd(type)};
    return known->second;
  }

  // A definition says only what differs from the declaration that it completes: often the line, but not the file.
  void readDefinition(std::vector<Dwarf_Die>& chain, GlobalVariable& variable) const {
    for (Dwarf_Die& die : chain) {
      if (variable.line == 0) dwarf_decl_line(&die, &variable.line);
      if (variable.file.empty()) variable.file = declarationFile(die);
    }
  }

  // The file that an entry names, empty when none. dwarf_decl_file gives up on units whose list of files is that of
  // their skeleton.
  std::string declarationFile(Dwarf_Die& die) const {
    Dwarf_Attribute attribute;
    Dwarf_Word number = 0;
    if (dwarf_formudata(dwarf_attr(&die, DW_AT_decl_file, &attribute), &number) != 0) return "";
    Dwarf_Die unit;
    Dwarf_Files* files = nullptr;
    std::size_t count = 0;
    if (dwarf_diecu(&die, &unit, nullptr, nullptr) == nullptr) return "";
    // What a .dwo file says of lines is for its type units.
    if (const auto skeleton = skeletons_.find(unit.addr); skeleton != skeletons_.end()) unit = skeleton->second;
    if (dwarf_getsrcfiles(&unit, &files, &count) != 0) return "";
    const char* file = number < count ? dwarf_filesrc(files, number, nullptr, nullptr) : nullptr;
    if (file == nullptr) return "";
    const char* directory = dwarf_formstring(dwarf_attr(&unit, DW_AT_comp_dir, &attribute));
    return *file == '/' || directory == nullptr ? file : std::string(directory) + "/" + file;
  }

  // Sorts by address and keeps one variable of each, as type and place are looked up by the address: of several
  // descriptions of a variable, and of several variables (equal constants, members of an unnamed union), the first.
  void sortAndUnite() {
    std::vector<GlobalVariable>& list = result_.list;
    // What has no size shares its address with something that has one.
    std::stable_sort(list.begin(), list.end(), [](const auto& a, const auto& b) {
      return std::pair(a.address, a.size == 0) < std::pair(b.address, b.size == 0);
    });
    std::size_t kept = 0;
    for (GlobalVariable& variable : list) {
      if (kept > 0 && list[kept - 1].address == variable.address) {
        if (variable.size != 0 && list[kept - 1].name != variable.name) ++result_.sharing;
        continue;
      }
      if (&list[kept] != &variable) list[kept] = std::move(variable);
      ++kept;
    }
    list.resize(kept);
  }

  const DebugFile& file_;
  const Wanted wanted_;
  Variables result_{};
  std::vector<Candidate> candidates_;
  std::unordered_map<const void*, TypeSize> sizes_;       // by the entry of the type
  std::unordered_map<const void*, Dwarf_Die> skeletons_;  // by the top entry of the unit in the .dwo file
  Dwarf_Die skeleton_{};                                  // of the unit that is being read
  bool cxx_ = false;
  std::string damage_;  // the latest within a unit
};

}  // namespace

Variables readVariables(const DebugFile& file, Wanted wanted) { return Reader(file, wanted).read(); }
