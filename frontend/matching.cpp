#include "frontend/matching.h"

#include <algorithm>
#include <array>
#include <functional>
#include <optional>
#include <unordered_map>
#include <unordered_set>

namespace {

// What variables have to have in common; a part that does not count is empty.
struct Key {
  std::string_view program;
  std::string_view name;
  std::string_view file{};
  std::string_view type{};
  std::optional<std::uint64_t> size{};
  std::string_view section{};

  bool operator==(const Key&) const = default;
};

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

// A variable that has no partner yet.
struct Single {
  std::size_t number;
  const Variable* variable;
  std::string_view program;  // what tells its program from others
};

// Made texts go into the pool.
using KeyOf = Key (*)(const Single& single, TextPool& made);

// The strictest first.
const std::array<KeyOf, 5> keys{{
    [](const Single& single, TextPool&) {
      const Variable& v = *single.variable;
      return Key{single.program, v.name, v.file, v.type, v.size, v.section};
    },
    [](const Single& single, TextPool&) {
      const Variable& v = *single.variable;
      return Key{single.program, v.name, v.file, v.type, v.size};
    },
    [](const Single& single, TextPool&) {
      return Key{single.program, single.variable->name, single.variable->file};
    },
    [](const Single& single, TextPool&) {
      return Key{single.program, single.variable->name, {}, single.variable->type};
    },
    [](const Single& single, TextPool& made) {
      return Key{single.program, single.variable->name, {}, made.intern(withoutBounds(single.variable->type))};
    },
}};

// Variables that wait for a partner; those of equal keys leave in the order in which they came.
class Waiting {
 public:
  explicit Waiting(std::size_t count) : next_(count, noRow) { queues_.reserve(count); }

  // `place` is less than the count.
  void add(const Key& key, std::size_t place) {
    const auto [at, isNew] = queues_.try_emplace(key, Queue{place, place});
    if (isNew) return;
    Queue& queue = at->second;
    (queue.first == noRow ? queue.first : next_[queue.last]) = place;
    queue.last = place;
  }

  // noRow: there is none.
  std::size_t take(const Key& key) {
    const auto at = queues_.find(key);
    if (at == queues_.end() || at->second.first == noRow) return noRow;
    const std::size_t place = at->second.first;
    at->second.first = next_[place];
    return place;
  }

 private:
  struct Queue {
    std::size_t first;
    std::size_t last;
  };
  std::unordered_map<Key, Queue, KeyHash> queues_;
  std::vector<std::size_t> next_;
};

// The programs of `rows`, in their order.
std::vector<const Inventory*> programsOf(const std::vector<Row>& rows) {
  std::vector<const Inventory*> programs;
  for (const Row& row : rows) {
    if (programs.empty() || programs.back() != row.program) programs.push_back(row.program);
  }
  return programs;
}

std::string_view fileName(std::string_view path) { return path.substr(path.rfind('/') + 1); }

bool haveNamesOfTheirOwn(const std::vector<const Inventory*>& programs) {
  std::unordered_set<std::string_view> names;
  return std::all_of(programs.begin(), programs.end(),
                     [&names](const Inventory* program) { return names.insert(fileName(program->executable)).second; });
}

// Length of the directory that all programs are in, with its '/'.
std::size_t commonDirectoryLength(const std::vector<const Inventory*>& programs) {
  std::string_view common = programs[0]->executable;
  for (const Inventory* program : programs) {
    const std::string_view path = program->executable;
    const auto [end, other] = std::mismatch(common.begin(), common.end(), path.begin(), path.end());
    common = common.substr(0, static_cast<std::size_t>(end - common.begin()));
  }
  return common.rfind('/') + 1;
}

// How programs are told apart.
enum class Telling { NotAtAll, ByFileName, ByPath };

std::vector<Single> singlesOf(const std::vector<Row>& rows, const std::vector<const Inventory*>& programs,
                              Telling telling) {
  const std::size_t directory = programs.empty() ? 0 : commonDirectoryLength(programs);
  std::vector<Single> singles;
  singles.reserve(rows.size());
  for (const Row& row : rows) {
    std::string_view program = row.program->executable;
    if (telling == Telling::ByFileName) program = fileName(program);
    if (telling == Telling::ByPath) program.remove_prefix(directory);
    if (telling == Telling::NotAtAll) program = {};
    singles.push_back({singles.size(), row.variable, program});
  }
  return singles;
}

// Pairs those of both sides that have `keyOf` in common; only the others stay.
void pairBy(KeyOf keyOf, std::vector<Single>& before, std::vector<Single>& after, std::vector<std::size_t>& partners) {
  TextPool made;
  Waiting waiting(before.size());
  for (std::size_t i = 0; i < before.size(); ++i) waiting.add(keyOf(before[i], made), i);
  std::erase_if(after, [&](const Single& single) {
    const std::size_t place = waiting.take(keyOf(single, made));
    if (place == noRow) return false;
    partners[before[place].number] = single.number;
    return true;
  });
  std::erase_if(before, [&partners](const Single& single) { return partners[single.number] != noRow; });
}

}  // namespace

std::vector<std::size_t> matchRows(const std::vector<Row>& before, const std::vector<Row>& after) {
  const std::vector<const Inventory*> programsBefore = programsOf(before);
  const std::vector<const Inventory*> programsAfter = programsOf(after);
  Telling telling = Telling::NotAtAll;
  if (programsBefore.size() > 1 || programsAfter.size() > 1) {
    const bool areClear = haveNamesOfTheirOwn(programsBefore) && haveNamesOfTheirOwn(programsAfter);
    telling = areClear ? Telling::ByFileName : Telling::ByPath;
  }
  std::vector<Single> singlesBefore = singlesOf(before, programsBefore, telling);
  std::vector<Single> singlesAfter = singlesOf(after, programsAfter, telling);
  std::vector<std::size_t> partners(before.size(), noRow);
  for (const KeyOf keyOf : keys) pairBy(keyOf, singlesBefore, singlesAfter, partners);
  return partners;
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
