#include "frontend/matching.h"

#include <algorithm>
#include <array>
#include <bit>
#include <functional>
#include <optional>
#include <unordered_map>
#include <unordered_set>

#include "frontend/fileMatching.h"
#include "frontend/texts.h"

namespace {

// The fields that variables must have in common to be paired. A field that does not count is empty.
struct Key {
  std::string_view program;
  std::string_view name;
  std::string_view file{};
  std::string_view type{};
  std::optional<std::uint64_t> size{};
  std::string_view section{};

  bool operator==(const Key&) const = default;
};

// The hash function of keys.
struct KeyHash {
  std::size_t operator()(const Key& key) const {
    constexpr std::size_t factor = 1099511628211u;  // of the FNV hash
    std::size_t hash = std::hash<std::string_view>()(key.name);
    for (const std::string_view text : {key.program, key.file, key.type, key.section}) {
      hash = hash * factor ^ std::hash<std::string_view>()(text);
    }
    return hash * factor ^ static_cast<std::size_t>(key.size.value_or(0));
  }
};

// A variable that has not been paired yet.
struct Single {
  std::size_t number;
  const Variable* variable;
  std::string_view name;     // without the numbers that the compiler counted
  std::string_view program;  // identifies its program among those of the build
  std::string_view file;     // by the same name in both builds
};

// Makes keys. A field that one of the builds does not know for any variable is empty in all keys.
class KeyMaker {
 public:
  KeyMaker(const std::vector<Single>& before, const std::vector<Single>& after) {
    const auto isKnownInBoth = [&](const auto& has) {
      return std::any_of(before.begin(), before.end(), has) && std::any_of(after.begin(), after.end(), has);
    };
    files_ = isKnownInBoth([](const Single& single) { return !single.variable->file.empty(); });
    types_ = isKnownInBoth([](const Single& single) { return !single.variable->type.empty(); });
    sizes_ = isKnownInBoth([](const Single& single) { return single.variable->size.has_value(); });
    sections_ = isKnownInBoth([](const Single& single) { return !single.variable->section.empty(); });
  }

  Key all(const Single& single) {
    Key key = allButSection(single);
    if (sections_) key.section = single.variable->section;
    return key;
  }
  Key allButSection(const Single& single) {
    Key key = file(single);
    if (types_) key.type = single.variable->type;
    if (sizes_) key.size = single.variable->size;
    return key;
  }
  Key file(const Single& single) {
    Key key{single.program, single.name};
    if (files_) key.file = single.file;
    return key;
  }
  Key type(const Single& single) {
    Key key{single.program, single.name};
    if (types_) key.type = single.variable->type;
    return key;
  }
  Key typeWithoutBounds(const Single& single) {
    Key key = type(single);
    key.type = made_.intern(withoutBounds(key.type));
    return key;
  }

