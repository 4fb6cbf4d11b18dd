// Starts, watches and ends child processes. Each session class (a2lControl, gdbControl) has one ChildState. This module
// holds what runs between fork and exec of a tool, and everything that must not race with SIGCHLD.
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

/// The names of a tool in messages.
struct ToolNames {
  const char* upper;  ///< "A2L" or "GDB"
  const char* lower;  ///< "a2l" or "gdb"
};

/// What to run.
struct SpawnRequest {
  const ToolNames& names;
  std::vector<std::string> argv;  ///< program, looked up in PATH, and its arguments
  std::string_view firstOutput;   ///< text that the child writes to its standard output before exec
};

/// A child with pipes on its standard streams. The ends used here are non-blocking. The read end of its input stays
/// open here too, so that writing to a child that has exited neither fails nor raises SIGPIPE.
struct SpawnedChild {
  pid_t pid = -1;
  bool executed = false;  ///< exec succeeded; if not, the child has been reaped, and its message is in the pipe
  Pipe input;
  Pipe output;  ///< from its standard output and error; only the read end, and not even that after a failed start
};

/// The state of the latest child of one kind. Objects must live as long as the program, as the signal handler may
/// access them at any time.
class ChildState {
 public:
  ChildState();

  /// Starts a child that has only the three standard descriptors, no DEBUGINFOD_URLS in its environment, and that is
  /// killed when this process ends. Returns as soon as exec has succeeded, which makes the child active, or failed. A
  /// pipe or fork that fails is reported on standard error and changes nothing.
  SpawnedChild spawn(const SpawnRequest& request);

  /// Process id of the latest child, 0 when there was none.
  pid_t pid() const { return pid_; }

  /// 1 while the child is believed to run, else 0.
  int active() const { return active_; }

  /// Whether the child is doing anything other than waiting for input: it computes, writes, sleeps, or waits for a
  /// child of its own. False also when the system does not say.
  bool isBusy() const;

  /// Reaps the child if it has exited, whichever handler is installed for SIGCHLD. True when it is no longer running.
  bool reapIfExited();

  /// Waits until the child has been reaped, at most until `deadline`.
  void awaitExit(Deadline deadline);

  /// Sends SIGKILL to the child if it is running, never to the process id of a reaped one, waits like `awaitExit`, and
  /// marks the child inactive.
  void kill(Deadline deadline);

  /// Marks the child inactive without sending it a signal.
  void markInactive() { active_ = 0; }

  /// Reaps every child of the process that has exited, and marks those of the ChildState objects inactive. The body of
  /// a SIGCHLD handler: async-signal-safe, preserves errno.
  static void reapAll();

 private:
  volatile std::sig_atomic_t active_ = 0;
  std::atomic<pid_t> pid_{0};
  ChildState* const nextState_;
};
// The handler may still access it while the program exits.
static_assert(std::is_trivially_destructible_v<ChildState>);

/// How a wait on a descriptor ended.
enum class WaitResult { Ready, TimedOut, Failed };

/// Waits until `fd` (-1: none) is ready for `events` (POLLIN or POLLOUT of poll(2); end of file and errors count as
/// ready), at most until `deadline`, and only while `child` is active. With a null `child`, any signal ends the wait. A
/// SIGCHLD that arrives just before the wait is not missed.
WaitResult waitFor(int fd, short events, Deadline deadline, const ChildState* child);

/// Forks like fork(2); the child gets the signal `deathSignal` when this process ends, however it ends.
pid_t forkWithDeathSignal(int deathSignal);
