// What changed between two builds: how the variables that belong together differ, and whether that passes a limit.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "frontend/fields.h"
#include "frontend/selection.h"

/// How a variable has changed: the first of these that fits.
enum class ChangeClass {
  Added,
  Removed,
  Type,    ///< is of another type; more or fewer elements of an array alone are growth
  Grown,   ///< takes more bytes
  Shrunk,  ///< takes fewer bytes
  Moved    ///< is in another section
};

/// What the classes are called, in their order.
constexpr std::array<std::string_view, 6> changeClassNames{"added", "removed", "type", "grown", "shrunk", "moved"};

/// A difference of bytes, which may be larger than any signed number.
struct Delta {
  bool negative = false;
  std::uint64_t bytes = 0;
};

/// The difference from `before` to `after`.
Delta deltaOf(std::uint64_t before, std::uint64_t after);

/// A variable that has changed.
struct Change {
  ChangeClass kind{};
  std::optional<Delta> delta;  ///< of its size; none if one of the sizes is not known
  std::optional<Row> before;   ///< none if it was added
  std::optional<Row> after;    ///< none if it was removed

  /// The variable as it is now, or was at last.
  const Row& latest() const { return after ? *after : *before; }
  std::string_view className() const { return changeClassNames[static_cast<std::size_t>(kind)]; }
  /// Whether it was added, or takes more bytes than before.
  bool isGrowth() const;
};

/// The variables of one build, summed up. Bytes that several of them share count once.
struct Total {
  std::size_t variables = 0;
  std::uint64_t bytes = 0;
  /// Of those that are writable or thread-local, where that is known of the variable which they were or became, too.
  std::uint64_t mutableBytes = 0;
  /// Variables that are left out of both, because their size, or that of the variable which they were or became, is not
  /// known.
  std::size_t unsized = 0;
  std::size_t undecided = 0;  ///< variables of which it is not known whether they are writable

  /// Whether the build says of any variable if it is writable.
  bool saysWritable() const { return variables == 0 || undecided < variables; }
};

struct Comparison {
  /// The largest first, those of unknown size last; equal ones by class, then in the order of the variables.
  std::vector<Change> changes;
  std::array<std::size_t, changeClassNames.size()> counts{};  ///< of each class
  Total before;
  Total after;
  std::vector<Row> newlyMutable;  ///< variables that are writable or thread-local, and were not, or were not there

  /// Whether the mutable bytes of the builds can be compared.
  bool saysWritable() const { return before.saysWritable() && after.saysWritable(); }
  std::size_t count(ChangeClass kind) const { return counts[static_cast<std::size_t>(kind)]; }
};

/// Compares all variables of the programs `before` with all of `after`. Kept is what has to do with a variable that
/// `selection` selects, as it was or as it is. Which of them belong together is told by matchRows. The result refers to
/// the programs.
Comparison compare(const std::vector<const Inventory*>& before, const std::vector<const Inventory*>& after,
                   const Selection& selection);

/// By how much a build may grow.
class GrowthLimit {
 public:
  /// `text` is a number of bytes, also with K or M, or a percentage of the old ones such as "0.5%". With `all`, the
  /// bytes of all variables count, otherwise those of writable and thread-local ones. Throws UsageError when `text` is
  /// neither.
  GrowthLimit(const std::string& text, bool all);

  /// By how much `comparison` passes the limit, in words; empty if it does not.
  std::string passedBy(const Comparison& comparison) const;

 private:
  std::uint64_t allowed(std::uint64_t before) const;

  std::string text_;
  bool all_;
  std::optional<double> percentage_;
  std::uint64_t bytes_ = 0;
};