 private:
  bool files_;
  bool types_;
  bool sizes_;
  bool sections_;
  TextPool made_;
};

using KeyOf = Key (KeyMaker::*)(const Single& single);

// The strictest first.
constexpr std::array<KeyOf, 5> steps{&KeyMaker::all, &KeyMaker::allButSection, &KeyMaker::file, &KeyMaker::type,
                                     &KeyMaker::typeWithoutBounds};

// The programs of `rows`, in their order.
std::vector<const Inventory*> programsOf(const std::vector<Row>& rows) {
  std::vector<const Inventory*> programs;
  for (const Row& row : rows) {
    if (programs.empty() || programs.back() != row.program) programs.push_back(row.program);
  }
  return programs;
}

bool haveUniqueFileNames(const std::vector<const Inventory*>& programs) {
  std::unordered_set<std::string_view> names;
  return std::all_of(programs.begin(), programs.end(),
                     [&names](const Inventory* program) { return names.insert(fileName(program->executable)).second; });
}

// Length of the common directory of all programs, including the '/'.
std::size_t commonDirectoryLength(const std::vector<const Inventory*>& programs) {
  std::string_view common = programs[0]->executable;
  for (const Inventory* program : programs) {
    const std::string_view path = program->executable;
    const auto [end, other] = std::mismatch(common.begin(), common.end(), path.begin(), path.end());
    common = common.substr(0, static_cast<std::size_t>(end - common.begin()));
  }
  return common.rfind('/') + 1;
}

// What identifies a program in both builds: nothing if there is only one.
enum class ProgramKey { None, FileName, Path };

// The path of the file, absolute if that is known.
std::string_view pathOf(const Row& row, TextPool& made) {
  const std::string_view file = row.variable->file;
  const std::string& directory = row.program->directory;
  if (file.empty() || file.starts_with('/') || directory.empty()) return file;
  return made.intern((directory + "/").append(file));
}

std::vector<Single> singlesOf(const std::vector<Row>& rows, const std::vector<const Inventory*>& programs,
                              ProgramKey programKey, TextPool& made) {
  const std::size_t directory = programs.empty() ? 0 : commonDirectoryLength(programs);
  std::vector<Single> singles;
  singles.reserve(rows.size());
  for (const Row& row : rows) {
    std::string_view program = row.program->executable;
    if (programKey == ProgramKey::FileName) program = fileName(program);
    if (programKey == ProgramKey::Path) program.remove_prefix(directory);
    if (programKey == ProgramKey::None) program = {};
    const std::string_view name = row.variable->name;
    const bool counted = name.find_first_of("$#.") != std::string_view::npos;
    singles.push_back({singles.size(), row.variable, counted ? made.intern(withoutCounters(name)) : name, program,
                       pathOf(row, made)});
  }
  return singles;
}

std::vector<std::string_view> filesOf(const std::vector<Single>& singles) {
  std::vector<std::string_view> files;
  for (const Single& single : singles) {
    if (!single.file.empty() && (files.empty() || files.back() != single.file)) files.push_back(single.file);
  }
  return files;
}

// The file of the only variable with a key; empty if there are several.
using Owners = std::unordered_map<Key, std::string_view, KeyHash>;

template <typename IsLeft>
Owners ownersOf(const std::vector<Single>& singles, KeyMaker& maker, IsLeft isLeft) {
  Owners owners;
  for (const Single& single : singles) {
    if (!isLeft(single.file)) continue;
    const auto [at, isNew] = owners.try_emplace(maker.type(single), single.file);
    if (!isNew) at->second = {};
  }
  return owners;
}

// Gives files the same name in both builds. One that was renamed is known by the variables that only it defines.
void matchFiles(std::vector<Single>& before, const std::vector<Single>& after, KeyMaker& maker) {
  FilePairs pairs(filesOf(before), filesOf(after));
  const Owners ownersAfter = ownersOf(after, maker, [&](std::string_view file) { return pairs.isLeftAfter(file); });
  FilePairs::Votes votes;
  for (const auto& [key, file] :
       ownersOf(before, maker, [&](std::string_view name) { return pairs.isLeftBefore(name); })) {
    const auto found = ownersAfter.find(key);
    if (found != ownersAfter.end() && !file.empty() && !found->second.empty()) ++votes[{file, found->second}];
  }
  pairs.pairVoted(votes);
  for (Single& single : before) single.file = pairs.nameAfter(single.file);
}

// A variable and the hash of its key.
struct Hashed {
  std::size_t hash;
  std::size_t index;  // among the singles
};

std::vector<Hashed> hashesOf(const std::vector<Key>& keys) {
  std::vector<Hashed> hashes;
  hashes.reserve(keys.size());
  for (const Key& key : keys) hashes.push_back({KeyHash()(key), hashes.size()});
  return hashes;
}

// Removes most of those hashes that are not among `others`, to save sorting them (a Bloom filter).
void removeUnmatched(std::vector<Hashed>& hashes, const std::vector<Hashed>& others) {
  const std::size_t bits = std::bit_ceil(16 * others.size() + 1);
  std::vector<bool> seen(bits);
  for (const Hashed& other : others) seen[other.hash % bits] = true;
  std::erase_if(hashes, [&](const Hashed& own) { return !seen[own.hash % bits]; });
}

// Sorts by hash; equal hashes stay in their order.
void sortHashes(std::vector<Hashed>& hashes) {
  std::sort(hashes.begin(), hashes.end(),
            [](const Hashed& a, const Hashed& b) { return a.hash != b.hash ? a.hash < b.hash : a.index < b.index; });
}

// The end of the range of equal hashes that begins at `begin`.
std::size_t rangeEnd(const std::vector<Hashed>& hashes, std::size_t begin) {
  std::size_t end = begin + 1;
  while (end < hashes.size() && hashes[end].hash == hashes[begin].hash) ++end;
  return end;
}

// One step of the matching. Sorted arrays beat hash tables here, because each step looks at every unpaired variable.
class Step {
 public:
  Step(const std::vector<Key>& before, const std::vector<Key>& after)
      : keysBefore_(before),
        keysAfter_(after),
        hashesBefore_(hashesOf(keysBefore_)),
        hashesAfter_(hashesOf(keysAfter_)),
        partners_(before.size(), noRow) {
    removeUnmatched(hashesBefore_, hashesAfter_);
    removeUnmatched(hashesAfter_, hashesBefore_);
    sortHashes(hashesBefore_);
    sortHashes(hashesAfter_);
  }

