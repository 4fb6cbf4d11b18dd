// The storage of texts for inventories, declared in inventory.h.
#include <cstring>
#include <unordered_set>

#include "debuginfo/inventory.h"

// Texts are placed one after another in large blocks, which never move.
struct TextPool::Storage {
  static constexpr std::size_t blockSize = 1 << 16;

  std::string_view add(std::string_view text) {
    if (text.size() > left) {
      left = text.size() > blockSize / 4 ? text.size() : blockSize;
      blocks.push_back(std::make_unique<char[]>(left));
      next = blocks.back().get();
    }
    char* begin = next;
    if (!text.empty()) std::memcpy(begin, text.data(), text.size());
    next += text.size();
    left -= text.size();
    return {begin, text.size()};
  }

  std::vector<std::unique_ptr<char[]>> blocks;
  char* next = nullptr;
  std::size_t left = 0;
  std::unordered_set<std::string_view> interned;
};

TextPool::TextPool() : storage_(std::make_unique<Storage>()) {}
TextPool::~TextPool() = default;
TextPool::TextPool(TextPool&&) noexcept = default;
TextPool& TextPool::operator=(TextPool&&) noexcept = default;

std::string_view TextPool::keep(std::string_view text) { return storage_->add(text); }

std::string_view TextPool::intern(std::string_view text) {
  const auto known = storage_->interned.find(text);
  if (known != storage_->interned.end()) return *known;
  return *storage_->interned.insert(storage_->add(text)).first;
}
