// Keeps this process and a tool that it asks one question at a time on the same processor, while that is faster. As one
// of the two waits while the other works, a question then costs a switch between them instead of waking another
// processor: measured on two idle processors, half the time a question (bench/run.sh). On a busy machine it can be
// slower, as they then share one processor with others; so both ways are timed again and again.
#pragma once

#include <array>

#include "childProcess.h"

class SameProcessor {
 public:
  /// Questions from one decision to the next.
  static constexpr unsigned window = 64;
  /// Decisions from one trial of the slower way to the next.
  static constexpr unsigned trial = 32;

  explicit SameProcessor(const ChildState& tool) : tool_(tool) {}
  ~SameProcessor() { letGo(); }
  SameProcessor(const SameProcessor&) = delete;
  SameProcessor& operator=(const SameProcessor&) = delete;

  /// To be called before each question. Does nothing where there is one processor only, or no choice.
  void beforeQuestion();

  /// Allows this process the processors it had at the beginning; for a child before its exec.
  static void letGo();

 private:
  enum Way { Free, Bound };

  void goOn(Way way);
  void bind() const;

  const ChildState& tool_;
  Way way_ = Free;
  unsigned asked_ = 0;
  unsigned decisions_ = 0;
  Clock::time_point begin_;                // of the window
  std::array<Clock::duration, 2> took_{};  // the latest window of each way
};
