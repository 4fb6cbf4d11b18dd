// Starting, watching and ending child processes. The session classes (a2lControl, gdbControl) each keep one
// ChildState; what runs between fork and exec of a tool, and everything that must not race with SIGCHLD, is in this
// module.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <functional>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

using Clock = std::chrono::steady_clock;
using Deadline = Clock::time_point;

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

  /// Sends SIGKILL to the child if it runs, and marks it not active. Never signals a collected process id.
  /// Then waits until the child is collected, at most until `deadline`.
  void kill(Deadline deadline);

  /// Marks the child not active without signalling it.
  void forget() { active_ = 0; }

 private:
  friend void collectChildren();
  friend int spawn(const SpawnRequest& request, ChildState& state, bool& executed);

  volatile std::sig_atomic_t active_ = 0;
  std::atomic<pid_t> pid_{0};
  ChildState* const nextKnown_;
};
// So that the handler can still reach it while the program exits.
static_assert(std::is_trivially_destructible_v<ChildState>);

/// Collects every child of the process that has ended and marks those of them that a ChildState knows as not
/// active. The body of a SIGCHLD handler: async-signal-safe, errno kept.
void collectChildren();

/// Keeps SIGCHLD from being delivered while it lives, except within waits that use `waitMask`. So nothing can
/// happen between looking at a ChildState and acting, or going to sleep, on what was seen. Only the outermost of
/// several costs system calls.
class SigchldBlocked {
 public:
  SigchldBlocked();
  ~SigchldBlocked();
  SigchldBlocked(const SigchldBlocked&) = delete;
  SigchldBlocked& operator=(const SigchldBlocked&) = delete;

  /// The signal mask from before the outermost.
  static const sigset_t& previous() { return previous_; }
  /// That mask without SIGCHLD, for ppoll.
  static const sigset_t* waitMask() { return &waitMask_; }

 private:
  static int depth_;
  static sigset_t previous_;
  static sigset_t waitMask_;
};

/// How a wait on a descriptor ended.
enum class WaitResult { Ready, TimedOut, Interrupted, Failed };

/// Waits once until `fd` is ready for `events` (poll(2)'s POLLIN or POLLOUT; an end of file or an error on the
/// descriptor counts as ready), `deadline` has passed, or a signal was handled. While `child` is given and not
/// active it does not sleep at all. A SIGCHLD that arrives just before the wait is not missed.
WaitResult waitOnce(int fd, short events, Deadline deadline, const ChildState* child);

/// fork(2), with a child that gets `deathSignal` when this process ends, however it ends.
pid_t forkBound(int deathSignal);

/// The owner of a process that runs a part of this program. When the owner goes, or this process ends in any way, it is
/// killed.
class ForkedProcess {
 public:
  ForkedProcess() = default;
  ForkedProcess(ForkedProcess&& other) noexcept : pid_(std::exchange(other.pid_, 0)) {}
  ForkedProcess& operator=(ForkedProcess&& other) noexcept;
  ForkedProcess(const ForkedProcess&) = delete;
  ForkedProcess& operator=(const ForkedProcess&) = delete;
  ~ForkedProcess() { end(); }

  /// Starts a process that calls `work` and leaves with the exit status that it returns (255 when it throws); nothing
  /// of this process is flushed or destroyed there. Returns an empty owner on failure; errno tells why.
  static ForkedProcess start(const std::function<int()>& work);
  /// Whether it owns a process.
  explicit operator bool() const { return pid_ > 0; }

  /// Waits until the process has ended, and returns its status as waitpid(2) does. The owner is empty then.
  int await();

 private:
  void end();

  pid_t pid_ = 0;
};

/// `words` as exec(3) wants them; valid as long as `words`.
std::vector<char*> execArguments(const std::vector<std::string>& words);

/// What to run, and with which ends of pipes.
struct SpawnRequest {
  std::vector<std::string> argv;    ///< program (looked up on the search path) and its arguments
  std::string firstOutput;          ///< text the child writes to its standard output before the exec
  std::string execFailureFormat;    ///< printf format, one %s (the reason), written to standard error if exec fails
  int standardInput = -1;           ///< becomes descriptor 0
  int standardOutputAndError = -1;  ///< becomes descriptors 1 and 2
};

/// Starts a child with the three standard descriptors alone, without DEBUGINFOD_URLS in its environment, and told
/// to die with this process. Returns as soon as the exec has succeeded or failed. On success `state` names the
/// running child, and `executed` is true. A child that could not redirect its streams or exec has been collected on
/// return and is not active; its message is in the pipe. Returns 0, or the errno of a failed fork (`state` is then
/// unchanged).
int spawn(const SpawnRequest& request, ChildState& state, bool& executed);
