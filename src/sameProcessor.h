// Keeps this process and a tool that it asks one question at a time on the same processor. While one of the two works
// the other waits, so nothing is lost by that, and a question costs a switch between them instead of waking another
// processor: measured on two processors, half the time a question (bench/run.sh).
//
// So as not to be stuck behind another program on a busy machine, both are let go for one question in `turn`: the
// kernel then puts this process where there is room, and the tool follows.
#pragma once

#include "childProcess.h"

class SameProcessor {
 public:
  /// Questions from one free choice of the processor to the next.
  static constexpr unsigned turn = 64;

  explicit SameProcessor(const ChildState& tool) : tool_(tool) {}
  ~SameProcessor() { letGo(); }
  SameProcessor(const SameProcessor&) = delete;
  SameProcessor& operator=(const SameProcessor&) = delete;

  /// To be called before each question. Does nothing where there is one processor only, or no choice.
  void beforeQuestion();

  /// Allows this process the processors it had at the beginning; for a child before its exec.
  static void letGo();

 private:
  const ChildState& tool_;
  unsigned asked_ = 0;
};
