// Blocks the signals that end the program during work that must be completed or undone, such as writing files.
#pragma once

#include <csignal>

/// Blocks SIGINT, SIGTERM and SIGHUP during its lifetime.
class EndingSignals {
 public:
  EndingSignals();
  /// Unblocks the signals; a pending one ends the program here.
  ~EndingSignals();
  EndingSignals(const EndingSignals&) = delete;
  EndingSignals& operator=(const EndingSignals&) = delete;

  /// Whether one of the blocked signals is pending.
  static bool pending();

 private:
  sigset_t before_{};
};
