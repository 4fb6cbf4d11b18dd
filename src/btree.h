// A B-tree table on disk: items keyed by a text, in a file of fixed-size node records. docs/vifa.dat.md describes the
// file byte by byte. Not thread-safe; no two tables may use one file. Instantiated by objRead for the index.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <type_traits>
#include <vector>

#include "tableFile.h"

inline constexpr int MaxKeys = 11;                  ///< most items in one node
inline constexpr int MaxKeysPlusOne = MaxKeys + 1;  ///< branches in one node
inline constexpr int MinKeys = 5;                   ///< fewest items in any node but the root
inline constexpr std::int32_t NilPtr = -1;          ///< no node

/// One node, as in the file. Items from position `Count` and branches after position `Count` are zeros.
template <typename ItemType>
struct NodeType {
  std::int32_t Count = 0;                 ///< items in use
  ItemType Key[MaxKeys]{};                ///< ascending
  std::int32_t Branch[MaxKeysPlusOne]{};  ///< Branch[j] holds the keys between Key[j - 1] and Key[j]; NilPtr: none
};

/// The table. `KeyFieldType` is an array of characters with a NUL-terminated text; keys are compared as C strings, as
/// unsigned bytes. `ItemType` is a trivially copyable struct with a field `KeyField` of that type; if it has a function
/// `isValid`, a node with an item for which that is false counts as damaged.
///
/// A cache of fixed size keeps changed nodes until they are evicted or `Flush` is called. A node that cannot be read or
/// written completely, or that is damaged, ends the program through Error.
template <typename KeyFieldType, typename ItemType>
class BTTableClass {
 public:
  /// `Mode` 'w' creates an empty table in the file `FileName`, replacing its content, and locks it until destroyed; 'r'
  /// opens one for Retrieve (a file shorter than its header is an empty table). Does not return on failure.
  BTTableClass(char Mode, const char* FileName) : DataFile(Mode, FileName, sizeof(Node)), OpenMode(Mode) {
    Slots.reserve(maxSlots);  // so that they never move
    DataFile.exitOnProblem(OpenMode == 'r' ? ReadHeader() : WriteHeader());
  }

  /// In mode 'w' completes the file by writing its header; a failure is reported on standard error.
  ~BTTableClass() {
    // After a failure the header still describes an empty table, so that the file is not mistaken for a finished one.
    if (OpenMode != 'w' || DataFile.failed()) return;
    Problem problem = WriteChanged();
    if (!problem) problem = WriteHeader();
    if (problem) DataFile.report(problem);
  }
  BTTableClass(const BTTableClass&) = delete;
  BTTableClass& operator=(const BTTableClass&) = delete;

  /// Adds `Item`. False, with nothing changed, if its key is already present.
  bool Insert(const ItemType& Item) {
    Promotion promoted;
    if (!PushDown(Item, Root, 0, promoted)) return false;
    if (promoted.MoveUp) {
      Node& top = Append();
      top.Count = 1;
      top.Key[0] = promoted.NewItem;
      top.Branch[0] = Root;
      top.Branch[1] = promoted.NewRight;
      Root = NumNodes;
    }
    ++NumItems;
    return true;
  }

  /// Looks up `SearchKey`. True with its item copied to `Item`; false, with `Item` unchanged, if it is not present.
  bool Retrieve(const KeyFieldType& SearchKey, ItemType& Item) {
    std::int32_t number = Root;
    for (int level = 0; number != NilPtr; ++level) {
      const Node& current = Load(number, level).node;
      int Location = 0;
      if (SearchNode(current, SearchKey, Location)) {
        Item = current.Key[Location];
        return true;
      }
      number = current.Branch[Location + 1];
    }
    return false;
  }

  /// Writes all changed nodes to the file.
  void Flush() { DataFile.exitOnProblem(WriteChanged()); }

  /// Whether the table has no items.
  bool Empty() const { return Root == NilPtr; }

