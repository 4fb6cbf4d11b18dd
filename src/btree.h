// A B-tree table on disk: items keyed by a text, in a file of fixed-size node records. The file's layout, byte by byte,
// is described in docs/vifa.dat.md. One object, one file, one thread.
#pragma once

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <type_traits>

#include "nodeCache.h"
#include "tableFile.h"

inline constexpr int MaxKeys = 11;                  ///< most items in one node
inline constexpr int MaxKeysPlusOne = MaxKeys + 1;  ///< branches in one node
inline constexpr int MinKeys = 5;                   ///< fewest items in any node but the root
inline constexpr std::int32_t NilPtr = -1;          ///< no node

/// One node, as it lies in the file. Items from position `Count` and branches behind position `Count` are zeros.
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
/// A node that cannot be read or written whole, or that is damaged, ends the program through Error.
template <typename KeyFieldType, typename ItemType>
class BTTableClass {
 public:
  /// `Mode` 'w' creates the table `FileName`, empty, in place of any old file; 'r' opens an existing one for Retrieve
  /// (a file shorter than its header is an empty table). Does not return on failure.
  BTTableClass(char Mode, const char* FileName);
  /// In mode 'w' completes the file by writing its header; a failure is reported on standard error.
  ~BTTableClass();
  BTTableClass(const BTTableClass&) = delete;
  BTTableClass& operator=(const BTTableClass&) = delete;

  /// Adds `Item`. False, with nothing changed, when its key is present already.
  bool Insert(const ItemType& Item);

  /// Looks `SearchKey` up. True: the item is copied to `Item`. False: not present, and `Item` is left as it was.
  bool Retrieve(const KeyFieldType& SearchKey, ItemType& Item);

  /// Whether the table holds no item.
  bool Empty() const { return Root == NilPtr; }

  /// Prints the tree to standard error, one item a line, indented by its level; `Item` must have a `DataField` with
  /// getDataType and getVarName.
  void Dump() { DumpSubtree(Root, 0); }

  /// Verifies everything that holds of a finished file: unique ascending keys within their bounds, all leaves at the
  /// same depth, the number of items in each node, each node used once, the counts, and the file's length. False at
  /// the first violation, with a line on standard error that says which.
  bool Check();

 protected:
  TableFile DataFile;
  std::int32_t NumItems = 0;
  char OpenMode;

 private:
  using Node = NodeType<ItemType>;
  static_assert(std::is_trivially_copyable_v<Node> && std::is_standard_layout_v<Node>);

  // More levels than any tree of 2^31 nodes has; a path that is longer goes in circles.
  static constexpr int mostLevels = 32;
  static constexpr const char* duplicateMessage = "Error: attempt to put a duplicate into B-tree";

  // What a subtree turned out to hold.
  struct Survey {
    std::int64_t items = 0;
    std::int64_t nodes = 0;
    int leafLevel = -1;
    bool anyKey = false;
    KeyFieldType lastKey{};
  };

  static int Compare(const KeyFieldType& a, const KeyFieldType& b) { return std::strncmp(a, b, sizeof a); }
  static bool SearchNode(const Node& Current, const KeyFieldType& Target, int& Location);
  static void AddItem(const ItemType& NewItem, std::int32_t NewRight, Node& Current, int Location);
  void Split(ItemType CurrentItem, std::int32_t CurrentRight, std::int32_t CurrentRoot, int Location, ItemType& NewItem,
             std::int32_t& NewRight);
  void PushDown(const ItemType& CurrentItem, std::int32_t CurrentRoot, int Level, bool& MoveUp, ItemType& NewItem,
                std::int32_t& NewRight);

  const char* Defect(const Node& Current) const;
  Node* TryLoad(std::int32_t Number, const char*& problem, int& errorNumber);
  Node& Load(std::int32_t Number);
  void Store(std::int32_t Number, const Node& Current);
  Node& Append();
  void ReadHeader();
  bool WriteHeader();
  bool Violation(std::int32_t Number, const char* problem, int errorNumber = 0);
  bool CheckSubtree(std::int32_t Number, int Level, Survey& survey);
  bool CheckKey(std::int32_t Number, const KeyFieldType& Key, Survey& survey);
  void DumpSubtree(std::int32_t Number, int Level);

  std::int32_t Root = NilPtr;
  std::int32_t NumNodes = 0;
  NodeCache<Node> Nodes;
};

#include "btreeImpl.h"
