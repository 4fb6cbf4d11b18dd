#include "frontend/endingSignals.h"

namespace {

constexpr int numbers[] = {SIGINT, SIGTERM, SIGHUP};

}  // namespace

EndingSignals::EndingSignals() {
  sigset_t ending;
  sigemptyset(&ending);
  for (const int number : numbers) sigaddset(&ending, number);
  sigprocmask(SIG_BLOCK, &ending, &before_);
}

EndingSignals::~EndingSignals() { sigprocmask(SIG_SETMASK, &before_, nullptr); }

bool EndingSignals::pending() {
  sigset_t waiting;
  sigemptyset(&waiting);
  sigpending(&waiting);
  for (const int number : numbers) {
    if (sigismember(&waiting, number) == 1) return true;
  }
  return false;
}
