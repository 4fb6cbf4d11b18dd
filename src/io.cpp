#include "io.h"

#include <fcntl.h>

#include <cerrno>

namespace {

template <typename Call>
auto retrying(Call call) {
  auto result = call();
  while (result < 0 && errno == EINTR) result = call();
  return result;
}

// Moves a descriptor out of the range of the standard streams. False with errno set when none is free.
bool moveAboveStandard(UniqueFd& fd) {
  if (fd.get() > STDERR_FILENO) return true;
  UniqueFd moved(fcntl(fd.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
  if (!moved) return false;
  fd = std::move(moved);
  return true;
}

}  // namespace

UniqueFd openFile(const char* path, int flags, mode_t mode) {
  return UniqueFd(retrying([&] { return open(path, flags | O_CLOEXEC, mode); }));
}

ssize_t readRetrying(int fd, void* buffer, std::size_t size) {
  return retrying([&] { return read(fd, buffer, size); });
}

ssize_t writeRetrying(int fd, const void* data, std::size_t size) {
  return retrying([&] { return write(fd, data, size); });
}

bool readAt(int fd, void* buffer, std::size_t size, off_t offset) {
  char* at = static_cast<char*>(buffer);
  while (size > 0) {
    const ssize_t count = retrying([&] { return pread(fd, at, size, offset); });
    if (count == 0) errno = 0;
    if (count <= 0) return false;
    at += count;
    offset += count;
    size -= static_cast<std::size_t>(count);
  }
  return true;
}

bool writeAt(int fd, const void* data, std::size_t size, off_t offset) {
  const char* at = static_cast<const char*>(data);
  while (size > 0) {
    const ssize_t count = retrying([&] { return pwrite(fd, at, size, offset); });
    if (count < 0) return false;
    at += count;
    offset += count;
    size -= static_cast<std::size_t>(count);
  }
  return true;
}

bool makePipe(Pipe& pipe) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return false;
  pipe.readEnd.reset(ends[0]);
  pipe.writeEnd.reset(ends[1]);
  return moveAboveStandard(pipe.readEnd) && moveAboveStandard(pipe.writeEnd);
}

void setNonBlocking(int fd) {
  const int flags = fcntl(fd, F_GETFL);
  if (flags >= 0) fcntl(fd, F_SETFL, flags | O_NONBLOCK);
}

void occupyStandardDescriptors() {
  for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
    // The lowest free number is `fd` itself, as those below it are taken. It is meant to stay open for good.
    if (fcntl(fd, F_GETFD) < 0 && errno == EBADF && open("/dev/null", O_RDWR) < 0) return;
  }
}

LineReader::LineReader(const char* path) : fd_(openFile(path, O_RDONLY)) {}

bool LineReader::next(std::string_view& line) {
  std::size_t searched = begin_;
  for (;;) {
    const std::size_t newline = buffer_.find('\n', searched);
    const std::size_t end = newline == std::string::npos ? buffer_.size() : newline;
    if (end - begin_ > maxLength) {
      atEnd_ = true;
      begin_ = buffer_.size();
      return false;
    }
    if (newline != std::string::npos || (atEnd_ && end > begin_)) {
      line = std::string_view(buffer_).substr(begin_, end - begin_);
      begin_ = newline == std::string::npos ? end : end + 1;
      return true;
    }
    if (atEnd_) return false;
    searched = end - begin_;
    refill();
  }
}

// Moves the unread rest to the front and reads one more block behind it.
void LineReader::refill() {
  constexpr std::size_t blockSize = std::size_t{64} * 1024;
  buffer_.erase(0, begin_);
  begin_ = 0;
  const std::size_t kept = buffer_.size();
  buffer_.resize(kept + blockSize);
  const ssize_t count = readRetrying(fd_.get(), buffer_.data() + kept, blockSize);
  buffer_.resize(kept + static_cast<std::size_t>(count > 0 ? count : 0));
  atEnd_ = count <= 0;
  failed_ = count < 0;
}
