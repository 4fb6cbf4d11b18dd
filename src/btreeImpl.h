// The definitions of btree.h's class template; not to be included from elsewhere.
#pragma once

#include <algorithm>

template <typename KeyFieldType, typename ItemType>
BTTableClass<KeyFieldType, ItemType>::BTTableClass(char Mode, const char* FileName)
    : DataFile(Mode, FileName, sizeof(Node)), OpenMode(Mode) {
  if (OpenMode == 'r') {
    ReadHeader();
  } else if (!WriteHeader()) {
    DataFile.fail(0, "cannot be written", errno);
  }
}

template <typename KeyFieldType, typename ItemType>
BTTableClass<KeyFieldType, ItemType>::~BTTableClass() {
  // A table that failed keeps the header of an empty one, so that nobody takes it for finished.
  if (OpenMode != 'w' || DataFile.failed()) return;
  if (!WriteHeader()) DataFile.report(0, "cannot be written", errno);
}

// The header has the shape of a node, with its three numbers in the first branches.
template <typename KeyFieldType, typename ItemType>
void BTTableClass<KeyFieldType, ItemType>::ReadHeader() {
  Node& header = *Nodes.place(0);
  const bool whole = DataFile.tryRead(0, &header);
  Nodes.drop(0);
  if (!whole && errno != 0) DataFile.fail(0, "cannot be read", errno);
  if (!whole) return;
  NumItems = header.Branch[0];
  NumNodes = header.Branch[1];
  Root = header.Branch[2];
  const bool empty = Root == NilPtr && NumItems == 0 && NumNodes == 0;
  if (!empty && (Root < 1 || Root > NumNodes || NumItems < 1)) DataFile.fail(0, "damaged header");
}

template <typename KeyFieldType, typename ItemType>
bool BTTableClass<KeyFieldType, ItemType>::WriteHeader() {
  const auto header = std::make_unique<Node>();
  header->Branch[0] = NumItems;
  header->Branch[1] = NumNodes;
  header->Branch[2] = Root;
  return DataFile.tryWrite(0, header.get());
}

template <typename KeyFieldType, typename ItemType>
bool BTTableClass<KeyFieldType, ItemType>::Insert(const ItemType& Item) {
  bool MoveUp = false;
  ItemType NewItem;
  std::int32_t NewRight = NilPtr;
  try {
    PushDown(Item, Root, 0, MoveUp, NewItem, NewRight);
  } catch (const char*) {
    return false;
  }
  if (MoveUp) {
    Node& top = Append();
    top.Count = 1;
    top.Key[0] = NewItem;
    top.Branch[0] = Root;
    top.Branch[1] = NewRight;
    Root = NumNodes;
    Store(Root, top);
  }
  ++NumItems;
  return true;
}

template <typename KeyFieldType, typename ItemType>
bool BTTableClass<KeyFieldType, ItemType>::Retrieve(const KeyFieldType& SearchKey, ItemType& Item) {
  std::int32_t number = Root;
  for (int level = 0; number != NilPtr; ++level) {
    if (level == mostLevels) DataFile.fail(number, "damaged: on a path that does not end");
    const Node& current = Load(number);
    int Location = 0;
    if (SearchNode(current, SearchKey, Location)) {
      Item = current.Key[Location];
      return true;
    }
    number = current.Branch[Location + 1];
  }
  return false;
}

// Sets `Location` to the position of the greatest key that is not greater than `Target`, -1 if there is none. Returns
// whether that key is `Target`.
template <typename KeyFieldType, typename ItemType>
bool BTTableClass<KeyFieldType, ItemType>::SearchNode(const Node& Current, const KeyFieldType& Target, int& Location) {
  for (Location = Current.Count - 1; Location >= 0; --Location) {
    const int order = Compare(Target, Current.Key[Location].KeyField);
    if (order >= 0) return order == 0;
  }
  return false;
}

template <typename KeyFieldType, typename ItemType>
void BTTableClass<KeyFieldType, ItemType>::AddItem(const ItemType& NewItem, std::int32_t NewRight, Node& Current,
                                                   int Location) {
  std::move_backward(Current.Key + Location, Current.Key + Current.Count, Current.Key + Current.Count + 1);
  std::move_backward(Current.Branch + Location + 1, Current.Branch + Current.Count + 1,
                     Current.Branch + Current.Count + 2);
  Current.Key[Location] = NewItem;
  Current.Branch[Location + 1] = NewRight;
  ++Current.Count;
}

