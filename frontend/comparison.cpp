#include "frontend/comparison.h"

#include <algorithm>
#include <charconv>
#include <tuple>

#include "frontend/matching.h"
#include "frontend/output.h"
#include "frontend/sums.h"
#include "src/userError.h"

namespace {

constexpr std::string_view percentSign = "%";

bool differ(std::string_view a, std::string_view b) { return !a.empty() && !b.empty() && a != b; }

// Empty when no relevant property has changed.
std::optional<ChangeClass> classOf(const Variable& before, const Variable& after) {
  const bool sizesDiffer = before.size && after.size && before.size != after.size;
  if (differ(before.type, after.type)) {
    const bool onlyBoundsDiffer = sizesDiffer && withoutBounds(before.type) == withoutBounds(after.type);
    if (!onlyBoundsDiffer) return ChangeClass::Type;
  }
  if (sizesDiffer) return *before.size < *after.size ? ChangeClass::Grown : ChangeClass::Shrunk;
  if (differ(before.section, after.section)) return ChangeClass::Moved;
  return {};
}

std::optional<ChangeClass> classOf(const Row* before, const Row* after) {
  if (before == nullptr) return ChangeClass::Added;
  if (after == nullptr) return ChangeClass::Removed;
  return classOf(*before->variable, *after->variable);
}

std::optional<std::uint64_t> sizeOf(const Row* row) { return row != nullptr ? row->variable->size : 0; }

std::optional<Row> copyOf(const Row* row) { return row != nullptr ? std::optional(*row) : std::nullopt; }

bool isUndecided(const Row& row) { return !isMutable(*row.variable) && !row.variable->writable; }

// Whether a variable became mutable. One that may have been mutable before does not count.
bool isNewlyMutable(const Row* before, const Row* after) {
  if (after == nullptr || !isMutable(*after->variable)) return false;
  return before == nullptr || !(isMutable(*before->variable) || isUndecided(*before));
}

// The variables of one build, and which of them count in the totals.
class Side {
 public:
  explicit Side(const std::vector<const Inventory*>& programs)
      : rows_(selectRows(programs, {})), uses_(rows_.size(), Use::None) {}

  const std::vector<Row>& rows() const { return rows_; }

  // Counts the variable `number`; its bytes only if `sized`, that is, if its size is known on both sides, and as
  // writable ones only if also `decided`, that is, if it is known on both sides whether it is writable.
  void count(std::size_t number, bool sized, bool decided) {
    uses_[number] = !sized ? Use::Unsized : !decided ? Use::Undecided : Use::Whole;
  }

  Total total() const {
    Total total;
    std::vector<Row> sized;
    std::vector<Row> writable;
    for (std::size_t i = 0; i < rows_.size(); ++i) {
      if (uses_[i] == Use::None) continue;
      ++total.variables;
      if (isUndecided(rows_[i])) ++total.undecided;
      if (uses_[i] == Use::Unsized) ++total.unsized;
      if (uses_[i] != Use::Unsized) sized.push_back(rows_[i]);
      if (uses_[i] == Use::Whole && isMutable(*rows_[i].variable)) writable.push_back(rows_[i]);
    }
    total.bytes = sumOf(sized).bytes;
    total.mutableBytes = sumOf(writable).bytes;
    return total;
  }

 private:
  enum class Use : char { None, Unsized, Undecided, Whole };

  std::vector<Row> rows_;
  std::vector<Use> uses_;
};

// Pairs the variables of two builds and collects what has changed.
class Comparer {
 public:
  Comparer(const std::vector<const Inventory*>& before, const std::vector<const Inventory*>& after,
           const Selection& selection)
      : before_(before), after_(after), selection_(selection) {}

  Comparison run() {
    const std::vector<std::size_t> partners = matchRows(before_.rows(), after_.rows());
    std::vector<bool> isPaired(after_.rows().size());
    for (std::size_t i = 0; i < partners.size(); ++i) {
      addPair(i, partners[i]);
      if (partners[i] != noRow) isPaired[partners[i]] = true;
    }
    for (std::size_t i = 0; i < isPaired.size(); ++i) {
      if (!isPaired[i]) addPair(noRow, i);
    }
    result_.before = before_.total();
    result_.after = after_.total();
    sortChanges();
    return std::move(result_);
  }

