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

#include "processSetup.h"

namespace {

// List of all ChildState objects, newest first, for the signal handler.
std::atomic<ChildState*> allStates{nullptr};

timespec timeUntil(Deadline deadline) {
  const std::chrono::nanoseconds left = std::max(deadline - Clock::now(), Clock::duration::zero());
  return {left / std::chrono::seconds(1), (left % std::chrono::seconds(1)).count()};
}

// Reports `what` on standard error, and to the parent through the status pipe, which a successful exec closes.
[[noreturn]] void failInChild(const std::string& what, int statusPipe) {
  const std::string message = "ERROR: " + what + ": " + std::strerror(errno) + ".\n";
  writeRetrying(STDERR_FILENO, message.data(), message.size());
  writeRetrying(statusPipe, "!", 1);
  _exit(255);
}

// Blocks SIGCHLD during its lifetime, except within `waitFor`, so that no ChildState changes between being checked and
// being acted upon.
class SigchldBlocker {
 public:
  SigchldBlocker() {
    sigset_t sigchld;
    sigemptyset(&sigchld);
    sigaddset(&sigchld, SIGCHLD);
    sigprocmask(SIG_BLOCK, &sigchld, &previous_);
  }
  ~SigchldBlocker() { sigprocmask(SIG_SETMASK, &previous_, nullptr); }
  SigchldBlocker(const SigchldBlocker&) = delete;
  SigchldBlocker& operator=(const SigchldBlocker&) = delete;

  const sigset_t& previous() const { return previous_; }

 private:
  sigset_t previous_;
};

// This program opens all descriptors close-on-exec; this is for those that it inherited.
void closeOtherDescriptors() {
  if (close_range(STDERR_FILENO + 1, UINT_MAX, CLOSE_RANGE_CLOEXEC) == 0) return;
  constexpr int usualLimit = 1024;  // for kernels before 5.11
  for (int fd = STDERR_FILENO + 1; fd < usualLimit; ++fd) fcntl(fd, F_SETFD, FD_CLOEXEC);
}

// Runs in the child from fork to exec. The process has one thread, so the child may call any function; it must leave
// only by exec or _exit, so that nothing inherited from the parent is flushed or destroyed twice.
[[noreturn]] void runChild(const SpawnRequest& request, const SpawnedChild& pipes, int statusPipe,
                           const sigset_t& mask) {
  const auto redirect = [statusPipe](const UniqueFd& from, int to, const char* name) {
    if (dup2(from.get(), to) < 0) failInChild(std::string("unable to dup to ") + name, statusPipe);
  };
  redirect(pipes.input.readEnd, STDIN_FILENO, "stdin");
  redirect(pipes.output.writeEnd, STDOUT_FILENO, "stdout");
  redirect(pipes.output.writeEnd, STDERR_FILENO, "stderr");
  writeRetrying(STDOUT_FILENO, request.firstOutput.data(), request.firstOutput.size());
  restoreSignals();
  closeOtherDescriptors();
  std::vector<char*> arguments;
  for (const std::string& word : request.argv) arguments.push_back(const_cast<char*>(word.c_str()));
  arguments.push_back(nullptr);
  sigprocmask(SIG_SETMASK, &mask, nullptr);
  execvp(arguments[0], arguments.data());
  failInChild(std::string("Cannot exec ") + request.names.lower, statusPipe);
}

SpawnedChild reportFailure(const std::string& what) {
  std::fprintf(stderr, "ERROR: unable to %s: %s.\n", what.c_str(), std::strerror(errno));
  return {};
}

}  // namespace

ChildState::ChildState() : nextState_(allStates.load()) { allStates = this; }

SpawnedChild ChildState::spawn(const SpawnRequest& request) {
  ensureStandardDescriptorsOpen();  // so that no pipe gets one of their numbers
  SpawnedChild child;
  Pipe status;
  const std::string upper = request.names.upper;
  if (!makePipe(child.input)) return reportFailure("open pipe to " + upper);
  if (!makePipe(child.output) || !makePipe(status)) return reportFailure("open pipe from " + upper);
  const SigchldBlocker blocked;
  // If this process is killed, end of input ends a child that reads; SIGKILL also ends one that does not.
  child.pid = forkWithDeathSignal(SIGKILL);
  if (child.pid < 0) return reportFailure("fork process");
  if (child.pid == 0) runChild(request, child, status.writeEnd.get(), blocked.previous());
  status.writeEnd.reset();
  child.output.writeEnd.reset();
  setNonBlocking(child.input.writeEnd.get());
  setNonBlocking(child.output.readEnd.get());
  // End of file may also mean that the child was killed before exec; SIGCHLD will report that.
  char failed = 0;
  child.executed = readRetrying(status.readEnd.get(), &failed, 1) == 0;
  pid_ = child.pid;
  active_ = child.executed ? 1 : 0;
  if (child.executed) return child;
  ::kill(child.pid, SIGKILL);
  waitpid(child.pid, nullptr, 0);
  return child;
}

bool ChildState::reapIfExited() {
  const SigchldBlocker blocked;
  if (active_ && waitpid(pid_, nullptr, WNOHANG) != 0) active_ = 0;
  return active_ == 0;
}

// See proc(5) on /proc/[pid]/syscall: "running", or the number and arguments of the system call that blocks the
// process. A process waiting for input is reading it, or waits for descriptors or for other threads.
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

void ChildState::awaitExit(Deadline deadline) {
  if (!reapIfExited()) waitFor(-1, 0, deadline, this);
}

void ChildState::kill(Deadline deadline) {
  const SigchldBlocker blocked;
  if (reapIfExited()) return;
  ::kill(pid_, SIGKILL);
  awaitExit(deadline);
  active_ = 0;
}

void ChildState::reapAll() {
  const int savedErrno = errno;
  for (pid_t pid = waitpid(-1, nullptr, WNOHANG); pid > 0; pid = waitpid(-1, nullptr, WNOHANG)) {
    for (ChildState* state = allStates; state != nullptr; state = state->nextState_) {
      if (state->pid_ == pid) state->active_ = 0;
    }
  }
  errno = savedErrno;
}

WaitResult waitFor(int fd, short events, Deadline deadline, const ChildState* child) {
  const SigchldBlocker blocked;
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

pid_t forkWithDeathSignal(int deathSignal) {
  const pid_t parent = getpid();
  const pid_t pid = fork();
  if (pid != 0) return pid;
  prctl(PR_SET_PDEATHSIG, deathSignal);
  if (getppid() != parent) _exit(255);
  return 0;
}
