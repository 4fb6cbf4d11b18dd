// A line-oriented conversation with a child tool over two pipes: start, timed sending, timed reading, reply lists.
// Shared by the two session classes, each of which adds its own texts, its own rules and its own child.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdarg>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "childProcess.h"
#include "conversation.h"

/// One received piece of text. A list of them belongs to the caller of the exchange that returned it; nodes and texts
/// come from the C allocator.
struct reply {
  reply* next;  ///< null at the end of the list
  char* line;   ///< NUL-terminated, with its newline when one was received; null after an out-of-memory failure
};
/// The same for gdb.
using response = reply;

/// Frees every node and text of `list`, which may be null.
void releasePieces(reply* list);

/// The wait of an exchange whose time-out is `seconds`, from now on.
inline Deadline exchangeDeadline(unsigned int seconds) {
  return Clock::now() + std::chrono::seconds(seconds) + pieceEndPause;
}

class ToolSession {
 public:
  /// Most characters sent by one formatted exchange, and most in one piece of its reply, the terminating NUL included.
  static constexpr std::size_t textSize = 5000;

  /// Starts nothing. `names` and `child` must outlive the session.
  ToolSession(const ToolNames& names, ChildState& child, const ConversationRules& rules)
      : names_(names), child_(child), conversation_(rules) {}

  /// Starts a child as ChildState::spawn does, after closing the descriptors of an earlier start. Returns 0, or -1
  /// after a message on standard error when a pipe or the fork fails.
  int start(const std::vector<std::string>& argv, std::string_view firstOutput);

  /// Whether the child that this object started is believed to run and can still be heard.
  bool isRunning() const { return child_.active() && child_.pid() == tool_.pid && canBeHeard(); }

  /// How the conversation stands.
  const Conversation& conversation() const { return conversation_; }

  /// Sends `text`, waiting for room in the pipe until `deadline` at most. Returns the number of bytes taken, or -1
  /// when none was: the session is not running, or the child does not read. A rest that found no room is sent before
  /// the next text, so that the child never sees two texts run together.
  ssize_t send(std::string_view text, Deadline deadline);

  /// 1 when `fd` becomes readable within `seconds` plus 100 microseconds (a signal ends the wait), or when unread text
  /// of this session is at hand; else 0.
  int have(int fd, int seconds) const;

  /// Reads one piece into `buffer` of `size` bytes, NUL-terminated: a line with its newline, or the text before a
  /// pause of 100 microseconds, or size - 1 characters. Returns the characters stored, else 0, or -1 for a read error.
  int readPiece(char* buffer, std::size_t size);

  /// One exchange: sends the text formatted from `fmt` and `arguments` unless it is empty, and collects pieces until
  /// `timeout` seconds plus 100 microseconds of silence, the end of the output, or a piece with the `prompt` (unless
  /// that is empty), which is dropped. Returns the list, null when nothing arrived; messages say why it ended early.
  reply* converse(unsigned int timeout, std::string_view prompt, const char* fmt, va_list arguments)
      __attribute__((format(printf, 4, 0)));

  /// One exchange that is paired with its own reply: drops what the child has written so far, sends `text`, and hands
  /// the reply to `request` to `sink`. Returns whether the reply was complete; false also when the session is not
  /// running.
  bool exchange(std::string_view text, const Conversation::Request& request, const Conversation::Sink& sink);

  /// Hands what the child says of its own accord, up to its first prompt, to `sink`; gives up after `patience` of
  /// silence. Returns whether the prompt came.
  bool hear(Clock::duration patience, const Conversation::Sink& sink);

  /// Lets the child see the end of its input, and reads and drops its output until it is gone, at most until
  /// `deadline`.
  void awaitEnd(Deadline deadline);

 private:
  // Why the output of the child has ended, if it has.
  enum class Ending { None, Output, Error };

  bool canBeHeard() const { return static_cast<bool>(tool_.output.readEnd); }
  bool sendUnsent(Deadline deadline);
  std::string nextPiece(std::size_t longest, Clock::duration patience, Ending& ending);
  Ending listen();
  Ending readBefore(Deadline deadline);
  void dropTextAtHand();
  ssize_t readBlock();
  void noteEnd();
  void report(Ending ending, bool verbose) const;

  const ToolNames& names_;
  ChildState& child_;
  Conversation conversation_;
  Spawned tool_;            // the child of the latest start
  bool stateTells_ = true;  // whether it can be seen that the child is busy
  std::string unsent_;
  std::vector<char> block_ = std::vector<char>(std::size_t{64} * 1024);
  std::string_view arrived_;  // what was read last, within the block
};
