// The address-to-line session: a child `addr2line -e <executable>` and the exchanges with it. The main loop makes
// one A2LControl for the whole run, and asks it for one address at a time.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "replyDebt.h"
#include "sameProcessor.h"
#include "toolSession.h"

/// One received piece of text; a list of them belongs to the caller of the exchange that returned it.
struct reply {
  reply* next;  ///< null at the end of the list
  char* line;   ///< NUL-terminated, with its newline when one was received; null after an out-of-memory failure
};

/// Where a variable is defined. An empty file name: not known.
struct SourceLocation {
  std::string file;
  int line = 0;  ///< counted from 1; 0 when not known
};

/// What one line of addr2line's output is.
enum class ReplyKind {
  Location,  ///< "file:line", also with " (discriminator N)" behind it or '?' as its line
  Unknown,   ///< begins with "??", or has no file before its line number: the tool has no answer
  Noise,     ///< a diagnostic, or anything else that answers nothing
};

/// Classifies `line` (no newline) and, for a location, takes it apart into `location`. The two pieces around the
/// first ':' count; when what follows that is no line number, the ':' belongs to the path and the last one counts.
ReplyKind parseReply(std::string_view line, SourceLocation& location);

class A2LControl {
 public:
  /// Longest wait for one reply while the child lives.
  static constexpr std::chrono::seconds replyPatience{20};
  /// How often a child that lost replies is started anew.
  static constexpr int maxRestarts = 3;

  /// `exe`: path of the executable to analyse; `replyWait`: longest wait of awaitLocation. Starts nothing.
  explicit A2LControl(const char* exe, Clock::duration replyWait = replyPatience)
      : exename(exe), session(names, child), debt(replyWait, 1) {}
  ~A2LControl() { endA2L(); }
  A2LControl(const A2LControl&) = delete;
  A2LControl& operator=(const A2LControl&) = delete;

  /// Installs the SIGCHLD handler and starts the child. Returns 0, or -1 after a message on standard error when a
  /// pipe or the fork fails. When addr2line cannot be executed the result is 0, the session is not active, and the
  /// reason is the first text that an exchange returns.
  int startA2L();

  /// Kills the child if it is active, and waits a moment until it is collected. Further calls do nothing.
  void endA2L();

  /// Sends `str`. Returns the bytes taken; -1 when none was: the session is not active, or the child does not read.
  ssize_t sendA2L(const char* str);

  /// 1 when `fd` becomes readable within `tmout` seconds and 100 microseconds, else 0 (a signal ends the wait).
  int haveA2L(int fd, int tmout) { return session.have(fd, tmout); }

  /// Reads one piece of the child's text into `buf` of `len` bytes: a line with its newline, the text before a pause
  /// of 100 microseconds, or len - 1 characters. Returns the characters stored, else 0 or a read error's -1.
  int readA2L(char* buf, std::size_t len) { return session.readPiece(buf, len); }

  /// One exchange whose reply ends with silence: sends the formatted text (at most 4999 characters; none if empty),
  /// then collects pieces until `timeout` seconds and 100 microseconds pass without any. Returns the list, to be
  /// released with free_reply; null when nothing came. A reply that comes later is at the head of the next list.
  reply* convA2L(unsigned int timeout, const char* fmt, ...) __attribute__((format(printf, 3, 4)));

  /// Frees a list returned by convA2L; null is allowed.
  static void free_reply(reply* rp) { PieceList<reply>::release(rp); }

  /// 1 while a child is believed to run, else 0.
  int isActive() const { return child.active(); }

  /// The SIGCHLD handler: collects every child of the process that has ended.
  static void childhandler(int sig);

  /// First half of an exchange that is paired with its own reply: sends `address` (hexadecimal text) and a newline.
  /// Text that came since the last reply is dropped. A request is outstanding from here to the call of awaitLocation.
  void requestLocation(const char* address);

  /// Second half: waits until the reply to the outstanding request is complete and returns the location that it
  /// names. At most `replyWait` while the child lives; once that has been in vain, 100 microseconds a call until the
  /// child is heard again. Replies to requests given up before are recognised as such and dropped. A child that lost a
  /// reply cannot be followed any more: it is started anew, at most `maxRestarts` times.
  SourceLocation awaitLocation();

 private:
  bool takeReply(const std::string& line, SourceLocation& location);
  void startAnew();

  static const ToolNames names;
  static ChildState child;
  const std::string exename;
  ToolSession session;
  SameProcessor processor{child};
  ReplyDebt debt;
  unsigned expected = 0;  // replies that the outstanding request is still owed
  int restarts = 0;
};
