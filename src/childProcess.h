// Starting, watching and ending child processes. The session classes (a2lControl, gdbControl) each keep one
// ChildState; what runs between fork and exec of a tool, and everything that must not race with SIGCHLD, is in this
// module.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <csignal>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "deadline.h"
#include "io.h"

/// The names of a tool as they stand in messages.
struct ToolNames {
  const char* upper;  ///< "A2L" or "GDB"
  const char* lower;  ///< "a2l" or "gdb"
};

/// What to run.
struct SpawnRequest {
  const ToolNames& names;
  std::vector<std::string> argv;  ///< program, looked up on the search path, and its arguments
  std::string_view firstOutput;   ///< text the child writes to its standard output before the exec
};

/// A child with pipes on its standard streams. The ends here do not block. The read end of its input is held here too,
/// so that writing to a child that has gone is no error and raises no SIGPIPE.
struct Spawned {
  pid_t pid = -1;
  bool executed = false;  ///< it runs the program; if not, it has been collected, and its message is in the pipe
  Pipe input;
  Pipe output;  ///< from its standard output and error; the read end alone, none when the start has failed
};

/// What is known of the latest child of one kind. Objects have to live for the whole program, as the signal handler
/// reaches them at any time.
class ChildState {
 public:
  ChildState();

  /// Starts a child with the three standard descriptors alone, without DEBUGINFOD_URLS in its environment, and told to
  /// die with this process. Returns as soon as the exec has succeeded or failed; the child is active if it has
  /// succeeded. When a pipe or the fork fails, a message says so on standard error, and nothing is changed.
  Spawned spawn(const SpawnRequest& request);

  /// Process id of the latest child, 0 when there was none.
  pid_t pid() const { return pid_; }

  /// 1 while the child is believed to run, else 0.
  int active() const { return active_; }

  /// Whether the child is seen to do something else than wait for input: it computes, writes, sleeps, or waits for a
  /// child of its own. False also when the system does not tell.
  bool isBusy() const;

  /// Collects the child if it has ended, whatever handler owns SIGCHLD. Returns whether it still runs.
  bool stillRuns();

  /// Waits until the child is collected, at most until `deadline`.
  void awaitEnd(Deadline deadline);

  /// Sends SIGKILL to the child if it runs, never to a collected process id, waits as `awaitEnd`, and marks it not
  /// active.
  void kill(Deadline deadline);

  /// Marks the child not active without signalling it.
  void forget() { active_ = 0; }

  /// Collects every child of the process that has ended and marks those of them that a ChildState knows as not active.
  /// The body of a SIGCHLD handler: async-signal-safe, errno kept.
  static void collectAll();

 private:
  volatile std::sig_atomic_t active_ = 0;
  std::atomic<pid_t> pid_{0};
  ChildState* const nextKnown_;
};
// So that the handler can still reach it while the program exits.
static_assert(std::is_trivially_destructible_v<ChildState>);

/// How a wait on a descriptor ended.
enum class WaitResult { Ready, TimedOut, Failed };

/// Waits until `fd` (-1: none) is ready for `events` (poll(2)'s POLLIN or POLLOUT; an end of file or an error on the
/// descriptor counts as ready), at most until `deadline`, and only while `child` is active. Without a child, any signal
/// ends the wait. A SIGCHLD that arrives just before the wait is not missed.
WaitResult waitFor(int fd, short events, Deadline deadline, const ChildState* child);

/// fork(2), with a child that gets `deathSignal` when this process ends, however it ends.
pid_t forkBound(int deathSignal);
