// Starting, watching and ending child processes. The session classes (a2lControl, gdbControl) each keep one
// ChildState; what runs between fork and exec of a tool, and everything that must not race with SIGCHLD, is in this
// module.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <csignal>
#include <string>
#include <type_traits>
#include <vector>

#include "deadline.h"
#include "io.h"

struct SpawnRequest;

/// What is known of the latest child of one kind. Objects have to live for the whole program, as the signal handler
/// reaches them at any time.
class ChildState {
 public:
  ChildState();

  /// Process id of the latest child, 0 when there was none.
  pid_t pid() const { return pid_; }

  /// 1 while the child is believed to run, else 0.
  int active() const { return active_; }

  /// Collects the child if it has ended, whatever handler owns SIGCHLD. Returns whether it still runs.
  bool stillRuns();

  /// Whether the child is at work, rather than waiting for input: it computes, sleeps, or waits for a child. False
  /// also when the system does not tell.
  bool works() const;

  /// Waits until the child is collected, at most until `deadline`.
  void awaitEnd(Deadline deadline);

  /// Sends SIGKILL to the child if it runs, never to a collected process id, waits as `awaitEnd`, and marks it not
  /// active.
  void kill(Deadline deadline);

  /// Marks the child not active without signalling it.
  void forget() { active_ = 0; }

 private:
  friend void collectChildren();
  friend int spawn(const SpawnRequest& request, Pipe status, ChildState& state, bool& executed);

  volatile std::sig_atomic_t active_ = 0;
  std::atomic<pid_t> pid_{0};
  ChildState* const nextKnown_;
};
// So that the handler can still reach it while the program exits.
static_assert(std::is_trivially_destructible_v<ChildState>);

/// Collects every child of the process that has ended and marks those of them that a ChildState knows as not
/// active. The body of a SIGCHLD handler: async-signal-safe, errno kept.
void collectChildren();

/// Keeps SIGCHLD from being delivered while it lives, except within `waitOnce`. So nothing can happen between looking
/// at a ChildState and acting, or going to sleep, on what was seen.
class SigchldBlocked {
 public:
  SigchldBlocked();
  ~SigchldBlocked() { sigprocmask(SIG_SETMASK, &previous_, nullptr); }
  SigchldBlocked(const SigchldBlocked&) = delete;
  SigchldBlocked& operator=(const SigchldBlocked&) = delete;

  /// The signal mask from before.
  const sigset_t& previous() const { return previous_; }

 private:
  sigset_t previous_;
};

/// How a wait on a descriptor ended.
enum class WaitResult { Ready, TimedOut, Interrupted, Failed };

/// Waits once until `fd` is ready for `events` (poll(2)'s POLLIN or POLLOUT; an end of file or an error on the
/// descriptor counts as ready), `deadline` has passed, or a signal was handled. While `child` is given and not
/// active it does not sleep at all. A SIGCHLD that arrives just before the wait is not missed.
WaitResult waitOnce(int fd, short events, Deadline deadline, const ChildState* child);

/// fork(2), with a child that gets `deathSignal` when this process ends, however it ends.
pid_t forkBound(int deathSignal);

/// What to run, and with which ends of pipes.
struct SpawnRequest {
  std::vector<std::string> argv;    ///< program (looked up on the search path) and its arguments
  std::string firstOutput;          ///< text the child writes to its standard output before the exec
  std::string messageName;          ///< the program's name in the message that exec has failed
  int standardInput = -1;           ///< becomes descriptor 0
  int standardOutputAndError = -1;  ///< becomes descriptors 1 and 2
};

/// Starts a child with the three standard descriptors alone, without DEBUGINFOD_URLS in its environment, and told
/// to die with this process. Returns as soon as the exec has succeeded or failed, which the child reports through
/// `status`, a fresh pipe. On success `state` names the running child, and `executed` is true. A child that could not
/// redirect its streams or exec has been collected on return and is not active; its message is in the pipe. Returns 0,
/// or the errno of a failed fork (`state` is then unchanged).
int spawn(const SpawnRequest& request, Pipe status, ChildState& state, bool& executed);