// Splits the full node `CurrentRoot`, into which `CurrentItem` belongs at position `Location` + 1: of the twelve items
// the five lowest stay, the sixth moves up as `NewItem`, and the six highest go to the new node `NewRight`. The
// incoming item is a copy, as callers pass the same object in and out.
template <typename KeyFieldType, typename ItemType>
void BTTableClass<KeyFieldType, ItemType>::Split(ItemType CurrentItem, std::int32_t CurrentRight,
                                                 std::int32_t CurrentRoot, int Location, ItemType& NewItem,
                                                 std::int32_t& NewRight) {
  const bool toLeft = Location < MinKeys;
  const int Median = toLeft ? MinKeys : MinKeys + 1;
  Node& right = Append();
  Node& left = Load(CurrentRoot);
  std::copy(left.Key + Median, left.Key + MaxKeys, right.Key);
  std::copy(left.Branch + Median + 1, left.Branch + MaxKeysPlusOne, right.Branch + 1);
  right.Count = MaxKeys - Median;
  left.Count = Median;
  AddItem(CurrentItem, CurrentRight, toLeft ? left : right, toLeft ? Location + 1 : Location - Median + 1);
  --left.Count;
  NewItem = left.Key[left.Count];
  right.Branch[0] = left.Branch[left.Count + 1];
  std::fill(left.Key + left.Count, left.Key + MaxKeys, ItemType{});
  std::fill(left.Branch + left.Count + 1, left.Branch + MaxKeysPlusOne, 0);
  NewRight = NumNodes;
  Store(CurrentRoot, left);
  Store(NewRight, right);
}

// Inserts `CurrentItem` below node `CurrentRoot`. `MoveUp` tells that `NewItem`, with `NewRight` on its right, has to
// go into the node above. A key that is present is found before anything is written.
template <typename KeyFieldType, typename ItemType>
void BTTableClass<KeyFieldType, ItemType>::PushDown(const ItemType& CurrentItem, std::int32_t CurrentRoot, int Level,
                                                    bool& MoveUp, ItemType& NewItem, std::int32_t& NewRight) {
  if (CurrentRoot == NilPtr) {
    MoveUp = true;
    NewItem = CurrentItem;
    NewRight = NilPtr;
    return;
  }
  if (Level == mostLevels) DataFile.fail(CurrentRoot, "damaged: on a path that does not end");
  int Location = 0;
  const Node& onTheWay = Load(CurrentRoot);
  if (SearchNode(onTheWay, CurrentItem.KeyField, Location))
    throw duplicateMessage;  // NOLINT(misc-throw-by-value-catch-by-reference): Insert's own signal
  PushDown(CurrentItem, onTheWay.Branch[Location + 1], Level + 1, MoveUp, NewItem, NewRight);
  if (!MoveUp) return;
  Node& current = Load(CurrentRoot);
  if (current.Count == MaxKeys) {
    Split(NewItem, NewRight, CurrentRoot, Location, NewItem, NewRight);
    return;
  }
  MoveUp = false;
  AddItem(NewItem, NewRight, current, Location + 1);
  Store(CurrentRoot, current);
}

// What makes a node unfit to be used, or null.
template <typename KeyFieldType, typename ItemType>
const char* BTTableClass<KeyFieldType, ItemType>::Defect(const Node& Current) const {
  if (Current.Count < 1 || Current.Count > MaxKeys) return "damaged: its number of items";
  for (int j = 0; j <= Current.Count; ++j) {
    const std::int32_t branch = Current.Branch[j];
    if (branch != NilPtr && (branch < 1 || branch > NumNodes)) return "damaged: a branch to no node";
  }
  for (int i = 0; i < Current.Count; ++i) {
    const ItemType& item = Current.Key[i];
    if (std::memchr(item.KeyField, 0, sizeof item.KeyField) == nullptr) return "damaged: a key without an end";
    if constexpr (requires { item.isWhole(); }) {
      if (!item.isWhole()) return "damaged: a text without an end";
    }
  }
  return nullptr;
}

// The node, from the cache or the file; null with the problem told when it cannot be had.
template <typename KeyFieldType, typename ItemType>
NodeType<ItemType>* BTTableClass<KeyFieldType, ItemType>::TryLoad(std::int32_t Number, const char*& problem,
                                                                  int& errorNumber) {
  errorNumber = 0;
  problem = nullptr;
  if (Node* cached = Nodes.find(Number)) return cached;
  Node* node = Nodes.place(Number);
  if (!DataFile.tryRead(Number, node)) {
    errorNumber = errno;
    problem = errorNumber != 0 ? "cannot be read" : "cannot be read whole";
  } else {
    problem = Defect(*node);
  }
  if (problem == nullptr) return node;
  Nodes.drop(Number);
  return nullptr;
}

