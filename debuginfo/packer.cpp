#include "debuginfo/packer.h"

#include <cstring>
#include <type_traits>
#include <unordered_map>

#include "src/userError.h"

namespace {

// A serialized variable. Texts are replaced with their numbers; 0 is the empty text.
struct Record {
  std::uint64_t size, address, namedSize;
  std::uint32_t name, type, section, file;
  std::int32_t line;
  std::uint32_t namespaceLength;
  std::uint8_t linkage;  // 0: unknown
  std::uint8_t writable, threadLocal;
  std::uint8_t flags;  // the bits below
};
constexpr std::uint8_t sizeKnown = 1;
constexpr std::uint8_t addressKnown = 2;
constexpr std::uint8_t namedSizeKnown = 4;
constexpr std::uint8_t isNamedIncomplete = 8;
constexpr std::uint32_t namespaceUnknown = ~std::uint32_t{0};

constexpr const char* incomplete = "the result of reading it is incomplete";

std::uint8_t packFlag(const std::optional<bool>& flag) { return flag ? (*flag ? 2 : 1) : 0; }
std::optional<bool> unpackFlag(std::uint8_t packed) {
  return packed == 0 ? std::nullopt : std::optional<bool>(packed == 2);
}

// Numbers the texts of variables; texts that share storage get the same number.
class TextNumbers {
 public:
  std::uint32_t numberOf(std::string_view text) {
    if (text.empty()) return 0;
    if (text.data() == texts[latest_].data() && text.size() == texts[latest_].size()) return latest_;
    const auto [at, isNew] = numbers_.try_emplace(text.data(), static_cast<std::uint32_t>(texts.size()));
    if (!isNew && texts[at->second].size() == text.size()) return latest_ = at->second;
    return latest_ = add(text);
  }
  std::uint32_t add(std::string_view text) {
    texts.push_back(text);
    return static_cast<std::uint32_t>(texts.size() - 1);
  }

  std::vector<std::string_view> texts{""};

 private:
  std::unordered_map<const char*, std::uint32_t> numbers_;
  std::uint32_t latest_ = 0;
};

std::uint8_t flagsOf(const Variable& variable) {
  return static_cast<std::uint8_t>((variable.size ? sizeKnown : 0) | (variable.address ? addressKnown : 0) |
                                   (variable.namedSize ? namedSizeKnown : 0) |
                                   (variable.namedIncomplete ? isNamedIncomplete : 0));
}

Record recordOf(const Variable& variable, TextNumbers& numbers) {
  Record record{};
  record.size = variable.size.value_or(0);
  record.address = variable.address.value_or(0);
  record.namedSize = variable.namedSize.value_or(0);
  record.name = numbers.add(variable.name);  // names are rarely shared
  record.type = numbers.numberOf(variable.type);
  record.section = numbers.numberOf(variable.section);
  record.file = numbers.numberOf(variable.file);
  record.line = variable.line;
  record.namespaceLength = variable.namespaceLength.value_or(namespaceUnknown);
  record.linkage = static_cast<std::uint8_t>(variable.linkage ? static_cast<int>(*variable.linkage) + 1 : 0);
  record.writable = packFlag(variable.writable);
  record.threadLocal = packFlag(variable.threadLocal);
  record.flags = flagsOf(variable);
  return record;
}

// Item `index` of an array in `bytes`, which may be unaligned.
template <typename Item>
Item item(std::string_view bytes, std::size_t index) {
  Item result;
  std::memcpy(&result, bytes.data() + index * sizeof(Item), sizeof(Item));
  return result;
}

std::string_view textAt(const std::vector<std::string_view>& texts, std::uint32_t number) {
  if (number >= texts.size()) throw UserError(incomplete);
  return texts[number];
}

Variable unpackVariable(const Record& record, const std::vector<std::string_view>& texts) {
  Variable variable;
  variable.name = textAt(texts, record.name);
  variable.type = textAt(texts, record.type);
  variable.section = textAt(texts, record.section);
  variable.file = textAt(texts, record.file);
  variable.line = record.line;
  if (record.namespaceLength != namespaceUnknown) variable.namespaceLength = record.namespaceLength;
  if ((record.flags & sizeKnown) != 0) variable.size = record.size;
  if ((record.flags & addressKnown) != 0) variable.address = record.address;
  if ((record.flags & namedSizeKnown) != 0) variable.namedSize = record.namedSize;
  variable.namedIncomplete = (record.flags & isNamedIncomplete) != 0;
  variable.writable = unpackFlag(record.writable);
  variable.threadLocal = unpackFlag(record.threadLocal);
  if (record.linkage != 0) variable.linkage = static_cast<Linkage>(record.linkage - 1);
  return variable;
}

}  // namespace

template <typename Item>
void Packer::raw(const Item* items, std::size_t count) {
  static_assert(std::is_trivially_copyable_v<Item>);
  if (count > 0) bytes_.append(reinterpret_cast<const char*>(items), count * sizeof(Item));
}

void Packer::number(std::uint64_t value) { raw(&value, 1); }

void Packer::text(std::string_view text) {
  number(text.size());
  bytes_ += text;
}

void Packer::variables(const std::vector<Variable>& variables) {
  TextNumbers numbers;
  numbers.texts.reserve(variables.size() + variables.size() / 4);
  std::vector<Record> records;
  records.reserve(variables.size());
  for (const Variable& variable : variables) records.push_back(recordOf(variable, numbers));
  std::vector<std::uint32_t> lengths;
  lengths.reserve(numbers.texts.size());
  std::uint64_t all = 0;
  for (const std::string_view text : numbers.texts) {
    lengths.push_back(static_cast<std::uint32_t>(text.size()));
    all += text.size();
  }
  constexpr std::size_t numbersBetween = 3 * sizeof(std::uint64_t);
  bytes_.reserve(bytes_.size() + numbersBetween + all + lengths.size() * sizeof lengths[0] +
                 records.size() * sizeof records[0]);
  number(lengths.size());
  raw(lengths.data(), lengths.size());
  number(all);
  for (const std::string_view text : numbers.texts) bytes_ += text;
  number(records.size());
  raw(records.data(), records.size());
}

std::uint64_t Unpacker::number() { return item<std::uint64_t>(take(sizeof(std::uint64_t)), 0); }

std::string_view Unpacker::text() { return take(number()); }

std::string_view Unpacker::take(std::uint64_t size) {
  if (size > left_.size()) throw UserError(incomplete);
  const std::string_view taken = left_.substr(0, size);
  left_.remove_prefix(size);
  return taken;
}

std::string_view Unpacker::takeItems(std::uint64_t count, std::size_t size) {
  if (count > left_.size() / size) throw UserError(incomplete);
  return take(count * size);
}

std::vector<Variable> Unpacker::variables() {
  const std::uint64_t textCount = number();
  const std::string_view lengths = takeItems(textCount, sizeof(std::uint32_t));
  std::string_view all = text();
  std::vector<std::string_view> texts;
  texts.reserve(textCount);
  for (std::size_t i = 0; i < textCount; ++i) {
    texts.push_back(all.substr(0, item<std::uint32_t>(lengths, i)));
    all.remove_prefix(texts.back().size());
  }
  const std::uint64_t count = number();
  const std::string_view records = takeItems(count, sizeof(Record));
  std::vector<Variable> variables;
  variables.reserve(count);
  for (std::size_t i = 0; i < count; ++i) variables.push_back(unpackVariable(item<Record>(records, i), texts));
  return variables;
}
