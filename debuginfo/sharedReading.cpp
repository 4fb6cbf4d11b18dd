#include "debuginfo/sharedReading.h"

#include <algorithm>
#include <climits>
#include <list>
#include <span>

#include "debuginfo/passedPages.h"
#include "debuginfo/variables.h"
#include "src/forkedProcess.h"
#include "src/io.h"
#include "src/userError.h"

namespace {

// Consecutive units, which one process reads.
using Range = std::span<const ListedUnit>;

// The number of a range is sent as one byte.
constexpr std::size_t mostRanges = UCHAR_MAX + 1;
constexpr std::size_t rangesOfProcess = 64;  // many small ranges keep all processes busy until the end

std::uint64_t costOf(Range units) {
  std::uint64_t cost = 0;
  for (const ListedUnit& unit : units) cost += unit.cost;
  return cost;
}

// Cuts `units` into at most `count` ranges of about the same cost.
std::vector<Range> cut(Range units, std::size_t count) {
  const std::uint64_t share = costOf(units) / count + 1;
  std::vector<Range> ranges;
  std::uint64_t cost = 0;
  std::size_t begin = 0;
  for (std::size_t i = 0; i < units.size(); ++i) {
    cost += units[i].cost;
    if (cost < share && i + 1 < units.size()) continue;
    ranges.push_back(units.subspan(begin, i + 1 - begin));
    begin = i + 1;
    cost = 0;
  }
  return ranges;
}

Findings readRange(const DebugFile& file, Range units, VariableReader& reader, PassedPages& pages) {
  std::vector<std::string> missing;
  for (const ListedUnit& listed : units) {
    pages.advanceTo(listed.top.addr);
    if (const std::optional<Unit> unit = file.find(listed, missing)) reader.read(*unit);
  }
  Findings found = reader.takeFindings();
  found.missing = std::move(missing);
  return found;
}

// The numbers of the ranges not yet read: a pipe from which each process takes the next number.
class RangeQueue {
 public:
  // The queue is empty if the pipe cannot be created.
  explicit RangeQueue(std::size_t count) {
    Pipe pipe;
    std::string numbers;
    for (std::size_t i = 0; i < count; ++i) numbers += static_cast<char>(i);
    if (makePipe(pipe) && writeAll(pipe.writeEnd.get(), numbers)) numbers_ = std::move(pipe.readEnd);
  }

  std::optional<std::size_t> take() const {
    unsigned char number = 0;
    if (readRetrying(numbers_.get(), &number, 1) != 1) return {};
    return number;
  }

 private:
  UniqueFd numbers_;
};

// Reads ranges in this process and in helpers, and merges the findings in order.
class SharedReading {
 public:
  SharedReading(const DebugFile& file, std::vector<Range> ranges, const ReadOptions& options, TextPool& texts)
      : file_(file),
        ranges_(std::move(ranges)),
        reader_(file, options, texts),
        texts_(texts),
        queue_(ranges_.size()),
        parts_(ranges_.size()) {}

  // `processes`: their number, including this one.
  Findings run(std::size_t processes) {
    while (helpers_.size() + 1 < processes && startHelper()) continue;
    while (const auto number = queue_.take()) parts_.at(*number) = readRange(file_, ranges_[*number], reader_, pages_);
    for (Helper& helper : helpers_) receiveFrom(helper);
    Findings all;
    for (std::size_t i = 0; i < ranges_.size(); ++i)
      all.append(parts_[i] ? std::move(*parts_[i]) : readRange(file_, ranges_[i], reader_, pages_));
    return all;
  }

 private:
  // A process that reads ranges until none is left and then sends its findings.
  struct Helper {
    UniqueFd from;
    ForkedProcess process;
  };

  bool startHelper() {
    Pipe pipe;
    if (!makePipe(pipe)) return false;
    ForkedProcess process = ForkedProcess::start([&] {
      for (Helper& other : helpers_) other.from.reset();
      return help(pipe.writeEnd.get());
    });
    if (!process) return false;
    helpers_.push_back({std::move(pipe.readEnd), std::move(process)});
    return true;
  }

  // Runs in a helper. Returns its exit status.
  int help(int out) {
    std::vector<std::pair<std::size_t, Findings>> parts;
    while (const auto number = queue_.take())
      parts.emplace_back(*number, readRange(file_, ranges_.at(*number), reader_, pages_));
    return writeAll(out, packFindings(parts)) ? 0 : 1;
  }

  void receiveFrom(Helper& helper) try {
    std::string message;
    const bool isWhole = readAll(helper.from.get(), message);
    if (helper.process.await() != 0 || !isWhole) return;
    for (auto& [number, findings] : unpackFindings(texts_.keep(message))) parts_.at(number) = std::move(findings);
  } catch (const UserError&) {
    return;  // run() then reads its ranges
  }

  const DebugFile& file_;
  const std::vector<Range> ranges_;
  VariableReader reader_;
  PassedPages pages_;
  TextPool& texts_;
  const RangeQueue queue_;
  std::list<Helper> helpers_;
  std::vector<std::optional<Findings>> parts_;
};

// The number of processes with which it is worthwhile to read `units`.
std::size_t processesFor(Range units, const ReadOptions& options) {
  if (options.declarations) return 1;  // packFindings does not include them
  const std::uint64_t most = costOf(units) / std::max<std::uint64_t>(1, options.bytesOfProcess);
  return std::clamp<std::uint64_t>(std::min<std::uint64_t>(options.jobs, most), 1, mostRanges);
}

}  // namespace

Findings readUnits(const DebugFile& file, const std::vector<ListedUnit>& units, const ReadOptions& options,
                   TextPool& texts) {
  const std::size_t processes = processesFor(units, options);
  if (processes > 1) {
    const std::size_t count = std::min(processes * rangesOfProcess, mostRanges);
    return SharedReading(file, cut(units, count), options, texts).run(processes);
  }
  VariableReader reader(file, options, texts);
  PassedPages pages;
  return readRange(file, units, reader, pages);
}