template <typename KeyFieldType, typename ItemType>
NodeType<ItemType>& BTTableClass<KeyFieldType, ItemType>::Load(std::int32_t Number) {
  const char* problem = nullptr;
  int errorNumber = 0;
  Node* node = TryLoad(Number, problem, errorNumber);
  if (node == nullptr) DataFile.fail(Number, problem, errorNumber);
  return *node;
}

template <typename KeyFieldType, typename ItemType>
void BTTableClass<KeyFieldType, ItemType>::Store(std::int32_t Number, const Node& Current) {
  if (!DataFile.tryWrite(Number, &Current)) DataFile.fail(Number, "cannot be written", errno);
}

// A new, zeroed node, number `NumNodes`, in the cache; the caller fills and stores it.
template <typename KeyFieldType, typename ItemType>
NodeType<ItemType>& BTTableClass<KeyFieldType, ItemType>::Append() {
  if (NumNodes == INT32_MAX) DataFile.fail(NumNodes, "is the last possible node");
  Node* node = Nodes.place(++NumNodes);
  std::memset(static_cast<void*>(node), 0, sizeof *node);
  return *node;
}

template <typename KeyFieldType, typename ItemType>
bool BTTableClass<KeyFieldType, ItemType>::Violation(std::int32_t Number, const char* problem, int errorNumber) {
  DataFile.report(Number, problem, errorNumber);
  return false;
}

template <typename KeyFieldType, typename ItemType>
bool BTTableClass<KeyFieldType, ItemType>::Check() {
  Survey survey;
  if (Root != NilPtr && !CheckSubtree(Root, 0, survey)) return false;
  if (survey.items != NumItems) return Violation(0, "wrong number of items");
  if (survey.nodes != NumNodes) return Violation(0, "wrong number of nodes");
  const std::int64_t length = (static_cast<std::int64_t>(NumNodes) + 1) * static_cast<std::int64_t>(sizeof(Node));
  return DataFile.size() == length || Violation(0, "wrong length of the file");
}

// Walks the subtree in key order: keys that ascend over the whole walk also lie within the bounds of their branches.
template <typename KeyFieldType, typename ItemType>
bool BTTableClass<KeyFieldType, ItemType>::CheckSubtree(std::int32_t Number, int Level, Survey& survey) {
  if (Level == mostLevels || ++survey.nodes > NumNodes) return Violation(Number, "damaged: reached twice");
  const char* problem = nullptr;
  int errorNumber = 0;
  const Node* found = TryLoad(Number, problem, errorNumber);
  if (found == nullptr) return Violation(Number, problem, errorNumber);
  const auto copy = std::make_unique<Node>(*found);  // the cache may reuse its place further down
  const Node& current = *copy;
  if (Number != Root && current.Count < MinKeys) return Violation(Number, "damaged: too few items");
  const bool leaf = current.Branch[0] == NilPtr;
  if (leaf && survey.leafLevel < 0) survey.leafLevel = Level;
  if (leaf && survey.leafLevel != Level) return Violation(Number, "damaged: a leaf at another depth");
  for (int j = 0; j <= current.Count; ++j) {
    if ((current.Branch[j] == NilPtr) != leaf) return Violation(Number, "damaged: some branches missing");
    if (!leaf && !CheckSubtree(current.Branch[j], Level + 1, survey)) return false;
    if (j < current.Count && !CheckKey(Number, current.Key[j].KeyField, survey)) return false;
  }
  survey.items += current.Count;
  return true;
}

template <typename KeyFieldType, typename ItemType>
bool BTTableClass<KeyFieldType, ItemType>::CheckKey(std::int32_t Number, const KeyFieldType& Key, Survey& survey) {
  if (survey.anyKey && Compare(survey.lastKey, Key) >= 0) return Violation(Number, "damaged: keys out of order");
  std::memcpy(survey.lastKey, Key, sizeof Key);
  survey.anyKey = true;
  return true;
}

template <typename KeyFieldType, typename ItemType>
void BTTableClass<KeyFieldType, ItemType>::DumpSubtree(std::int32_t Number, int Level) {
  if (Number == NilPtr) return;
  if (Level == mostLevels) DataFile.fail(Number, "damaged: on a path that does not end");
  const auto copy = std::make_unique<Node>(Load(Number));
  for (int j = 0; j <= copy->Count; ++j) {
    DumpSubtree(copy->Branch[j], Level + 1);
    if (j == copy->Count) continue;
    const ItemType& item = copy->Key[j];
    std::fprintf(stderr, "%*snode %d: %s: %s %s\n", 2 * Level, "", Number, item.KeyField, item.DataField.getDataType(),
                 item.DataField.getVarName());
  }
}
