// Compares the variables of two builds for `diff`: what changed, and whether the growth exceeds a limit.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "frontend/fields.h"
#include "frontend/selection.h"

/// How a variable has changed. The first class that applies counts.
enum class ChangeClass {
  Added,
  Removed,
  Type,    ///< has another type; a different number of array elements alone is Grown or Shrunk
  Grown,   ///< is larger
  Shrunk,  ///< is smaller
  Moved    ///< is in another section
};

/// The names of the classes, in the order of ChangeClass.
constexpr std::array<std::string_view, 6> changeClassNames{"added", "removed", "type", "grown", "shrunk", "moved"};

/// A difference in bytes, which may not fit into a signed number.
struct Delta {
  bool negative = false;
  std::uint64_t bytes = 0;
};

/// The difference from `before` to `after`.
Delta deltaOf(std::uint64_t before, std::uint64_t after);

/// A variable that has changed.
struct Change {
  ChangeClass kind{};
  std::optional<Delta> delta;  ///< in size; empty if one of the sizes is unknown
  std::optional<Row> before;   ///< empty if it was added
  std::optional<Row> after;    ///< empty if it was removed

  /// The variable in the new build, or, if it was removed, in the old one.
  const Row& latest() const { return after ? *after : *before; }
  std::string_view className() const { return changeClassNames[static_cast<std::size_t>(kind)]; }
  /// Whether it was added or is larger than before.
  bool isGrowth() const;
};

/// Totals of the variables of one build. Bytes that several variables share count once.
struct Total {
  std::size_t variables = 0;
  std::uint64_t bytes = 0;
  std::uint64_t mutableBytes = 0;  ///< of variables known to be writable or thread-local, if their counterpart is known
  /// Variables not included in the bytes, because their size or that of their counterpart is unknown.
  std::size_t unsized = 0;
  std::size_t undecided = 0;  ///< variables that may or may not be writable

  /// Whether it is known of any variable if it is writable.
  bool saysWritable() const { return variables == 0 || undecided < variables; }
};

/// The result of a comparison.
struct Comparison {
  /// By size of the change, largest first, unknown ones last; then by class; then in the order of the variables.
  std::vector<Change> changes;
  std::array<std::size_t, changeClassNames.size()> counts{};  ///< number of changes by class
  Total before;
  Total after;
  std::vector<Row> newlyMutable;  ///< writable and thread-local variables that are new or were neither before

  /// Whether the mutable bytes of the builds can be compared.
  bool saysWritable() const { return before.saysWritable() && after.saysWritable(); }
  std::size_t count(ChangeClass kind) const { return counts[static_cast<std::size_t>(kind)]; }
};

/// Compares the variables of the programs `before` with those of `after`, paired by matchRows. A pair counts if
/// `selection` selects either of its variables. The result refers to the programs, which must outlive it.
Comparison compare(const std::vector<const Inventory*>& before, const std::vector<const Inventory*>& after,
                   const Selection& selection);

/// The limit that --fail-on-growth sets.
class GrowthLimit {
 public:
  /// `text` is a number of bytes, also with K or M, or a percentage of the old bytes, such as "0.5%". With `all`, all
  /// variables count, otherwise only writable and thread-local ones. Throws UsageError when `text` is malformed.
  GrowthLimit(const std::string& text, bool all);

  /// A sentence about how `comparison` exceeds the limit; empty if it does not.
  std::string excess(const Comparison& comparison) const;

 private:
  std::uint64_t allowed(std::uint64_t before) const;

  std::string text_;
  bool all_;
  std::optional<double> percentage_;
  std::uint64_t bytes_ = 0;
};