  // Returns for each of `before` the index of its partner in `after`, or noRow.
  const std::vector<std::size_t>& run() {
    std::size_t i = 0;
    std::size_t j = 0;
    while (i < hashesBefore_.size() && j < hashesAfter_.size()) {
      if (hashesBefore_[i].hash < hashesAfter_[j].hash) {
        ++i;
      } else if (hashesBefore_[i].hash > hashesAfter_[j].hash) {
        ++j;
      } else {
        const std::size_t endBefore = rangeEnd(hashesBefore_, i);
        const std::size_t endAfter = rangeEnd(hashesAfter_, j);
        pairRange(i, endBefore, j, endAfter);
        i = endBefore;
        j = endAfter;
      }
    }
    return partners_;
  }

 private:
  // All in the range have the same hash and almost always the same key, so the first unpaired one usually matches.
  void pairRange(std::size_t begin, std::size_t end, std::size_t beginAfter, std::size_t endAfter) {
    const auto isPaired = [this](std::size_t i) { return partners_[hashesBefore_[i].index] != noRow; };
    for (std::size_t j = beginAfter; j < endAfter; ++j) {
      while (begin < end && isPaired(begin)) ++begin;
      const std::size_t index = hashesAfter_[j].index;
      std::size_t i = begin;
      while (i < end && (isPaired(i) || keysBefore_[hashesBefore_[i].index] != keysAfter_[index])) ++i;
      if (i < end) partners_[hashesBefore_[i].index] = index;
    }
  }

  const std::vector<Key>& keysBefore_;
  const std::vector<Key>& keysAfter_;
  std::vector<Hashed> hashesBefore_;
  std::vector<Hashed> hashesAfter_;
  std::vector<std::size_t> partners_;
};

std::vector<Key> keysOf(KeyOf keyOf, const std::vector<Single>& singles, KeyMaker& maker) {
  std::vector<Key> keys;
  keys.reserve(singles.size());
  for (const Single& single : singles) keys.push_back((maker.*keyOf)(single));
  return keys;
}

// Pairs variables with equal keys and removes them from `before` and `after`.
void pairBy(KeyOf keyOf, KeyMaker& maker, std::vector<Single>& before, std::vector<Single>& after,
            std::vector<std::size_t>& partners) {
  if (before.empty() || after.empty()) return;
  const std::vector<Key> keysBefore = keysOf(keyOf, before, maker);
  const std::vector<Key> keysAfter = keysOf(keyOf, after, maker);
  Step step(keysBefore, keysAfter);
  const std::vector<std::size_t>& indices = step.run();
  for (std::size_t i = 0; i < indices.size(); ++i) {
    if (indices[i] == noRow) continue;
    partners[before[i].number] = after[indices[i]].number;
    after[indices[i]].variable = nullptr;
  }
  std::erase_if(before, [&partners](const Single& single) { return partners[single.number] != noRow; });
  std::erase_if(after, [](const Single& single) { return single.variable == nullptr; });
}

}  // namespace

std::vector<std::size_t> matchRows(const std::vector<Row>& before, const std::vector<Row>& after) {
  const std::vector<const Inventory*> programsBefore = programsOf(before);
  const std::vector<const Inventory*> programsAfter = programsOf(after);
  ProgramKey programKey = ProgramKey::None;
  if (programsBefore.size() > 1 || programsAfter.size() > 1) {
    const bool areUnique = haveUniqueFileNames(programsBefore) && haveUniqueFileNames(programsAfter);
    programKey = areUnique ? ProgramKey::FileName : ProgramKey::Path;
  }
  TextPool paths;
  std::vector<Single> singlesBefore = singlesOf(before, programsBefore, programKey, paths);
  std::vector<Single> singlesAfter = singlesOf(after, programsAfter, programKey, paths);
  std::vector<std::size_t> partners(before.size(), noRow);
  KeyMaker maker(singlesBefore, singlesAfter);
  matchFiles(singlesBefore, singlesAfter, maker);
  for (const KeyOf keyOf : steps) pairBy(keyOf, maker, singlesBefore, singlesAfter, partners);
  return partners;
}

std::string withoutCounters(std::string_view name) {
  std::string result;
  for (std::size_t at = 0; at < name.size();) {
    result += name[at++];
    const std::string_view scope = std::string_view(result).substr(result.rfind(':') + 1);
    if (scope != "$_" && scope != "._anon_" && !scope.ends_with("#")) continue;
    at = std::min(name.find_first_not_of("0123456789", at), name.size());
  }
  return result;
}

std::string withoutBounds(std::string_view type) {
  std::string kept;
  int depth = 0;  // of template arguments
  for (std::size_t at = 0; at < type.size(); ++at) {
    const char c = type[at];
    kept += c;
    if (c == '<') ++depth;
    if (c == '>' && depth > 0) --depth;
    if (c != '[' || depth > 0) continue;
    while (at + 1 < type.size() && type[at + 1] >= '0' && type[at + 1] <= '9') ++at;
  }
  return kept;
}
