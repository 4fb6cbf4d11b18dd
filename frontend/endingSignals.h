// Signals that end the program, kept waiting while it does something that has to be finished or undone.
#pragma once

#include <csignal>

/// While it lives, SIGINT, SIGTERM and SIGHUP wait.
class EndingSignals {
 public:
  EndingSignals();
  /// A signal that waits ends the program here.
  ~EndingSignals();
  EndingSignals(const EndingSignals&) = delete;
  EndingSignals& operator=(const EndingSignals&) = delete;

  /// Whether one of them waits.
  static bool pending();

 private:
  sigset_t before_{};
};
