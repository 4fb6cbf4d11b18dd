// Input and output on descriptors. All system calls that must be retried after a signal or completed after a partial
// transfer, and all that create descriptors (close-on-exec), are here.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string>
#include <string_view>

#include "lineBuffer.h"
#include "uniqueFd.h"

/// Opens `path` like open(2), close-on-exec, retrying after signals. Returns an empty owner on failure, with errno set.
UniqueFd openFile(const char* path, int flags, mode_t mode = 0666);

/// Like read(2) and write(2), retrying after signals. Results and errno are those of the calls.
ssize_t readRetrying(int fd, void* buffer, std::size_t size);
ssize_t writeRetrying(int fd, const void* data, std::size_t size);

/// Writes all of `data`. False on an error, with errno set.
bool writeAll(int fd, std::string_view data);

/// Appends everything up to the end of the file to `content`. False on an error, with errno set.
bool readAll(int fd, std::string& content);

/// Reads exactly `size` bytes at byte `offset`. False if the file ends before (errno is then 0) or on an error.
bool readAt(int fd, void* buffer, std::size_t size, off_t offset);

/// Writes exactly `size` bytes at byte `offset`. False on an error, including a full disk, with errno set.
bool writeAt(int fd, const void* data, std::size_t size, off_t offset);

/// The two ends of a pipe.
struct Pipe {
  UniqueFd readEnd;
  UniqueFd writeEnd;
};

/// Creates a pipe whose ends are close-on-exec. False on failure, with errno set.
bool makePipe(Pipe& pipe);

/// Makes `fd` non-blocking. Ignores failures, which cannot occur on a pipe.
void setNonBlocking(int fd);

/// Opens "/dev/null" as each of the descriptors 0 to 2 that is closed, so that no file opened later gets the number of
/// a standard stream and receives its messages.
void ensureStandardDescriptorsOpen();

/// Reads a text file line by line with a fixed amount of memory.
class LineReader {
 public:
  /// Reading ends at a line of more than `maxLength` characters, excluding its newline.
  static constexpr std::size_t maxLength = 4999;

  /// Opens `path` for reading; `isOpen` says whether that succeeded.
  explicit LineReader(const char* path);
  bool isOpen() const { return static_cast<bool>(fd_); }
  /// Whether reading ended with an error rather than at the end of the file.
  bool failed() const { return failed_; }
  /// Whether reading ended at an overlong line.
  bool foundOverlongLine() const { return overlong_; }

  /// Sets `line` to the next line without its newline, valid until the next call. The last line may lack its newline.
  /// False at the end of the file, on a read error, and at an overlong line.
  bool next(std::string_view& line);

 private:
  UniqueFd fd_;
  LineBuffer text_{maxLength + 1};
  bool atEnd_ = false;
  bool failed_ = false;
  bool overlong_ = false;
};
