#include "childProcess.h"

#include <fcntl.h>
#include <linux/close_range.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "io.h"
#include "sameProcessor.h"

namespace {

// Every ChildState, newest first; the handler walks this list.
std::atomic<ChildState*> knownStates{nullptr};

timespec timeUntil(Deadline deadline) {
  const auto left = std::max(deadline - Clock::now(), Clock::duration::zero());
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(left);
  const auto rest = std::chrono::duration_cast<std::chrono::nanoseconds>(left - seconds);
  return {static_cast<time_t>(seconds.count()), static_cast<long>(rest.count())};
}

// What the child does between fork and exec. The process has one thread, so the child may call what it likes; it
// must only leave by exec or _exit, so that nothing inherited from the parent is flushed or destroyed twice.
class ChildSide {
 public:
  ChildSide(const SpawnRequest& request, const sigset_t& mask, int statusPipe)
      : request_(request), mask_(mask), statusPipe_(statusPipe) {}

  [[noreturn]] void run() {
    redirect(request_.standardInput, STDIN_FILENO, "ERROR: unable to dup to stdin: %s.\n");
    redirect(request_.standardOutputAndError, STDOUT_FILENO, "ERROR: unable to dup to stdout: %s.\n");
    redirect(request_.standardOutputAndError, STDERR_FILENO, "ERROR: unable to dup to stderr: %s.\n");
    writeRetrying(STDOUT_FILENO, request_.firstOutput.data(), request_.firstOutput.size());
    // A debugger that asks a network service for debugging information would hang or answer for another program.
    unsetenv("DEBUGINFOD_URLS");
    // Ignored here only so that a file that grows too large is an error of its write.
    signal(SIGXFSZ, SIG_DFL);
    closeOtherDescriptors();
    SameProcessor::letGo();
    sigprocmask(SIG_SETMASK, &mask_, nullptr);
    execvp(request_.argv[0].c_str(), execArguments(request_.argv).data());
    fail(request_.execFailureFormat.c_str());
  }

 private:
  // This program's own descriptors are close-on-exec already; these are for those it was given by its parent.
  static void closeOtherDescriptors() {
    if (close_range(STDERR_FILENO + 1, UINT_MAX, CLOSE_RANGE_CLOEXEC) == 0) return;
    constexpr int usualLimit = 1024;  // a kernel before 5.11
    for (int fd = STDERR_FILENO + 1; fd < usualLimit; ++fd) fcntl(fd, F_SETFD, FD_CLOEXEC);
  }

  void redirect(int from, int to, const char* failureFormat) {
    if (dup2(from, to) < 0) fail(failureFormat);
  }

  [[noreturn]] void fail(const char* format) {
    char message[300];
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    std::snprintf(message, sizeof message, format, std::strerror(errno));
#pragma GCC diagnostic pop
    writeRetrying(STDERR_FILENO, message, std::strlen(message));
    writeRetrying(statusPipe_, "!", 1);
    _exit(255);
  }

  const SpawnRequest& request_;
  const sigset_t& mask_;
  const int statusPipe_;
};

}  // namespace

ChildState::ChildState() : nextKnown_(knownStates.load()) { knownStates = this; }

bool ChildState::stillRuns() {
  const SigchldBlocked blocked;
  if (active_ && waitpid(pid_, nullptr, WNOHANG) != 0) active_ = 0;
  return active_ != 0;
}

void ChildState::kill(Deadline deadline) {
  const SigchldBlocked blocked;
  if (!stillRuns()) return;
  ::kill(pid_, SIGKILL);
  while (stillRuns() && waitOnce(-1, 0, deadline, this) == WaitResult::Interrupted) continue;
  active_ = 0;
}

void collectChildren() {
  const int savedErrno = errno;
  for (pid_t pid = waitpid(-1, nullptr, WNOHANG); pid > 0; pid = waitpid(-1, nullptr, WNOHANG)) {
    for (ChildState* state = knownStates; state != nullptr; state = state->nextKnown_) {
      if (state->pid_ == pid) state->active_ = 0;
    }
  }
  errno = savedErrno;
}