  /// Prints the tree to standard error, one item per line, indented by level; `ItemType` must have a `DataField` with
  /// getDataType and getVarName.
  void Dump() { DumpSubtree(Root, 0); }

  /// Verifies all invariants of a finished file: unique ascending keys within their bounds, all leaves at the same
  /// depth, the number of items in each node, each node used once, the counts, and the file's length. False at the
  /// first violation, which is reported on standard error.
  bool Check() {
    if (OpenMode == 'w') Flush();
    Survey survey;
    if (Root != NilPtr && !CheckSubtree(Root, 0, survey)) return false;
    if (survey.items != NumItems) return DataFile.report({0, "wrong number of items"});
    if (survey.nodes != NumNodes) return DataFile.report({0, "wrong number of nodes"});
    const std::int64_t length = (static_cast<std::int64_t>(NumNodes) + 1) * static_cast<std::int64_t>(sizeof(Node));
    return DataFile.size() == length || DataFile.report({0, "wrong file length"});
  }

 protected:
  TableFile DataFile;
  std::int32_t NumItems = 0;
  char OpenMode;

 private:
  using Node = NodeType<ItemType>;
  using Problem = TableFile::Problem;
  static_assert(std::is_trivially_copyable_v<Node> && std::is_standard_layout_v<Node>);

  // Size of the cache: 900,000 bytes, with nodes of 28,116 bytes, for a tree of any size; far more nodes than its
  // height.
  static constexpr std::size_t maxSlots = 32;
  // No tree of 2^31 nodes has more levels; a longer path is a cycle.
  static constexpr int maxLevels = 32;

  // A place in the cache. The least recently used one is evicted.
  struct Slot {
    std::int32_t number = NilPtr;
    std::uint64_t lastUse = 0;
    bool changed = false;  // since it was read or written
    Node node;
  };

  // The item that an insertion into a subtree moves up into the parent node.
  struct Promotion {
    bool MoveUp = false;
    ItemType NewItem;
    std::int32_t NewRight = NilPtr;  // the subtree with the keys after it
  };

  // What CheckSubtree has seen so far.
  struct Survey {
    std::int64_t items = 0;
    std::int64_t nodes = 0;
    int leafLevel = -1;
    KeyFieldType lastKey{};
  };

  static int Compare(const KeyFieldType& a, const KeyFieldType& b) { return std::strncmp(a, b, sizeof a); }

  // Sets `Location` to the position of the greatest key not greater than `Target`, -1 if none. Returns whether that key
  // is `Target`.
  static bool SearchNode(const Node& Current, const KeyFieldType& Target, int& Location) {
    for (Location = Current.Count - 1; Location >= 0; --Location) {
      const int order = Compare(Target, Current.Key[Location].KeyField);
      if (order >= 0) return order == 0;
    }
    return false;
  }

  static void AddItem(const ItemType& NewItem, std::int32_t NewRight, Node& Current, int Location) {
    std::move_backward(Current.Key + Location, Current.Key + Current.Count, Current.Key + Current.Count + 1);
    std::move_backward(Current.Branch + Location + 1, Current.Branch + Current.Count + 1,
                       Current.Branch + Current.Count + 2);
    Current.Key[Location] = NewItem;
    Current.Branch[Location + 1] = NewRight;
    ++Current.Count;
  }

  // Inserts the promoted item into the full node `Number` at position `At`: of the twelve items the five lowest stay,
  // the sixth is promoted in turn, and the six highest go to a new node.
  void Split(std::int32_t Number, int At, Promotion& promoted) {
    const bool toLeft = At <= MinKeys;
    const int Median = toLeft ? MinKeys : MinKeys + 1;
    Node& right = Append();
    Node& left = LoadToChange(Number, 0);
    std::copy(left.Key + Median, left.Key + MaxKeys, right.Key);
    std::copy(left.Branch + Median + 1, left.Branch + MaxKeysPlusOne, right.Branch + 1);
    right.Count = MaxKeys - Median;
    left.Count = Median;
    AddItem(promoted.NewItem, promoted.NewRight, toLeft ? left : right, toLeft ? At : At - Median);
    --left.Count;
    right.Branch[0] = left.Branch[left.Count + 1];
    promoted.NewItem = left.Key[left.Count];
    promoted.NewRight = NumNodes;
    std::fill(left.Key + left.Count, left.Key + MaxKeys, ItemType{});
    std::fill(left.Branch + left.Count + 1, left.Branch + MaxKeysPlusOne, 0);
  }

