#include "frontend/sums.h"

#include <algorithm>
#include <map>
#include <unordered_map>
#include <utility>

namespace {

// Counts bytes of variables that are added by program and address, in a separate range for each AddressSpace.
class ByteCounter {
 public:
  // Returns the bytes of `row` that have not been counted yet.
  std::uint64_t add(const Row& row) {
    const Variable& variable = *row.variable;
    const std::uint64_t size = variable.size.value_or(0);
    if (!variable.address) return size;
    if (std::exchange(program_, row.program) != row.program) ends_.clear();
    const std::uint64_t begin = *variable.address;
    const std::uint64_t last = size > UINT64_MAX - begin ? UINT64_MAX : begin + size;
    std::uint64_t& end = ends_[addressSpaceOf(variable)];
    if (last <= end) return 0;
    return last - std::max(std::exchange(end, last), begin);
  }

 private:
  const Inventory* program_ = nullptr;
  std::map<AddressSpace, std::uint64_t> ends_;  // up to which address bytes have been counted
};

Value valueOf(std::string_view text) { return {!text.empty(), text}; }

}  // namespace

const std::array<Grouping, 5> groupings{{
    {"file", "File", [](const Row& row) { return valueOf(row.variable->file); }},
    {"namespace", "Namespace",
     [](const Row& row) {
       return Value{true, namespaceOf(row)};
     }},
    {"type", "Type", [](const Row& row) { return valueOf(row.variable->type); }},
    {"section", "Section", [](const Row& row) { return valueOf(row.variable->section); }},
    {"executable", "Executable", [](const Row& row) { return valueOf(row.program->executable); }},
}};

AddressSpace addressSpaceOf(const Variable& variable) {
  return {variable.section, variable.threadLocal.value_or(false)};
}

std::vector<Sum> sumsBy(const Grouping& grouping, const std::vector<Row>& rows) {
  std::vector<Sum> sums;
  std::vector<ByteCounter> counters;
  std::unordered_map<std::string_view, std::size_t> numbers;
  for (const Row& row : rows) {
    const Value group = grouping.get(row);
    const auto [at, isNew] = numbers.try_emplace(group.text, sums.size());
    if (isNew) {
      sums.push_back({group});
      counters.emplace_back();
    }
    Sum& sum = sums[at->second];
    ++sum.variables;
    const std::uint64_t bytes = counters[at->second].add(row);
    sum.bytes = bytes > UINT64_MAX - sum.bytes ? UINT64_MAX : sum.bytes + bytes;
    sum.unsized += row.variable->size ? 0 : 1;
  }
  return sums;
}

Sum sumOf(const std::vector<Row>& rows) {
  static constexpr Grouping everything{"", "", [](const Row&) { return Value{}; }};
  const std::vector<Sum> sums = sumsBy(everything, rows);
  return sums.empty() ? Sum{} : sums[0];
}

std::array<Field<Sum>, 4> sumFields(const Grouping& grouping) {
  return {{
      {{grouping.name, grouping.header, Kind::Text, "what the variables in the group have in common"},
       [](const Sum& sum) { return sum.group; }},
      {{"variables", "Variables", Kind::Count, "number of variables"},
       [](const Sum& sum) {
         return Value{true, {}, sum.variables};
       }},
      {{"bytes", "Bytes", Kind::Bytes, "bytes; those that several variables share count once"},
       [](const Sum& sum) {
         return Value{true, {}, sum.bytes};
       }},
      {{"unsized", "Unsized", Kind::Count, "number of variables of unknown size"},
       [](const Sum& sum) {
         return Value{true, {}, sum.unsized};
       }},
  }};
}

std::string_view namespaceOf(const Row& row) {
  const std::string_view name = row.variable->name;
  if (const auto length = row.variable->namespaceLength) return *length > 0 ? name.substr(0, *length) : "(global)";
  const std::vector<std::string_view> scopes = scopesOf(name);
  const std::size_t own = row.variable->linkage == Linkage::Function ? 2 : 1;
  if (scopes.size() <= own) return "(global)";
  const std::string_view last = scopes[scopes.size() - own - 1];
  return name.substr(0, static_cast<std::size_t>(last.data() - name.data()) + last.size());
}
