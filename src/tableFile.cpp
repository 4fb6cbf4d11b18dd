#include "tableFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <thread>

#include "deadline.h"
#include "diagnostics.h"
#include "io.h"

namespace {

// Waits for an exclusive lock on `fd`, if the file system has locks. False on timeout.
bool lockExclusively(int fd) {
  constexpr std::chrono::seconds lockTimeout{120};
  constexpr std::chrono::milliseconds interval{10};
  const Deadline end = Clock::now() + lockTimeout;
  while (flock(fd, LOCK_EX | LOCK_NB) != 0) {
    if (errno != EWOULDBLOCK && errno != EINTR) return true;
    if (Clock::now() >= end) return false;
    std::this_thread::sleep_for(interval);
  }
  return true;
}

// Prepares a file for mode 'w'. One that is not a regular file is left as it is.
bool lockAndTruncate(int fd) {
  struct stat status {};
  if (fstat(fd, &status) != 0) return false;
  return !S_ISREG(status.st_mode) || (lockExclusively(fd) && ftruncate(fd, 0) == 0);
}

}  // namespace

TableFile::TableFile(char mode, const char* fileName, std::size_t recordSize)
    : name_(fileName), recordSize_(recordSize) {
  if (mode != 'r' && mode != 'w') Error("Incorrect mode given to BTTableClass constructor");
  fd_ = openFile(fileName, mode == 'r' ? O_RDONLY : O_RDWR | O_CREAT);
  if (!fd_ || (mode == 'w' && !lockAndTruncate(fd_.get()))) Error("File cannot be opened");
}

TableFile::Problem TableFile::read(std::int32_t number, void* record) const {
  if (readAt(fd_.get(), record, recordSize_, offset(number))) return {};
  return {number, errno != 0 ? "cannot be read" : "unexpected end of file", errno};
}

TableFile::Problem TableFile::write(std::int32_t number, const void* record) {
  if (writeAt(fd_.get(), record, recordSize_, offset(number))) return {};
  return {number, "cannot be written", errno};
}

std::int64_t TableFile::size() const {
  struct stat status {};
  return fstat(fd_.get(), &status) == 0 ? status.st_size : -1;
}

void TableFile::exitOnProblem(const Problem& problem) {
  if (!problem) return;
  failed_ = true;
  Error(message(problem).c_str());
}

bool TableFile::report(const Problem& problem) const {
  std::fprintf(stderr, "%s\n", message(problem).c_str());
  return false;
}

std::string TableFile::message(const Problem& problem) const {
  std::string text = name_ + ": node " + std::to_string(problem.number) + ": " + problem.text;
  if (problem.errorNumber != 0) text += std::string(": ") + std::strerror(problem.errorNumber);
  return text;
}
