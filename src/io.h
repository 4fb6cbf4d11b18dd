// Input and output on descriptors: the one place where system calls are retried, completed and made close-on-exec.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string>
#include <string_view>

#include "lineBuffer.h"
#include "uniqueFd.h"

/// Opens `path` as open(2) does, close-on-exec added, repeated while a signal interrupts it.
/// Returns an empty owner on failure; errno tells why.
UniqueFd openFile(const char* path, int flags, mode_t mode = 0666);

/// read(2) and write(2), repeated while a signal interrupts them. Results and errno are those of the calls.
ssize_t readRetrying(int fd, void* buffer, std::size_t size);
ssize_t writeRetrying(int fd, const void* data, std::size_t size);

/// Writes all of `data`. False on an error; errno tells which.
bool writeAll(int fd, std::string_view data);

/// Adds to `content` what can be read until the end. False on an error; errno tells which.
bool readAll(int fd, std::string& content);

/// Reads exactly `size` bytes at byte `offset`. False when the file ends before (errno is then 0) or on an error.
bool readAt(int fd, void* buffer, std::size_t size, off_t offset);

/// Writes exactly `size` bytes at byte `offset`. False on an error, a full disk included; errno tells which.
bool writeAt(int fd, const void* data, std::size_t size, off_t offset);

/// The two ends of a pipe.
struct Pipe {
  UniqueFd readEnd;
  UniqueFd writeEnd;
};

/// Makes a pipe whose ends are close-on-exec. False on failure, with errno set.
bool makePipe(Pipe& pipe);

/// Adds O_NONBLOCK to the status flags of `fd`; failures are ignored, as on the ends of a fresh pipe there are none.
void setNonBlocking(int fd);

/// Opens "/dev/null" on each of the descriptors 0 to 2 that is closed, so that no file opened later takes the
/// place of a standard stream and receives its messages.
void occupyStandardDescriptors();

/// Reads a text file line by line with a fixed amount of memory.
class LineReader {
 public:
  /// A line of more than `maxLength` characters, its newline not counted, ends the reading.
  static constexpr std::size_t maxLength = 4999;

  /// Opens `path` for reading; `isOpen` tells whether that worked.
  explicit LineReader(const char* path);
  bool isOpen() const { return static_cast<bool>(fd_); }
  /// Whether reading ended with an error rather than at the end of the file.
  bool failed() const { return failed_; }
  /// Whether it ended with an overlong line.
  bool metOverlong() const { return overlong_; }

  /// Delivers the next line without its newline; the text stays valid until the next call. A last line without a
  /// newline counts. False at the end of the file, at a read error, and at an overlong line.
  bool next(std::string_view& line);

 private:
  UniqueFd fd_;
  LineBuffer text_{maxLength + 1};
  bool atEnd_ = false;
  bool failed_ = false;
  bool overlong_ = false;
};
