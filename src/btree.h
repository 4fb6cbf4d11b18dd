// A B-tree table on disk: items keyed by a text, in a file of fixed-size node records. The file's layout, byte by byte,
// is described in docs/vifa.dat.md. One object, one file, one thread.
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

/// One node, as it lies in the file. Items from position `Count` and branches after position `Count` are zeros.
template <typename ItemType>
struct NodeType {
  std::int32_t Count = 0;                 ///< items in use
  ItemType Key[MaxKeys]{};                ///< ascending
  std::int32_t Branch[MaxKeysPlusOne]{};  ///< Branch[j] holds the keys between Key[j - 1] and Key[j]; NilPtr: none
};

/// The table. `KeyFieldType` is an array of characters holding a NUL-terminated text; keys are compared as C strings,
/// as unsigned bytes. `ItemType` is a plain record with a field `KeyField` of that type; if it has an operation
/// `isWhole`, a node with an item for which that is false counts as damaged.
///
/// Changed nodes wait in memory, a bounded number of them, until their place is needed or `Flush` is called. A node
/// that cannot be read or written whole, or that is damaged, ends the program through Error.
template <typename KeyFieldType, typename ItemType>
class BTTableClass {
 public:
  /// `Mode` 'w' creates the table `FileName`, empty, in place of any old file, which it locks as long as it lives; 'r'
  /// opens an existing one for Retrieve (a file shorter than its header is an empty table). Does not return on failure.
  BTTableClass(char Mode, const char* FileName) : DataFile(Mode, FileName, sizeof(Node)), OpenMode(Mode) {
    Slots.reserve(mostSlots);  // they are never moved
    DataFile.exitOn(OpenMode == 'r' ? ReadHeader() : WriteHeader());
  }

  /// In mode 'w' completes the file by writing its header; a failure is reported on standard error.
  ~BTTableClass() {
    // A table that failed keeps the header of an empty one, so that nobody takes it for finished.
    if (OpenMode != 'w' || DataFile.failed()) return;
    Problem problem = WriteChanged();
    if (!problem) problem = WriteHeader();
    if (problem) DataFile.report(problem);
  }
  BTTableClass(const BTTableClass&) = delete;
  BTTableClass& operator=(const BTTableClass&) = delete;

  /// Adds `Item`. False, with nothing changed, when its key is present already.
  bool Insert(const ItemType& Item) {
    Risen risen;
    if (!PushDown(Item, Root, 0, risen)) return false;
    if (risen.any) {
      Node& top = Append();
      top.Count = 1;
      top.Key[0] = risen.Item;
      top.Branch[0] = Root;
      top.Branch[1] = risen.Right;
      Root = NumNodes;
    }
    ++NumItems;
    return true;
  }

  /// Looks `SearchKey` up. True: the item is copied to `Item`. False: not present, and `Item` is left as it was.
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

  /// Writes every node that has changed to the file.
  void Flush() { DataFile.exitOn(WriteChanged()); }

  /// Whether the table holds no item.
  bool Empty() const { return Root == NilPtr; }

  /// Prints the tree to standard error, one item a line, indented by its level; `Item` must have a `DataField` with
  /// getDataType and getVarName.
  void Dump() { DumpSubtree(Root, 0); }

  /// Verifies everything that holds of a finished file: unique ascending keys within their bounds, all leaves at the
  /// same depth, the number of items in each node, each node used once, the counts, and the file's length. False at
  /// the first violation, with a line on standard error that says which.
  bool Check() {
    if (OpenMode == 'w') Flush();
    Survey survey;
    if (Root != NilPtr && !CheckSubtree(Root, 0, survey)) return false;
    if (survey.items != NumItems) return DataFile.report({0, "wrong number of items"});
    if (survey.nodes != NumNodes) return DataFile.report({0, "wrong number of nodes"});
    const std::int64_t length = (static_cast<std::int64_t>(NumNodes) + 1) * static_cast<std::int64_t>(sizeof(Node));
    return DataFile.size() == length || DataFile.report({0, "wrong length of the file"});
  }

