// A bounded set of the nodes of a table file that were used last, so that the upper levels of the tree and the node
// at work are not read again and again. Changes are written through at once; the cache only saves reads.
#pragma once

#include <array>
#include <cstdint>
#include <memory>

template <typename Node>
class NodeCache {
 public:
  /// Nodes held at most. With nodes of 28,116 bytes this is 900,000 bytes, whatever the size of the tree.
  static constexpr std::size_t capacity = 32;

  /// The cached node `number`, or null. Valid until as many other nodes as there are places have been used.
  Node* find(std::int32_t number) {
    for (std::size_t i = 0; i < capacity; ++i) {
      if (slots_[i].number != number) continue;
      slots_[i].lastUse = ++now_;
      return slots_[i].node.get();
    }
    return nullptr;
  }

  /// A place for node `number`, which is not cached: that of the node not used for longest. Its old content is left
  /// for the caller to overwrite.
  Node* place(std::int32_t number) {
    Slot* oldest = &slots_[0];
    for (Slot& slot : slots_) {
      if (slot.lastUse < oldest->lastUse) oldest = &slot;
    }
    if (!oldest->node) oldest->node = std::make_unique<Node>();
    oldest->number = number;
    oldest->lastUse = ++now_;
    return oldest->node.get();
  }

  /// Forgets node `number`, whose place holds nothing of use.
  void drop(std::int32_t number) {
    for (Slot& slot : slots_) {
      if (slot.number == number) slot.number = none;
    }
  }

 private:
  static constexpr std::int32_t none = -1;

  struct Slot {
    std::int32_t number = none;
    std::uint64_t lastUse = 0;
    std::unique_ptr<Node> node;
  };

  std::array<Slot, capacity> slots_;
  std::uint64_t now_ = 0;
};
