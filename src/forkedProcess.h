// A process that runs a part of this program.
#pragma once

#include <sys/types.h>

#include <functional>
#include <utility>

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
