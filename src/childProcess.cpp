#include "childProcess.h"

#include <fcntl.h>
#include <linux/close_range.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>

namespace {

// Every ChildState, newest first; the handler walks this list.
std::atomic<ChildState*> knownStates{nullptr};

timespec timeUntil(Deadline deadline) {
  const std::chrono::nanoseconds left = std::max(deadline - Clock::now(), Clock::duration::zero());
  return {left / std::chrono::seconds(1), (left % std::chrono::seconds(1)).count()};
}

// The status pipe of a child is closed by its exec, or gets a byte before it.
[[noreturn]] void failInChild(const std::string& what, int statusPipe) {
  const std::string message = "ERROR: " + what + ": " + std::strerror(errno) + ".\n";
  writeRetrying(STDERR_FILENO, message.data(), message.size());
  writeRetrying(statusPipe, "!", 1);
  _exit(255);
}

// Keeps SIGCHLD from being delivered while it lives, except within `waitFor`. So nothing can happen between looking at
// a ChildState and acting, or going to sleep, on what was seen.
class SigchldBlocked {
 public:
  SigchldBlocked() {
    sigset_t sigchld;
    sigemptyset(&sigchld);
    sigaddset(&sigchld, SIGCHLD);
    sigprocmask(SIG_BLOCK, &sigchld, &previous_);
  }
  ~SigchldBlocked() { sigprocmask(SIG_SETMASK, &previous_, nullptr); }
  SigchldBlocked(const SigchldBlocked&) = delete;
  SigchldBlocked& operator=(const SigchldBlocked&) = delete;

  const sigset_t& previous() const { return previous_; }

 private:
  sigset_t previous_;
};

// This program's own descriptors are close-on-exec already; these are for those it was given by its parent.
void closeOtherDescriptors() {
  if (close_range(STDERR_FILENO + 1, UINT_MAX, CLOSE_RANGE_CLOEXEC) == 0) return;
  constexpr int usualLimit = 1024;  // a kernel before 5.11
  for (int fd = STDERR_FILENO + 1; fd < usualLimit; ++fd) fcntl(fd, F_SETFD, FD_CLOEXEC);
}

// What the child does between fork and exec. The process has one thread, so the child may call what it likes; it
// must only leave by exec or _exit, so that nothing inherited from the parent is flushed or destroyed twice.
[[noreturn]] void runChild(const SpawnRequest& request, const Spawned& pipes, int statusPipe, const sigset_t& mask) {
  const auto redirect = [statusPipe](const UniqueFd& from, int to, const char* name) {
    if (dup2(from.get(), to) < 0) failInChild(std::string("unable to dup to ") + name, statusPipe);
  };
  redirect(pipes.input.readEnd, STDIN_FILENO, "stdin");
  redirect(pipes.output.writeEnd, STDOUT_FILENO, "stdout");
  redirect(pipes.output.writeEnd, STDERR_FILENO, "stderr");
  writeRetrying(STDOUT_FILENO, request.firstOutput.data(), request.firstOutput.size());
  // A debugger that asks a network service for debugging information would hang or answer for another program.
  unsetenv("DEBUGINFOD_URLS");
  // Ignored here only so that a file that grows too large is an error of its write.
  signal(SIGXFSZ, SIG_DFL);
  closeOtherDescriptors();
  std::vector<char*> arguments;
  for (const std::string& word : request.argv) arguments.push_back(const_cast<char*>(word.c_str()));
  arguments.push_back(nullptr);
  sigprocmask(SIG_SETMASK, &mask, nullptr);
  execvp(arguments[0], arguments.data());
  failInChild(std::string("Cannot exec ") + request.names.lower, statusPipe);
}

Spawned reportFailure(const std::string& what) {
  std::fprintf(stderr, "ERROR: unable to %s: %s.\n", what.c_str(), std::strerror(errno));
  return {};
}

}  // namespace

ChildState::ChildState() : nextKnown_(knownStates.load()) { knownStates = this; }

