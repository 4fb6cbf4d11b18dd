#include "sameProcessor.h"

#include <sched.h>

#include <optional>

namespace {

// The processors that this process was allowed before it was bound to one of them; empty while it is not bound.
std::optional<cpu_set_t> allowedBefore;

}  // namespace

void SameProcessor::beforeQuestion() {
  if (asked_++ % window != 0) return;
  const Clock::time_point now = Clock::now();
  // The first window holds the start of the tool and tells nothing.
  if (decisions_ > 1) took_[way_] = now - begin_;
  begin_ = now;
  const Way faster = took_[Bound] <= took_[Free] ? Bound : Free;
  const Way slower = faster == Bound ? Free : Bound;
  goOn(decisions_++ % trial == 0 ? slower : faster);
}

void SameProcessor::goOn(Way way) {
  const SigchldBlocked blocked;  // the process id must not be collected meanwhile
  way_ = way;
  if (!tool_.active()) return;
  if (way == Bound) {
    bind();
  } else if (allowedBefore) {
    sched_setaffinity(tool_.pid(), sizeof *allowedBefore, &*allowedBefore);
    letGo();
  }
}

// Binds both to the processor that this process is on.
void SameProcessor::bind() const {
  cpu_set_t allowed;
  const int here = sched_getcpu();
  if (allowedBefore || here < 0 || here >= CPU_SETSIZE) return;
  if (sched_getaffinity(0, sizeof allowed, &allowed) != 0 || CPU_COUNT(&allowed) < 2) return;
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
