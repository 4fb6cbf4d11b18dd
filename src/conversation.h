// Decides which part of a child tool's output is the reply to which request. A Conversation is given the bytes that
// arrive and the time; it says what the reply is, whether to go on waiting, and until when. It makes no system call:
// ToolSession writes, waits and reads for it.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "deadline.h"
#include "lineBuffer.h"

/// The silence that ends a piece of text, and the shortest wait for a reply.
inline constexpr std::chrono::microseconds pieceTimeout{100};

/// What a line of a tool's output is.
enum class LineKind {
  Reply,       ///< a complete reply
  Diagnostic,  ///< a message that is not a reply
  Other,       ///< neither
  Text,        ///< part of a reply that ends with a prompt
  Prompt       ///< the end of such a reply
};

/// How to read the output of a tool.
struct ConversationRules {
  std::string_view prompt{};                               ///< ends a reply wherever it is in a line; empty: none
  std::string_view header{};                               ///< begins a line that quotes the subject of the request
  LineKind (*classify)(std::string_view line) = nullptr;   ///< null: every line is Text
  Clock::duration timeout{};                               ///< for one reply; for Text, longest silence
  Clock::duration timeoutBudget = std::chrono::hours(24);  ///< for all waits that time out, together
  std::size_t longestLine = std::size_t{1024} * 1024;      ///< longer lines are cut, to bound the memory
};

/// The requests to one tool, one at a time, and their replies.
class Conversation {
 public:
  /// Receives the text of a reply: a line without its newline, or a piece with it.
  using Sink = std::function<void(std::string_view text)>;

  /// What to wait for.
  struct Request {
    unsigned replies = 1;                      ///< number of replies that the tool may send; the first one counts
    std::string_view subject{};                ///< what the header of the reply will quote; empty: unknown
    std::optional<Clock::duration> timeout{};  ///< overrides that of the rules
    std::size_t longestPiece = 0;              ///< if not 0, the reply is the next piece of text, of at most this size
  };

  explicit Conversation(const ConversationRules& rules)
      : rules_(rules), budget_(rules.timeoutBudget), text_(rules.longestLine) {}

  /// Resets everything except the timeout budget, for a new child.
  void restart();

  /// Discards the buffered text and `bytes`: they came before the next request is sent, and cannot be its reply.
  void discard(std::string_view bytes);

  /// Starts waiting, at `now`, for the reply to `request`, which is passed to `sink`.
  void await(const Request& request, Sink sink, Deadline now);

  /// Records that a request could not be sent, as the tool did not read its input from `begin` until `now`.
  void sendTimedOut(Deadline begin, Deadline now);

  /// Processes `bytes`, which arrived at `now`; empty when nothing came before the deadline. Returns the deadline for
  /// more, or nothing when the wait is over.
  std::optional<Deadline> receive(std::string_view bytes, Deadline now);

  /// Ends the wait because the tool's output has ended.
  void endOfOutput();

  /// The timeout of a wait that starts now: minimal while the tool is unresponsive. It shrinks with the budget.
  Clock::duration timeout() const;
  /// What is left of the timeout budget.
  Clock::duration remainingBudget() const { return budget_; }

  /// Whether the latest reply was complete (true before the first request).
  bool complete() const { return phase_ >= Phase::AwaitingMore; }
  /// Whether a tool that is still busy may write more lines that belong to that reply.
  bool moreMayFollow() const { return progress_ == Progress::PossiblyAll || (complete() && trailingWaits_ > 0); }
  /// Whether the latest request got only the late reply to an earlier one: the tool has skipped a request, or is behind
  /// by one for good, and no count of replies can tell which.
  bool outOfStep() const { return phase_ == Phase::Failed && lateReplies_; }
  /// Number of bytes received from this child while waiting for a reply.
  std::size_t received() const { return received_; }
  /// Whether there is unprocessed text.
  bool hasText() const { return !text_.text().empty(); }

 private:
  // Failed: there was no reply. AwaitingMore: the first reply has come; others to the same request are expected.
  // Trailing: the reply is complete; lines that follow at once belong to it.
  enum class Phase { Failed, AwaitingReply, AwaitingMore, Trailing, Done };

  // How much of a reply has come. Silence ends a partial reply, a short silence one that is possibly all.
  enum class Progress { None, Partial, PossiblyAll };

  struct Token {
    std::string_view text;  // of a prompt: the part of its line before it
    LineKind kind;
  };

  static constexpr unsigned always = ~0U;

  bool waiting() const { return phase_ != Phase::Failed && phase_ != Phase::Done; }
  std::optional<Token> nextToken(Deadline now);
  std::optional<Token> nextPiece(Deadline now);
  void handle(const Token& token, Deadline now);
  void handleStray(const Token& token);
  void handleReply(std::string_view line, Deadline now);
  void handleText(std::string_view line);
  void handleHeader(std::string_view rest);
  void handlePrompt(std::string_view before, Deadline now);
  void completeReply(Deadline now);
  void timeOut(Deadline now);
  void spend(Clock::duration time) { budget_ -= std::min(budget_, time); }
  Clock::duration shortWait(Clock::duration longest) const;
  bool possiblyComplete() const { return progress_ == Progress::PossiblyAll && outstanding_ == 0; }
  Deadline deadline() const;

  // The tool.
  ConversationRules rules_;
  Clock::duration budget_;
  unsigned long outstanding_ = 0;  // replies to earlier requests that have not come
  unsigned trailingWaits_ = 64;    // replies after which to wait for trailing lines; `always` once there were some
  bool unresponsive_ = false;      // the latest wait timed out
  bool bannerPossible_ = true;     // it has not replied yet
  bool oneReplyPerLine_ = false;   // it did not send the other replies to a long request

  // The wait.
  Phase phase_ = Phase::Done;
  Sink sink_;
  Deadline phaseStart_;
  Deadline lastReceived_;  // when text arrived, or the phase began
  Clock::duration timeout_{};
  std::string subject_;
  std::size_t longestPiece_ = 0;
  unsigned expected_ = 0;     // replies, or trailing lines, still to come
  bool lateReplies_ = false;  // there were some
  Progress progress_ = Progress::None;

  // The text.
  std::size_t received_ = 0;  // bytes, see received()
  LineBuffer text_;
  bool stale_ = false;  // its first line began before the request
};
