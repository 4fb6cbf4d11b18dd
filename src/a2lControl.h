// The address-to-line session: a child `addr2line -e <executable>` and the exchanges with it. The main loop makes
// one A2LControl for the whole run, and asks it for one address at a time.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>

#include "toolSession.h"

/// Where a variable is defined. An empty file name: not known.
struct SourceLocation {
  std::string file;
  int line = 0;  ///< counted from 1; 0 when not known
};

/// What `line` of addr2line's output (no newline) is.
LineKind kindOfReply(std::string_view line);

/// The place that `line`, a reply, names: the first two pieces around ':', the second read as atoi does (blanks and a
/// sign before the digits, anything after them; 0 without digits). Empty when it begins with "??" or has fewer than
/// two pieces.
SourceLocation locationIn(std::string_view line);

class A2LControl {
 public:
  /// Longest wait for one reply while the child lives, and longest time of all waits in vain together.
  static constexpr std::chrono::seconds replyPatience{20};
  static constexpr int maxTimeouts = 3;

  /// `exe`: path of the executable to analyse; `replyWait`: longest wait of `locate` for a reply. Starts nothing.
  explicit A2LControl(const char* exe, Clock::duration replyWait = replyPatience);
  ~A2LControl() { endA2L(); }
  A2LControl(const A2LControl&) = delete;
  A2LControl& operator=(const A2LControl&) = delete;

  /// Installs the SIGCHLD handler and starts the child. Returns 0, or -1 after a message on standard error when a
  /// pipe or the fork fails. When addr2line cannot be executed the result is 0, the session is not active, and the
  /// reason is the first text that an exchange returns.
  int startA2L();

  /// Kills the child if it is active, and waits a moment until it is collected. One that was never heard has 0.2
  /// seconds to see the end of its input first. Further calls do nothing.
  void endA2L();

  /// ToolSession's `send` (with the longest wait for a reply), `have` and `readPiece`.
  ssize_t sendA2L(const char* str);
  int haveA2L(int fd, int tmout) { return session_.have(fd, tmout); }
  int readA2L(char* buf, std::size_t len) { return session_.readPiece(buf, len); }

  /// One exchange whose reply ends with silence: sends the formatted text (at most 4999 characters; none if empty),
  /// then collects pieces until `timeout` seconds and 100 microseconds pass without any. Returns the list, to be
  /// released with free_reply; null when nothing came. A reply that comes later is at the head of the next list.
  reply* convA2L(unsigned int timeout, const char* fmt, ...) __attribute__((format(printf, 3, 4)));

  /// Frees a list returned by convA2L; null is allowed.
  static void free_reply(reply* rp) { releasePieces(rp); }

  /// 1 while a child is believed to run, else 0.
  int isActive() const { return child_.active(); }

  /// The SIGCHLD handler: collects every child of the process that has ended.
  static void childhandler(int sig);

  /// One exchange that is paired with its own reply: sends `address` (hexadecimal text) and a newline, and returns the
  /// location that the reply names. Waits at most `replyWait` for it while the child lives; once that has been in
  /// vain, 100 microseconds a call until a reply comes again; all waits in vain together, `maxTimeouts` times
  /// `replyWait`. Replies to requests given up before are recognised as such and dropped.
  SourceLocation locate(const char* address);

 private:
  static ChildState child_;
  const std::string exename_;
  ToolSession session_;
};