Spawned ChildState::spawn(const SpawnRequest& request) {
  occupyStandardDescriptors();  // so that no end of a pipe takes the place of one
  Spawned child;
  Pipe status;
  const std::string upper = request.names.upper;
  if (!makePipe(child.input)) return reportFailure("open pipe to " + upper);
  if (!makePipe(child.output) || !makePipe(status)) return reportFailure("open pipe from " + upper);
  const SigchldBlocked blocked;
  // An end of input ends a child that reads; SIGKILL also one that is busy or mute when this process is killed.
  child.pid = forkBound(SIGKILL);
  if (child.pid < 0) return reportFailure("fork process");
  if (child.pid == 0) runChild(request, child, status.writeEnd.get(), blocked.previous());
  status.writeEnd.reset();
  child.output.writeEnd.reset();
  setNonBlocking(child.input.writeEnd.get());
  setNonBlocking(child.output.readEnd.get());
  // The end of the status pipe may also mean that the child was killed before its exec, which SIGCHLD will tell.
  char failed = 0;
  child.executed = readRetrying(status.readEnd.get(), &failed, 1) == 0;
  pid_ = child.pid;
  active_ = child.executed ? 1 : 0;
  if (child.executed) return child;
  ::kill(child.pid, SIGKILL);
  waitpid(child.pid, nullptr, 0);
  return child;
}

bool ChildState::stillRuns() {
  const SigchldBlocked blocked;
  if (active_ && waitpid(pid_, nullptr, WNOHANG) != 0) active_ = 0;
  return active_ != 0;
}

// See proc(5) on /proc/[pid]/syscall: "running", or the number of the system call in which the process is blocked, and
// its arguments. One that waits for input reads it, or waits for descriptors or for other threads.
bool ChildState::isBusy() const {
  constexpr long waits[] = {SYS_ppoll, SYS_pselect6, SYS_epoll_pwait, SYS_futex,
#ifdef SYS_poll
                            SYS_poll,  SYS_select,   SYS_epoll_wait
#endif
  };
  const std::string path = "/proc/" + std::to_string(pid_) + "/syscall";
  const UniqueFd file = openFile(path.c_str(), O_RDONLY);
  char text[64] = "";
  if (active_ == 0 || !file || readRetrying(file.get(), text, sizeof text - 1) <= 0) return false;
  char* arguments = nullptr;
  const long call = std::strtol(text, &arguments, 10);
  if (arguments == text) return true;
  if (call == SYS_read) return std::strtoul(arguments, nullptr, 16) != STDIN_FILENO;
  return std::find(std::begin(waits), std::end(waits), call) == std::end(waits);
}

void ChildState::awaitEnd(Deadline deadline) {
  if (stillRuns()) waitFor(-1, 0, deadline, this);
}

void ChildState::kill(Deadline deadline) {
  const SigchldBlocked blocked;
  if (!stillRuns()) return;
  ::kill(pid_, SIGKILL);
  awaitEnd(deadline);
  active_ = 0;
}

void ChildState::collectAll() {
  const int savedErrno = errno;
  for (pid_t pid = waitpid(-1, nullptr, WNOHANG); pid > 0; pid = waitpid(-1, nullptr, WNOHANG)) {
    for (ChildState* state = knownStates; state != nullptr; state = state->nextKnown_) {
      if (state->pid_ == pid) state->active_ = 0;
    }
  }
  errno = savedErrno;
}

WaitResult waitFor(int fd, short events, Deadline deadline, const ChildState* child) {
  const SigchldBlocked blocked;
  sigset_t waitMask = blocked.previous();
  sigdelset(&waitMask, SIGCHLD);
  pollfd watched{fd, events, 0};
  for (;;) {
    const bool gone = child != nullptr && !child->active();
    const timespec left = timeUntil(gone ? Deadline() : deadline);
    const int count = ppoll(&watched, 1, &left, &waitMask);
    if (count > 0) return (watched.revents & POLLNVAL) != 0 ? WaitResult::Failed : WaitResult::Ready;
    if (count < 0 && errno != EINTR) return WaitResult::Failed;
    if (count == 0 || child == nullptr) return WaitResult::TimedOut;
  }
}

pid_t forkBound(int deathSignal) {
  const pid_t parent = getpid();
  const pid_t pid = fork();
  if (pid != 0) return pid;
  prctl(PR_SET_PDEATHSIG, deathSignal);
  if (getppid() != parent) _exit(255);
  return 0;
}