int SigchldBlocked::depth_ = 0;
sigset_t SigchldBlocked::previous_;
sigset_t SigchldBlocked::waitMask_;

SigchldBlocked::SigchldBlocked() {
  if (depth_++ > 0) return;
  sigset_t sigchld;
  sigemptyset(&sigchld);
  sigaddset(&sigchld, SIGCHLD);
  sigprocmask(SIG_BLOCK, &sigchld, &previous_);
  waitMask_ = previous_;
  sigdelset(&waitMask_, SIGCHLD);
}

SigchldBlocked::~SigchldBlocked() {
  if (--depth_ == 0) sigprocmask(SIG_SETMASK, &previous_, nullptr);
}

WaitResult waitOnce(int fd, short events, Deadline deadline, const ChildState* child) {
  const SigchldBlocked blocked;
  const bool noSleep = child != nullptr && !child->active();
  const timespec left = noSleep ? timespec{0, 0} : timeUntil(deadline);
  pollfd watched{fd, events, 0};
  const int count = ppoll(&watched, 1, &left, SigchldBlocked::waitMask());
  if (count > 0) return (watched.revents & POLLNVAL) != 0 ? WaitResult::Failed : WaitResult::Ready;
  if (count == 0) return WaitResult::TimedOut;
  return errno == EINTR ? WaitResult::Interrupted : WaitResult::Failed;
}

pid_t forkBound(int deathSignal) {
  const pid_t parent = getpid();
  const pid_t pid = fork();
  if (pid != 0) return pid;
  prctl(PR_SET_PDEATHSIG, deathSignal);
  if (getppid() != parent) _exit(255);
  return 0;
}

ForkedProcess& ForkedProcess::operator=(ForkedProcess&& other) noexcept {
  if (this != &other) {
    end();
    pid_ = std::exchange(other.pid_, 0);
  }
  return *this;
}

ForkedProcess ForkedProcess::start(const std::function<int()>& work) {
  const pid_t pid = forkBound(SIGKILL);
  if (pid == 0) {
    try {
      _exit(work());
    } catch (...) {
      _exit(255);
    }
  }
  ForkedProcess process;
  process.pid_ = std::max(pid, 0);
  return process;
}

int ForkedProcess::await() {
  int status = 0;
  while (waitpid(pid_, &status, 0) < 0 && errno == EINTR) continue;
  pid_ = 0;
  return status;
}

void ForkedProcess::end() {
  if (pid_ <= 0) return;
  ::kill(pid_, SIGKILL);
  await();
}

std::vector<char*> execArguments(const std::vector<std::string>& words) {
  std::vector<char*> pointers;
  pointers.reserve(words.size() + 1);
  for (const std::string& word : words) pointers.push_back(const_cast<char*>(word.c_str()));
  pointers.push_back(nullptr);
  return pointers;
}

int spawn(const SpawnRequest& request, ChildState& state, bool& executed) {
  Pipe status;
  if (!makePipe(status)) return errno;
  const SigchldBlocked blocked;
  // An end of input ends a child that reads; SIGKILL also one that is busy or mute when this process is killed.
  const pid_t pid = forkBound(SIGKILL);
  if (pid < 0) return errno;
  if (pid == 0) ChildSide(request, SigchldBlocked::previous(), status.writeEnd.get()).run();
  status.writeEnd.reset();
  state.pid_ = pid;
  // An end without a byte: the exec worked, or the child was killed before it, which SIGCHLD will tell. A byte: it
  // failed.
  char failed = 0;
  executed = readRetrying(status.readEnd.get(), &failed, 1) == 0;
  state.active_ = executed ? 1 : 0;
  if (executed) return 0;
  ::kill(pid, SIGKILL);
  waitpid(pid, nullptr, 0);
  return 0;
}
