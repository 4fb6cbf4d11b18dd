#include "frontend/packed.h"

#include <cstring>
#include <type_traits>
#include <unordered_map>

#include "src/userError.h"

namespace {

// A variable; its texts are given by their numbers, of which 0 is the empty one.
struct Record {
  std::uint64_t size, address;
  std::uint32_t name, type, section, file;
  std::int32_t line;
  std::uint32_t namespaceLength;
  std::uint8_t linkage;  // 0: not known
  std::uint8_t writable, threadLocal;
  std::uint8_t known;  // bits: whether size and address are
};
constexpr std::uint8_t sizeKnown = 1;
constexpr std::uint8_t addressKnown = 2;
constexpr std::uint32_t namespaceUnknown = ~std::uint32_t{0};

std::uint8_t packFlag(const std::optional<bool>& flag) { return flag ? (*flag ? 2 : 1) : 0; }
std::optional<bool> unpackFlag(std::uint8_t packed) {
  return packed == 0 ? std::nullopt : std::optional<bool>(packed == 2);
}

class Packer {
 public:
  void number(std::uint64_t value) { raw(&value, 1); }
  void text(std::string_view text) {
    number(text.size());
    bytes_ += text;
  }
  void variables(const std::vector<Variable>& variables);
  std::string take() { return std::move(bytes_); }

 private:
  template <typename Item>
  void raw(const Item* items, std::size_t count) {
    static_assert(std::is_trivially_copyable_v<Item>);
    if (count > 0) bytes_.append(reinterpret_cast<const char*>(items), count * sizeof(Item));
  }

  std::string bytes_;
};

// The texts of variables, each once if it is the same text in memory.
class TextNumbers {
 public:
  std::uint32_t numberOf(std::string_view text) {
    if (text.empty()) return 0;
    const auto [at, isNew] = numbers_.try_emplace(text.data(), static_cast<std::uint32_t>(texts.size()));
    if (!isNew && texts[at->second].size() == text.size()) return at->second;
    return add(text);
  }
  std::uint32_t add(std::string_view text) {
    texts.push_back(text);
    return static_cast<std::uint32_t>(texts.size() - 1);
  }

  std::vector<std::string_view> texts{""};

 private:
  std::unordered_map<const char*, std::uint32_t> numbers_;
};

void Packer::variables(const std::vector<Variable>& variables) {
  TextNumbers numbers;
  std::vector<Record> records;
  records.reserve(variables.size());
  for (const Variable& variable : variables) {
    Record& record = records.emplace_back();
    record.size = variable.size.value_or(0);
    record.address = variable.address.value_or(0);
    record.name = numbers.add(variable.name);  // hardly ever the same
    record.type = numbers.numberOf(variable.type);
    record.section = numbers.numberOf(variable.section);
    record.file = numbers.numberOf(variable.file);
    record.line = variable.line;
    record.namespaceLength = variable.namespaceLength.value_or(namespaceUnknown);
    record.linkage = static_cast<std::uint8_t>(variable.linkage ? static_cast<int>(*variable.linkage) + 1 : 0);
    record.writable = packFlag(variable.writable);
    record.threadLocal = packFlag(variable.threadLocal);
    record.known = static_cast<std::uint8_t>((variable.size ? sizeKnown : 0) | (variable.address ? addressKnown : 0));
  }
  std::vector<std::uint32_t> lengths;
  std::string texts;
  for (const std::string_view text : numbers.texts) {
    lengths.push_back(static_cast<std::uint32_t>(text.size()));
    texts += text;
  }
  number(lengths.size());
  raw(lengths.data(), lengths.size());
  text(texts);
  number(records.size());
  raw(records.data(), records.size());
}

class Unpacker {
 public:
  explicit Unpacker(std::string_view bytes) : left_(bytes) {}

  std::uint64_t number() { return item<std::uint64_t>(take(sizeof(std::uint64_t)), 0); }
  std::string_view text() { return take(number()); }
  std::vector<Variable> variables();

 private:
  // The number `index` of the items whose bytes are `bytes`, which need not be aligned.
  template <typename Item>
  static Item item(std::string_view bytes, std::size_t index) {
    Item result;
    std::memcpy(&result, bytes.data() + index * sizeof(Item), sizeof(Item));
    return result;
  }

  std::string_view take(std::uint64_t size) {
    if (size > left_.size()) throw UserError("what was read of it is not whole");
    const std::string_view taken = left_.substr(0, size);
    left_.remove_prefix(size);
    return taken;
  }

  std::string_view takeItems(std::uint64_t count, std::size_t size) {
    if (count > left_.size() / size) throw UserError("what was read of it is not whole");
    return take(count * size);
  }

  std::string_view left_;
};

Variable unpackVariable(const Record& record, const std::vector<std::string_view>& texts) {
  Variable variable;
  variable.name = texts.at(record.name);
  variable.type = texts.at(record.type);
  variable.section = texts.at(record.section);
  variable.file = texts.at(record.file);
  variable.line = record.line;
  if (record.namespaceLength != namespaceUnknown) variable.namespaceLength = record.namespaceLength;
  if ((record.known & sizeKnown) != 0) variable.size = record.size;
  if ((record.known & addressKnown) != 0) variable.address = record.address;
  variable.writable = unpackFlag(record.writable);
  variable.threadLocal = unpackFlag(record.threadLocal);
  if (record.linkage != 0) variable.linkage = static_cast<Linkage>(record.linkage - 1);
  return variable;
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

}  // namespace

std::string packInventories(const std::vector<Inventory>& programs) {
  Packer packer;
  packer.number(programs.size());
  for (const Inventory& program : programs) {
    packer.text(program.executable);
    packer.text(program.buildId);
    packer.text(program.directory);
    packer.number(program.sections.size());
    for (const Section& section : program.sections) {
      packer.text(section.name);
      packer.number(section.size);
    }
    packer.number(program.warnings.size());
    for (const std::string& warning : program.warnings) packer.text(warning);
    packer.variables(program.variables);
  }
  return packer.take();
}

std::vector<Inventory> unpackInventories(std::string_view bytes) try {
  Unpacker unpacker(bytes);
  std::vector<Inventory> programs;
  for (std::uint64_t count = unpacker.number(); count > 0; --count) {
    Inventory& program = programs.emplace_back();
    program.executable = unpacker.text();
    program.buildId = unpacker.text();
    program.directory = unpacker.text();
    for (std::uint64_t left = unpacker.number(); left > 0; --left) {
      Section& section = program.sections.emplace_back();
      section.name = unpacker.text();
      section.size = unpacker.number();
    }
    for (std::uint64_t left = unpacker.number(); left > 0; --left) program.warnings.emplace_back(unpacker.text());
    program.variables = unpacker.variables();
  }
  return programs;
} catch (const std::out_of_range&) {
  throw UserError("what was read of it is not whole");
}