 protected:
  TableFile DataFile;
  std::int32_t NumItems = 0;
  char OpenMode;

 private:
  using Node = NodeType<ItemType>;
  using Problem = TableFile::Problem;
  static_assert(std::is_trivially_copyable_v<Node> && std::is_standard_layout_v<Node>);

  // Nodes in memory at most. With nodes of 28,116 bytes these are 900,000 bytes, whatever the size of the tree; many
  // more than one path through it.
  static constexpr std::size_t mostSlots = 32;
  // More levels than any tree of 2^31 nodes has; a path that is longer is a cycle.
  static constexpr int mostLevels = 32;

  // A node in memory. The least recently used one makes room for another.
  struct Slot {
    std::int32_t number = NilPtr;
    std::uint64_t lastUse = 0;
    bool changed = false;  // since it was read or written
    Node node;
  };

  // What an insertion into a subtree leaves to be put into the node above it.
  struct Risen {
    bool any = false;
    ItemType Item;
    std::int32_t Right = NilPtr;  // the node with the keys after it
  };

  // What a subtree turned out to hold.
  struct Survey {
    std::int64_t items = 0;
    std::int64_t nodes = 0;
    int leafLevel = -1;
    KeyFieldType lastKey{};
  };

  static int Compare(const KeyFieldType& a, const KeyFieldType& b) { return std::strncmp(a, b, sizeof a); }

  // Sets `Location` to the position of the greatest key that is not greater than `Target`, -1 if there is none. Returns
  // whether that key is `Target`.
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

  // Puts what has risen into the full node `Number` at position `At`: of the twelve items the five lowest stay, the
  // sixth rises in its turn, and the six highest go to a new node.
  void Split(std::int32_t Number, int At, Risen& risen) {
    const bool toLeft = At <= MinKeys;
    const int Median = toLeft ? MinKeys : MinKeys + 1;
    Node& right = Append();
    Node& left = LoadToChange(Number, 0);
    std::copy(left.Key + Median, left.Key + MaxKeys, right.Key);
    std::copy(left.Branch + Median + 1, left.Branch + MaxKeysPlusOne, right.Branch + 1);
    right.Count = MaxKeys - Median;
    left.Count = Median;
    AddItem(risen.Item, risen.Right, toLeft ? left : right, toLeft ? At : At - Median);
    --left.Count;
    right.Branch[0] = left.Branch[left.Count + 1];
    risen.Item = left.Key[left.Count];
    risen.Right = NumNodes;
    std::fill(left.Key + left.Count, left.Key + MaxKeys, ItemType{});
    std::fill(left.Branch + left.Count + 1, left.Branch + MaxKeysPlusOne, 0);
  }

  // Inserts `Item` below node `Number`. False, with nothing changed, when its key is present: it is found on the way
  // down.
  bool PushDown(const ItemType& Item, std::int32_t Number, int Level, Risen& risen) {
    if (Number == NilPtr) {
      risen = {true, Item, NilPtr};
      return true;
    }
    int Location = 0;
    const Node& onTheWay = Load(Number, Level).node;
    if (SearchNode(onTheWay, Item.KeyField, Location)) return false;
    if (!PushDown(Item, onTheWay.Branch[Location + 1], Level + 1, risen)) return false;
    if (!risen.any) return true;
    Node& current = LoadToChange(Number, Level);
    if (current.Count == MaxKeys) {
      Split(Number, Location + 1, risen);
    } else {
      AddItem(risen.Item, risen.Right, current, Location + 1);
      risen.any = false;
    }
    return true;
  }

  // What makes a node from the file unfit to be used.
  Problem Defect(std::int32_t Number, const Node& Current) const {
    if (Current.Count < 1 || Current.Count > MaxKeys) return {Number, "damaged: its number of items"};
    for (int j = 0; j <= Current.Count; ++j) {
      const std::int32_t branch = Current.Branch[j];
      if (branch != NilPtr && (branch < 1 || branch > NumNodes)) return {Number, "damaged: a branch to no node"};
    }
    for (int i = 0; i < Current.Count; ++i) {
      const ItemType& item = Current.Key[i];
      if (std::memchr(item.KeyField, 0, sizeof item.KeyField) == nullptr)
        return {Number, "damaged: a key without an end"};
      if constexpr (requires { item.isWhole(); }) {
        if (!item.isWhole()) return {Number, "damaged: a text without an end"};
      }
    }
    return {};
  }

