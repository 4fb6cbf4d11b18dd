// The mechanics of a line-oriented conversation with a child tool over two pipes, shared by the two session classes:
// start, timed sending, timed reading in pieces and in lines, and reply lists. Each session class adds its own
// texts, its own end rule and its own child.
#pragma once

#include <poll.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "childProcess.h"
#include "io.h"

/// The names of a tool as they stand in the messages of its session.
struct ToolNames {
  const char* upper;  ///< "A2L" or "GDB"
  const char* lower;  ///< "a2l" or "gdb"
};

/// The pause that ends a piece of text, and the shortest wait of an exchange.
inline constexpr std::chrono::microseconds pieceEndPause{100};

/// The wait of an exchange whose time-out is `seconds`, from now on.
inline Deadline exchangeDeadline(unsigned int seconds) {
  return Clock::now() + std::chrono::seconds(seconds) + pieceEndPause;
}

/// A singly linked list of received pieces under construction. `Node` has the fields `next` and `line`, and comes
/// from the C allocator, because callers own and free it as such.
template <typename Node>
class PieceList {
 public:
  /// Appends a copy of `text`. False when there is no memory; a node without a text may then be at the end.
  bool append(const char* text) {
    Node* node = static_cast<Node*>(std::malloc(sizeof(Node)));
    if (node == nullptr) return false;
    node->next = nullptr;
    (tail_ == nullptr ? head_ : tail_->next) = node;
    tail_ = node;
    node->line = strdup(text);
    return node->line != nullptr;
  }
  /// Hands the list over to the caller; null when empty.
  Node* take() {
    tail_ = nullptr;
    return std::exchange(head_, nullptr);
  }

  /// Frees every node and text of `list`, which may be null.
  static void release(Node* list) {
    while (list != nullptr) {
      Node* next = list->next;
      std::free(list->line);
      std::free(list);
      list = next;
    }
  }

 private:
  Node* head_ = nullptr;
  Node* tail_ = nullptr;
};

/// What ToolSession::nextText found.
enum class Heard {
  Line,     ///< a whole line
  Prompt,   ///< the tool's prompt
  Silence,  ///< nothing complete within the patience
  End       ///< the output has ended, nothing more can come
};

/// How long an exchange listens. When the time is over, what can be read at that moment still counts, once: so even a
/// tool that writes without end is listened to for a limited time.
class Patience {
 public:
  explicit Patience(Deadline until) : until_(until) {}

  /// Listens on until `until`.
  void extend(Deadline until) { until_ = until; }
  Deadline until() const { return until_; }
  /// Whether the child may be waited for or read from again; false once after the time is over.
  bool lasts() {
    if (Clock::now() < until_) return true;
    return !std::exchange(lastLook_, true);
  }

 private:
  Deadline until_;
  bool lastLook_ = false;
};

class ToolSession {
 public:
  /// Most characters sent by one formatted exchange, and most in one piece of it.
  static constexpr std::size_t textSize = 5000;

  /// Starts nothing. `names` and `child` must outlive the session.
  ToolSession(const ToolNames& names, ChildState& child) : names_(names), child_(child) {}

  /// Starts a child as `request` says, its pipe ends filled in here, after closing the descriptors of an earlier
  /// start. Returns 0, or -1 after a message on standard error when a pipe or the fork fails.
  int start(SpawnRequest request);

  /// Listens to `output`, which nobody needs to have written by a child: for trying the parsing alone.
  void listenTo(UniqueFd output);

  /// Whether the child that this object started is believed to run and can still be heard.
  bool isRunning() const { return child_.active() && child_.pid() == startedPid_ && fromTool_; }

  /// Sends `text`, waiting for room in the pipe until `deadline` at most. Returns the number of bytes taken, or -1
  /// when nothing was sent: the session is not running, or the child does not read. A rest that found no room is
  /// sent before the next text, so that the child never sees two texts run together.
  ssize_t send(std::string_view text, Deadline deadline);

  /// 1 when `fd` becomes readable, or unread text of this session is at hand, within `seconds` plus 100
  /// microseconds; else 0, also when a signal interrupts the wait.
  int have(int fd, int seconds) const;

  /// Reads one piece into `buffer` of `size` bytes, NUL-terminated: a line with its newline, or the text before a
  /// pause of 100 microseconds, or size - 1 characters. Returns the characters stored; when there are none, 0 for
  /// a pause or an end of file, or a negative number for a read error.
  int readPiece(char* buffer, std::size_t size);

  /// One exchange: sends the text formatted from `fmt` and `arguments` (at most textSize - 1 characters) unless it is
  /// empty and collects pieces until `timeout` seconds plus 100
  /// microseconds of silence, the end of the child's output, or a piece for which `isEnd(piece)` holds, which is
  /// dropped. Returns a list of `Node`, null when nothing arrived.
  template <typename Node, typename EndTest>
  Node* converse(unsigned int timeout, const char* fmt, va_list arguments, EndTest isEnd)
      __attribute__((format(printf, 3, 0)));

  /// Delivers the next line in `line`, without its newline and joined over pauses, or reports a `prompt` (empty: the
  /// tool has none), or why there is neither. A prompt stands at the start of a line and is consumed alone, or further
  /// on in a line without an end, which is dropped with it; in a line with an end it is text like any other.
  Heard nextText(std::string& line, Patience& patience, std::string_view prompt = {});

  /// Drops what the child has written so far. If that stops amid a line, other than behind a `prompt`, the rest of the
  /// line will be dropped too.
  void dropTextAtHand(std::string_view prompt = "\n");

  /// Reads and drops the child's output until the child is gone, at most until `deadline`.
  void awaitEnd(Deadline deadline);

  /// To be called when the output has ended: lets the child's own end, which follows within moments, become known (a
  /// child that lives on mute is killed), and says once on standard error that the output of a child that had been
  /// started well has ended, unless the child was told to end.
  void noteEnd();

 private:
  WaitResult waitFor(int fd, short events, Deadline deadline) const;
  ssize_t refill();
  std::string_view unread() const { return std::string_view(buffer_).substr(begin_); }
  std::optional<Heard> takeText(std::string& line, std::string_view prompt);
  void awaitCollection(Deadline deadline);

  const ToolNames& names_;
  ChildState& child_;
  pid_t startedPid_ = -1;
  UniqueFd toTool_;
  UniqueFd fromTool_;
  // Held open here too, so that writing to a child that has gone is no error and raises no SIGPIPE.
  UniqueFd toolInput_;
  std::string unsent_;
  std::string buffer_;
  std::size_t begin_ = 0;
  bool midLine_ = false;
  bool endIsNews_ = false;
};

template <typename Node, typename EndTest>
Node* ToolSession::converse(unsigned int timeout, const char* fmt, va_list arguments, EndTest isEnd) {
  char piece[textSize];
  std::vsnprintf(piece, sizeof piece, fmt, arguments);
  if (*piece != '\0') send(piece, exchangeDeadline(timeout));
  PieceList<Node> pieces;
  while (!unread().empty() || waitFor(fromTool_.get(), POLLIN, exchangeDeadline(timeout)) == WaitResult::Ready) {
    const int count = readPiece(piece, sizeof piece);
    if (count < 0) std::fprintf(stderr, "Error communicating with %s!\n", names_.upper);
    if (count == 0) noteEnd();
    if (count <= 0 || isEnd(piece)) break;
    if (!pieces.append(piece)) {
      std::fprintf(stderr, "Out of memory storing %s responses\n", names_.lower);
      break;
    }
  }
  return pieces.take();
}
