// A line-oriented session with a child tool over two pipes: start, sending and reading with timeouts, reply lists.
// Shared by the two session classes, which add their own texts, rules and child.
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

/// One received piece of text. The caller of the exchange that returned a list owns it; nodes and texts come from the C
/// allocator.
struct reply {
  reply* next;  ///< null at the end of the list
  char* line;   ///< NUL-terminated, with its newline when one was received; null after an out-of-memory failure
};
/// The same for gdb.
using response = reply;

/// Frees all nodes and texts of `list`, which may be null.
void freeReplies(reply* list);

/// The deadline of an exchange that starts now with a timeout of `seconds`.
inline Deadline exchangeDeadline(unsigned int seconds) {
  return Clock::now() + std::chrono::seconds(seconds) + pieceTimeout;
}

/// A session with one child tool at a time.
class ToolSession {
 public:
  /// Size of the buffers for a formatted request and for a piece of its reply, including the terminating NUL.
  static constexpr std::size_t textSize = 5000;

  /// Starts nothing. `names` and `child` must outlive the session.
  ToolSession(const ToolNames& names, ChildState& child, const ConversationRules& rules)
      : names_(names), child_(child), conversation_(rules) {}

  /// Closes the descriptors of an earlier start, and starts a child as ChildState::spawn does. Returns 0, or -1 after a
  /// message on standard error when a pipe or the fork fails.
  int start(const std::vector<std::string>& argv, std::string_view firstOutput);

  /// Whether the child that this object started is believed to run, with its output still open.
  bool isRunning() const { return child_.active() && child_.pid() == tool_.pid && outputOpen(); }

  /// The state of the conversation.
  const Conversation& conversation() const { return conversation_; }

  /// Sends `text`, waiting for room in the pipe until `deadline` at most. Returns the number of bytes sent, or -1 if
  /// none: the session is not running, or the child does not read. Unsent bytes go before the next text, so that the
  /// child never sees a text cut off and another appended to it.
  ssize_t send(std::string_view text, Deadline deadline);

  /// 1 when `fd` becomes readable within `seconds` plus 100 microseconds (a signal ends the wait), or when it is this
  /// session's and text is buffered; else 0.
  int have(int fd, int seconds) const;

  /// Reads one piece into `buffer` of `size` bytes, NUL-terminated: a line with its newline, the text before a pause of
  /// 100 microseconds, or size - 1 characters. Returns the number of characters stored, 0 if none, -1 on a read error.
  int readPiece(char* buffer, std::size_t size);

  /// Sends the text formatted from `fmt` and `arguments` unless it is empty, and collects pieces until `timeout`
  /// seconds plus 100 microseconds of silence, the end of the output, or a piece with the `prompt` (if not empty),
  /// which is discarded. Returns the list, null if empty. An end of the output is reported on standard error.
  reply* converse(unsigned int timeout, std::string_view prompt, const char* fmt, va_list arguments)
      __attribute__((format(printf, 4, 0)));

  /// Discards what the child has written so far, sends `text`, and passes the reply to `request`, and no other, to
  /// `sink`. Returns whether the reply was complete; false also when the session is not running.
  bool exchange(std::string_view text, const Conversation::Request& request, const Conversation::Sink& sink);

  /// Passes what the child writes up to its first prompt to `sink`; gives up after `timeout` of silence. Returns
  /// whether the prompt came.
  bool awaitPrompt(Clock::duration timeout, const Conversation::Sink& sink);

  /// Closes the child's input, and discards its output until it has exited, at most until `deadline`.
  void closeInputAndAwaitExit(Deadline deadline);

 private:
  // Why reading has ended, if it has.
  enum class Ending { None, EndOfOutput, Error };

  bool outputOpen() const { return static_cast<bool>(tool_.output.readEnd); }
  bool sendUnsent(Deadline deadline);
  std::string nextPiece(std::size_t maxSize, Clock::duration timeout, Ending& ending);
  Ending readUntilDone();
  Ending readOnceBefore(Deadline deadline);
  void discardPendingOutput();
  ssize_t readBlock();
  void reapChild();
  void reportEnding(Ending ending, bool verbose) const;

  const ToolNames& names_;
  ChildState& child_;
  Conversation conversation_;
  SpawnedChild tool_;           // the child of the latest start
  bool busyStateKnown_ = true;  // whether ChildState::isBusy is meaningful for it
  std::string unsent_;
  std::vector<char> block_ = std::vector<char>(std::size_t{64} * 1024);
  std::string_view received_;  // the latest read, within the block
};