 private:
  bool selects(const Row* row) const { return row != nullptr && isSelected(*row, selection_); }

  // Either number may be noRow: the variable was added or removed.
  void addPair(std::size_t numberBefore, std::size_t numberAfter) {
    const Row* before = numberBefore != noRow ? &before_.rows()[numberBefore] : nullptr;
    const Row* after = numberAfter != noRow ? &after_.rows()[numberAfter] : nullptr;
    if (!selects(before) && !selects(after)) return;
    const std::optional<std::uint64_t> sizeBefore = sizeOf(before);
    const std::optional<std::uint64_t> sizeAfter = sizeOf(after);
    const bool sized = sizeBefore && sizeAfter;
    const bool decided = !(before != nullptr && isUndecided(*before)) && !(after != nullptr && isUndecided(*after));
    if (before != nullptr) before_.count(numberBefore, sized, decided);
    if (after != nullptr) after_.count(numberAfter, sized, decided);
    if (isNewlyMutable(before, after)) result_.newlyMutable.push_back(*after);
    const std::optional<ChangeClass> kind = classOf(before, after);
    if (!kind) return;
    ++result_.counts[static_cast<std::size_t>(*kind)];
    std::optional<Delta> delta;
    if (sized) delta = deltaOf(*sizeBefore, *sizeAfter);
    result_.changes.push_back({*kind, delta, copyOf(before), copyOf(after)});
  }

  void sortChanges() {
    const auto key = [](const Change& change) {
      return std::tuple(!change.delta, ~(change.delta ? change.delta->bytes : 0), change.kind);
    };
    std::stable_sort(result_.changes.begin(), result_.changes.end(),
                     [&key](const Change& a, const Change& b) { return key(a) < key(b); });
  }

  Side before_;
  Side after_;
  const Selection& selection_;
  Comparison result_;
};

// Parses `text`, the percentage without its percent sign; empty when it is malformed.
std::optional<double> parsePercentage(std::string_view text) {
  if (text.find_first_not_of("0123456789.") != std::string_view::npos) return {};
  double number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, std::chars_format::fixed);
  if (error != std::errc() || end != text.data() + text.size()) return {};
  return number;
}

}  // namespace

Delta deltaOf(std::uint64_t before, std::uint64_t after) {
  return after < before ? Delta{true, before - after} : Delta{false, after - before};
}

bool Change::isGrowth() const { return kind == ChangeClass::Added || (delta && !delta->negative && delta->bytes > 0); }

Comparison compare(const std::vector<const Inventory*>& before, const std::vector<const Inventory*>& after,
                   const Selection& selection) {
  return Comparer(before, after, selection).run();
}

GrowthLimit::GrowthLimit(const std::string& text, bool all) : text_(text), all_(all) {
  std::optional<std::uint64_t> bytes;
  if (text.ends_with(percentSign)) {
    percentage_ = parsePercentage(std::string_view(text).substr(0, text.size() - percentSign.size()));
  } else {
    bytes = parseBytes(text);
  }
  if (!percentage_ && !bytes) {
    throw UsageError("--fail-on-growth \"" + text + "\": expected a number of bytes, such as 0 or 4K, or a percentage");
  }
  bytes_ = bytes.value_or(0);
}

std::uint64_t GrowthLimit::allowed(std::uint64_t before) const {
  if (!percentage_) return bytes_;
  const double bytes = static_cast<double>(before) * *percentage_ / 100;
  constexpr double tooMany = 18446744073709551616.0;  // 2^64
  return bytes < tooMany ? static_cast<std::uint64_t>(bytes) : UINT64_MAX;
}

std::string GrowthLimit::excess(const Comparison& comparison) const {
  const std::uint64_t before = all_ ? comparison.before.bytes : comparison.before.mutableBytes;
  const std::uint64_t after = all_ ? comparison.after.bytes : comparison.after.mutableBytes;
  const Delta growth = deltaOf(before, after);
  if (growth.negative || growth.bytes <= allowed(before)) return "";
  return std::string("--fail-on-growth ") + text_ + ": " + (all_ ? "all" : "writable and thread-local") +
         " variables grew by " + counted(growth.bytes, "byte") + ", from " + withSeparators(before) + " to " +
         withSeparators(after) + ", " + withSeparators(growth.bytes - allowed(before)) + " more than allowed";
}
