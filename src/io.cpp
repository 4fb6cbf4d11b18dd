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

// Repeats pread or pwrite until all bytes are transferred. False at the end of the file (errno is then 0) or on an
// error.
template <typename Byte, typename Call>
bool transferFully(Byte* at, std::size_t size, off_t offset, Call call) {
  while (size > 0) {
    const ssize_t count = retrying([&] { return call(at, size, offset); });
    if (count == 0) errno = 0;
    if (count <= 0) return false;
    at += count;
    offset += count;
    size -= static_cast<std::size_t>(count);
  }
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

bool writeAll(int fd, std::string_view data) {
  while (!data.empty()) {
    const ssize_t count = writeRetrying(fd, data.data(), data.size());
    if (count < 0) return false;
    data.remove_prefix(static_cast<std::size_t>(count));
  }
  return true;
}

bool readAll(int fd, std::string& content) {
  constexpr std::size_t blockSize = std::size_t{256} * 1024;
  for (ssize_t count = 1; count > 0;) {
    const std::size_t size = content.size();
    content.resize(size + blockSize);
    count = readRetrying(fd, content.data() + size, blockSize);
    content.resize(size + static_cast<std::size_t>(count > 0 ? count : 0));
    if (count < 0) return false;
  }
  return true;
}

bool readAt(int fd, void* buffer, std::size_t size, off_t offset) {
  return transferFully(static_cast<char*>(buffer), size, offset, [fd](auto... part) { return pread(fd, part...); });
}

bool writeAt(int fd, const void* data, std::size_t size, off_t offset) {
  return transferFully(static_cast<const char*>(data), size, offset,
                       [fd](auto... part) { return pwrite(fd, part...); });
}

bool makePipe(Pipe& pipe) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return false;
  pipe.readEnd.reset(ends[0]);
  pipe.writeEnd.reset(ends[1]);
  return true;
}

void setNonBlocking(int fd) {
  const int flags = fcntl(fd, F_GETFL);
  if (flags >= 0) fcntl(fd, F_SETFL, flags | O_NONBLOCK);
}

void ensureStandardDescriptorsOpen() {
  for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
    // The lowest free number is `fd`, as those below it are in use. It stays open until the program ends.
    if (fcntl(fd, F_GETFD) < 0 && errno == EBADF && open("/dev/null", O_RDWR) < 0) return;
  }
}

LineReader::LineReader(const char* path) : fd_(openFile(path, O_RDONLY)) {}

bool LineReader::next(std::string_view& line) {
  char block[64 * 1024];
  while (!atEnd_) {
    if (const auto found = text_.next()) {
      line = *found;
      if (line.size() <= maxLength) return true;
      overlong_ = true;
      text_.drop(text_.text().size());
      break;
    }
    const ssize_t count = readRetrying(fd_.get(), block, sizeof block);
    atEnd_ = count <= 0;
    failed_ = count < 0;
    if (count > 0) text_.append({block, static_cast<std::size_t>(count)});
  }
  // A last line without a newline.
  atEnd_ = true;
  line = text_.text();
  text_.drop(line.size());
  overlong_ = overlong_ || line.size() > maxLength;
  return !line.empty() && !overlong_;
}