  // Inserts `Item` into the subtree of node `Number`. False, with nothing changed, if its key is present: it is found
  // on the way down.
  bool PushDown(const ItemType& Item, std::int32_t Number, int Level, Promotion& promoted) {
    if (Number == NilPtr) {
      promoted = {true, Item, NilPtr};
      return true;
    }
    int Location = 0;
    const Node& onPath = Load(Number, Level).node;
    if (SearchNode(onPath, Item.KeyField, Location)) return false;
    if (!PushDown(Item, onPath.Branch[Location + 1], Level + 1, promoted)) return false;
    if (!promoted.MoveUp) return true;
    Node& current = LoadToChange(Number, Level);
    if (current.Count == MaxKeys) {
      Split(Number, Location + 1, promoted);
    } else {
      AddItem(promoted.NewItem, promoted.NewRight, current, Location + 1);
      promoted.MoveUp = false;
    }
    return true;
  }

  // What is wrong with a node from the file, if anything.
  Problem Defect(std::int32_t Number, const Node& Current) const {
    if (Current.Count < 1 || Current.Count > MaxKeys) return {Number, "damaged: invalid number of items"};
    for (int j = 0; j <= Current.Count; ++j) {
      const std::int32_t branch = Current.Branch[j];
      if (branch != NilPtr && (branch < 1 || branch > NumNodes)) return {Number, "damaged: invalid branch"};
    }
    for (int i = 0; i < Current.Count; ++i) {
      const ItemType& item = Current.Key[i];
      if (std::memchr(item.KeyField, 0, sizeof item.KeyField) == nullptr) return {Number, "damaged: unterminated key"};
      if constexpr (requires { item.isValid(); }) {
        if (!item.isValid()) return {Number, "damaged: unterminated text"};
      }
    }
    return {};
  }

  // A slot for node `Number`, which is not in the cache. Writes the evicted node if it has changed. The caller
  // overwrites the content.
  Slot& AllocateSlot(std::int32_t Number) {
    if (Slots.size() < maxSlots) Slots.emplace_back();
    Slot& slot = *std::min_element(Slots.begin(), Slots.end(),
                                   [](const Slot& a, const Slot& b) { return a.lastUse < b.lastUse; });
    DataFile.exitOnProblem(Write(slot));
    slot.number = Number;
    slot.lastUse = ++Uses;
    return slot;
  }

  // Writes the node if it has changed.
  Problem Write(Slot& slot) {
    const Problem problem = slot.changed ? DataFile.write(slot.number, &slot.node) : Problem();
    slot.changed = static_cast<bool>(problem);
    return problem;
  }

  // Writes all changed nodes, up to the first problem.
  Problem WriteChanged() {
    Problem problem;
    for (auto slot = Slots.begin(); slot != Slots.end() && !problem; ++slot) problem = Write(*slot);
    return problem;
  }

  // Sets `found` to the slot of a node, and reads the node unless it is cached.
  Problem Find(std::int32_t Number, int Level, Slot*& found) {
    if (Level == maxLevels) return {Number, "damaged: cycle"};
    const auto cached = std::find_if(Slots.begin(), Slots.end(), [=](const Slot& one) { return one.number == Number; });
    if (cached != Slots.end()) {
      cached->lastUse = ++Uses;
      found = &*cached;
      return {};
    }
    found = &AllocateSlot(Number);
    Problem problem = DataFile.read(Number, &found->node);
    if (!problem) problem = Defect(Number, found->node);
    if (problem) found->number = NilPtr;
    return problem;
  }

