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

// Waits until nobody else has `fd` locked, and locks it, where the file system knows locks. False when that takes too
// long.
bool lockAlone(int fd) {
  constexpr std::chrono::seconds lockPatience{120};
  constexpr std::chrono::milliseconds interval{10};
  const Deadline end = Clock::now() + lockPatience;
  while (flock(fd, LOCK_EX | LOCK_NB) != 0) {
    if (errno != EWOULDBLOCK && errno != EINTR) return true;
    if (Clock::now() >= end) return false;
    std::this_thread::sleep_for(interval);
  }
  return true;
}

// Whoever fills a file in mode 'w' has it to itself, and finds it empty. What is no regular file is left as it is.
bool takeOver(int fd) {
  struct stat status {};
  if (fstat(fd, &status) != 0) return false;
  return !S_ISREG(status.st_mode) || (lockAlone(fd) && ftruncate(fd, 0) == 0);
}

}  // namespace

TableFile::TableFile(char mode, const char* fileName, std::size_t recordSize)
    : name_(fileName), recordSize_(recordSize) {
  if (mode != 'r' && mode != 'w') Error("Incorrect mode given to BTTableClass constructor");
  fd_ = openFile(fileName, mode == 'r' ? O_RDONLY : O_RDWR | O_CREAT);
  if (!fd_ || (mode == 'w' && !takeOver(fd_.get()))) Error("File cannot be opened");
}

bool TableFile::tryRead(std::int32_t number, void* record) const {
  return readAt(fd_.get(), record, recordSize_, offset(number));
}

bool TableFile::tryWrite(std::int32_t number, const void* record) {
  return writeAt(fd_.get(), record, recordSize_, offset(number));
}

std::int64_t TableFile::size() const {
  struct stat status {};
  return fstat(fd_.get(), &status) == 0 ? status.st_size : -1;
}

void TableFile::fail(std::int32_t number, const Problem& problem) {
  failed_ = true;
  Error(message(number, problem).c_str());
}

void TableFile::report(std::int32_t number, const Problem& problem) const {
  std::fprintf(stderr, "%s\n", message(number, problem).c_str());
}

std::string TableFile::message(std::int32_t number, const Problem& problem) const {
  std::string text = name_ + ": node " + std::to_string(number) + ": " + problem.text;
  if (problem.errorNumber != 0) text += std::string(": ") + std::strerror(problem.errorNumber);
  return text;
}