  // A slot for node `Number`, which is not in memory. The node that makes room for it is written if it has changed. The
  // content is left for the caller to overwrite.
  Slot& MakeRoom(std::int32_t Number) {
    if (Slots.size() < mostSlots) Slots.emplace_back();
    Slot& slot = *std::min_element(Slots.begin(), Slots.end(),
                                   [](const Slot& a, const Slot& b) { return a.lastUse < b.lastUse; });
    DataFile.exitOn(Write(slot));
    slot.number = Number;
    slot.lastUse = ++Uses;
    return slot;
  }

  // Writes a node that has changed.
  Problem Write(Slot& slot) {
    const Problem problem = slot.changed ? DataFile.write(slot.number, &slot.node) : Problem();
    slot.changed = static_cast<bool>(problem);
    return problem;
  }

  // Writes all nodes that have changed, up to the first problem.
  Problem WriteChanged() {
    Problem problem;
    for (auto slot = Slots.begin(); slot != Slots.end() && !problem; ++slot) problem = Write(*slot);
    return problem;
  }

  // Sets `found` to the slot of a node, which is read unless it is in memory.
  Problem Find(std::int32_t Number, int Level, Slot*& found) {
    if (Level == mostLevels) return {Number, "damaged: on a path that does not end"};
    const auto known = std::find_if(Slots.begin(), Slots.end(), [=](const Slot& one) { return one.number == Number; });
    if (known != Slots.end()) {
      known->lastUse = ++Uses;
      found = &*known;
      return {};
    }
    found = &MakeRoom(Number);
    Problem problem = DataFile.read(Number, &found->node);
    if (!problem) problem = Defect(Number, found->node);
    if (problem) found->number = NilPtr;
    return problem;
  }

  // Valid until as many other nodes as there are slots have been used.
  Slot& Load(std::int32_t Number, int Level) {
    Slot* found = nullptr;
    DataFile.exitOn(Find(Number, Level, found));
    return *found;
  }

  Node& LoadToChange(std::int32_t Number, int Level) {
    Slot& slot = Load(Number, Level);
    slot.changed = true;
    return slot.node;
  }

  // A new, zeroed node, number `NumNodes`, for the caller to fill.
  Node& Append() {
    if (NumNodes == INT32_MAX) DataFile.exitOn({NumNodes, "is the last possible node"});
    Slot& slot = MakeRoom(NumNodes + 1);
    ++NumNodes;
    std::memset(static_cast<void*>(&slot.node), 0, sizeof slot.node);
    slot.changed = true;
    return slot.node;
  }

  // The header has the shape of a node, with its three numbers in the first branches.
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

  // Walks the subtree in key order: keys that ascend over the whole walk also lie within the bounds of their branches.
  bool CheckSubtree(std::int32_t Number, int Level, Survey& survey) {
    if (++survey.nodes > NumNodes) return DataFile.report({Number, "damaged: reached twice"});
    Slot* found = nullptr;
    if (const Problem problem = Find(Number, Level, found)) return DataFile.report(problem);
    const auto copy = std::make_unique<Node>(found->node);  // its slot may be reused further down
    const Node& current = *copy;
    if (Number != Root && current.Count < MinKeys) return DataFile.report({Number, "damaged: too few items"});
    const bool leaf = current.Branch[0] == NilPtr;
    if (leaf && survey.leafLevel < 0) survey.leafLevel = Level;
    if (leaf && survey.leafLevel != Level) return DataFile.report({Number, "damaged: a leaf at another depth"});
    for (int j = 0; j <= current.Count; ++j) {
      if ((current.Branch[j] == NilPtr) != leaf) return DataFile.report({Number, "damaged: some branches missing"});
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