  // The result is valid until `maxSlots` other nodes have been used.
  Slot& Load(std::int32_t Number, int Level) {
    Slot* found = nullptr;
    DataFile.exitOnProblem(Find(Number, Level, found));
    return *found;
  }

  Node& LoadToChange(std::int32_t Number, int Level) {
    Slot& slot = Load(Number, Level);
    slot.changed = true;
    return slot.node;
  }

  // Adds an all-zero node, number `NumNodes`, for the caller to fill.
  Node& Append() {
    if (NumNodes == INT32_MAX) DataFile.exitOnProblem({NumNodes, "no further node is possible"});
    Slot& slot = AllocateSlot(NumNodes + 1);
    ++NumNodes;
    std::memset(static_cast<void*>(&slot.node), 0, sizeof slot.node);
    slot.changed = true;
    return slot.node;
  }

  // The header has the layout of a node, with its three numbers in the first branches.
  Problem ReadHeader() {
    const auto header = std::make_unique<Node>();
    // A file without a header is an empty table.
    if (const Problem problem = DataFile.read(0, header.get())) return problem.errorNumber != 0 ? problem : Problem();
    NumItems = header->Branch[0];
    NumNodes = header->Branch[1];
    Root = header->Branch[2];
    if (Root == NilPtr && NumItems == 0 && NumNodes == 0) return {};
    return Root >= 1 && Root <= NumNodes && NumItems >= 1 ? Problem() : Problem{0, "damaged header"};
  }

  Problem WriteHeader() {
    const auto header = std::make_unique<Node>();
    header->Branch[0] = NumItems;
    header->Branch[1] = NumNodes;
    header->Branch[2] = Root;
    return DataFile.write(0, header.get());
  }

  // Visits the subtree in key order: keys that ascend throughout are also within the bounds of their branches.
  bool CheckSubtree(std::int32_t Number, int Level, Survey& survey) {
    if (++survey.nodes > NumNodes) return DataFile.report({Number, "damaged: a node is referenced twice"});
    Slot* found = nullptr;
    if (const Problem problem = Find(Number, Level, found)) return DataFile.report(problem);
    const auto copy = std::make_unique<Node>(found->node);  // its slot may be reused by the recursion
    const Node& current = *copy;
    if (Number != Root && current.Count < MinKeys) return DataFile.report({Number, "damaged: too few items"});
    const bool leaf = current.Branch[0] == NilPtr;
    if (leaf && survey.leafLevel < 0) survey.leafLevel = Level;
    if (leaf && survey.leafLevel != Level) return DataFile.report({Number, "damaged: leaf at a different depth"});
    for (int j = 0; j <= current.Count; ++j) {
      if ((current.Branch[j] == NilPtr) != leaf) return DataFile.report({Number, "damaged: missing branches"});
      if (!leaf && !CheckSubtree(current.Branch[j], Level + 1, survey)) return false;
      if (j == current.Count) break;
      const KeyFieldType& key = current.Key[j].KeyField;
      if (survey.items > 0 && Compare(survey.lastKey, key) >= 0)
        return DataFile.report({Number, "damaged: keys out of order"});
      std::memcpy(survey.lastKey, key, sizeof key);
      ++survey.items;
    }
    return true;
  }

  void DumpSubtree(std::int32_t Number, int Level) {
    if (Number == NilPtr) return;
    const auto copy = std::make_unique<Node>(Load(Number, Level).node);
    for (int j = 0; j <= copy->Count; ++j) {
      DumpSubtree(copy->Branch[j], Level + 1);
      if (j == copy->Count) continue;
      const ItemType& item = copy->Key[j];
      std::fprintf(stderr, "%*snode %d: %s: %s %s\n", 2 * Level, "", Number, item.KeyField,
                   item.DataField.getDataType(), item.DataField.getVarName());
    }
  }

  std::int32_t Root = NilPtr;
  std::int32_t NumNodes = 0;
  std::vector<Slot> Slots;
  std::uint64_t Uses = 0;
};
