// The address-to-line session: a child `addr2line -e <executable>` and the exchanges with it. The main loop creates one
// A2LControl per run, and asks it for one address at a time.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>

#include "toolSession.h"

/// Where a variable is defined. The file name is empty when unknown.
struct SourceLocation {
  std::string file;
  int line = 0;  ///< counted from 1; 0 when unknown
};

/// Classifies `line` of addr2line's output (no newline).
LineKind classifyReply(std::string_view line);

/// Parses `line`, a reply: its first two fields between ':', the second read like atoi (blanks and a sign before the
/// digits, anything after them; 0 without digits). The location is empty when `line` begins with "??" or has fewer than
/// two fields.
SourceLocation parseLocation(std::string_view line);

/// A session with addr2line, which is killed when this object is destroyed.
class A2LControl {
 public:
  /// Timeout for one reply while the child lives; all waits that time out take at most `maxTimeouts` times as long.
  static constexpr std::chrono::seconds defaultReplyTimeout{20};
  static constexpr int maxTimeouts = 3;
  /// Number of times that `locate` starts a new child, because the earlier one was out of step with the requests.
  static constexpr int maxRestarts = 10;

  /// `exe`: path of the executable to analyze; `replyTimeout`: for each reply to `locate`. Starts nothing.
  explicit A2LControl(const char* exe, Clock::duration replyTimeout = defaultReplyTimeout);
  ~A2LControl() { endA2L(); }
  A2LControl(const A2LControl&) = delete;
  A2LControl& operator=(const A2LControl&) = delete;

  /// Installs the SIGCHLD handler and starts the child. Returns 0, or -1 after a message on standard error when a pipe
  /// or the fork fails. When addr2line cannot be executed, returns 0, but the session is not active, and the reason is
  /// the first text that an exchange returns.
  int startA2L();

  /// Kills the child if it is active, and waits briefly until it is reaped. One that has not written anything yet first
  /// has 0.2 seconds to exit at the end of its input. Further calls do nothing.
  void endA2L();

  /// ToolSession's `send` (with the timeout for a reply), `have` and `readPiece`.
  ssize_t sendA2L(const char* str);
  int haveA2L(int fd, int tmout) { return session_.have(fd, tmout); }
  int readA2L(char* buf, std::size_t len) { return session_.readPiece(buf, len); }

  /// Sends the formatted text (at most 4999 characters; nothing if empty), then collects pieces until `timeout` seconds
  /// and 100 microseconds pass without any. Returns the list, to be released with free_reply; null when nothing came. A
  /// later reply is at the head of the next list.
  reply* convA2L(unsigned int timeout, const char* fmt, ...) __attribute__((format(printf, 3, 4)));

  /// Frees a list returned by convA2L; null is allowed.
  static void free_reply(reply* rp) { freeReplies(rp); }

  /// 1 while a child is believed to run, else 0.
  int isActive() const { return child_.active(); }

  /// The SIGCHLD handler: reaps every child of the process that has exited.
  static void childhandler(int sig);

  /// Sends `address` (hexadecimal text) and a newline, and returns the location in the reply to this request. Waits at
  /// most `replyTimeout` while the child lives; after a timeout, only 100 microseconds per call until a reply comes
  /// again. All waits that time out take at most `maxTimeouts` times `replyTimeout`. Late replies to earlier requests
  /// are recognized and discarded; a child that is out of step for good is replaced.
  SourceLocation locate(const char* address);

 private:
  static ChildState child_;
  const std::string exename_;
  ToolSession session_;
  int restarts_ = 0;
};
