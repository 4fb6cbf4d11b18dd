// The owner of one file descriptor. A UniqueFd holds every descriptor of the program from the call that creates it, so
// that none leaks on an early return and none is closed twice.
#pragma once

#include <unistd.h>

#include <utility>

class UniqueFd {
 public:
  UniqueFd() = default;
  /// Takes ownership of `fd`; -1 means "none".
  explicit UniqueFd(int fd) : fd_(fd) {}
  UniqueFd(UniqueFd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  UniqueFd& operator=(UniqueFd&& other) noexcept {
    if (this != &other) reset(std::exchange(other.fd_, -1));
    return *this;
  }
  UniqueFd(const UniqueFd&) = delete;
  UniqueFd& operator=(const UniqueFd&) = delete;
  ~UniqueFd() { reset(); }

  /// The descriptor, or -1; ownership stays here.
  int get() const { return fd_; }
  explicit operator bool() const { return fd_ >= 0; }

  /// Closes the descriptor, if any. False when that fails, with errno set: data written to it may be lost.
  bool close() { return fd_ < 0 || ::close(std::exchange(fd_, -1)) == 0; }

  /// Closes the descriptor, if any, and takes ownership of `fd`. A failed close is not reported.
  void reset(int fd = -1) {
    if (fd_ >= 0) ::close(fd_);
    fd_ = fd;
  }

 private:
  int fd_ = -1;
};
