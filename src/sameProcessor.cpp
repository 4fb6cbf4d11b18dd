#include "sameProcessor.h"

#include <sched.h>

#include <optional>

namespace {

// The processors that this process was allowed before it was bound to one of them; empty while it is not bound.
std::optional<cpu_set_t> allowedBefore;

}  // namespace

void SameProcessor::beforeQuestion() {
  const unsigned phase = asked_++ % turn;
  if (phase > 1) return;
  const SigchldBlocked blocked;  // the process id must not be collected meanwhile
  if (!tool_.active()) return;
  if (phase == 0) {
    if (allowedBefore) sched_setaffinity(tool_.pid(), sizeof *allowedBefore, &*allowedBefore);
    letGo();
    return;
  }
  cpu_set_t allowed;
  const int here = sched_getcpu();
  if (here < 0 || here >= CPU_SETSIZE || sched_getaffinity(0, sizeof allowed, &allowed) != 0) return;
  if (CPU_COUNT(&allowed) < 2) return;
  cpu_set_t one;
  CPU_ZERO(&one);
  CPU_SET(here, &one);
  if (sched_setaffinity(0, sizeof one, &one) != 0) return;
  allowedBefore = allowed;
  sched_setaffinity(tool_.pid(), sizeof one, &one);
}

void SameProcessor::letGo() {
  if (!allowedBefore) return;
  sched_setaffinity(0, sizeof *allowedBefore, &*allowedBefore);
  allowedBefore.reset();
}
