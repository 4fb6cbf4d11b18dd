// A process that runs a function of this program; debuginfo/ and frontend/ read inputs in such processes.
#pragma once

#include <sys/types.h>

#include <functional>
#include <utility>

/// The owner of a process that runs a function of this program. The process is killed when the owner is destroyed, and
/// when this process ends, however it ends.
class ForkedProcess {
 public:
  ForkedProcess() = default;
  ForkedProcess(ForkedProcess&& other) noexcept : pid_(std::exchange(other.pid_, 0)) {}
  ForkedProcess& operator=(ForkedProcess&& other) noexcept;
  ForkedProcess(const ForkedProcess&) = delete;
  ForkedProcess& operator=(const ForkedProcess&) = delete;
  ~ForkedProcess() { end(); }

  /// Starts a process that calls `work` and exits with the status that it returns (255 when it throws), without
  /// flushing or destroying anything inherited. Returns an empty owner on failure, with errno set.
  static ForkedProcess start(const std::function<int()>& work);
  /// Whether it owns a process.
  explicit operator bool() const { return pid_ > 0; }

  /// Waits until the process has ended, and returns its status like waitpid(2). The owner is then empty.
  int await();

 private:
  void end();

  pid_t pid_ = 0;
};
