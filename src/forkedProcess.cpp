#include "forkedProcess.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>

#include "childProcess.h"

ForkedProcess& ForkedProcess::operator=(ForkedProcess&& other) noexcept {
  if (this != &other) {
    end();
    pid_ = std::exchange(other.pid_, 0);
  }
  return *this;
}

ForkedProcess ForkedProcess::start(const std::function<int()>& work) {
  const pid_t pid = forkWithDeathSignal(SIGKILL);
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
