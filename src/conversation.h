// Which part of a child tool's output is the reply to which request. A Conversation is given the bytes that arrive and
// the time; it says what the reply is, whether it is still to be waited for, and until when. It makes no system call:
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

/// The pause that ends a piece of text, and the shortest wait for a reply.
inline constexpr std::chrono::microseconds pieceEndPause{100};

/// What a line of a tool's output is.
enum class LineKind {
  Reply,       ///< a whole reply
  Diagnostic,  ///< a message that answers nothing
  Other,       ///< neither of them
  Text,        ///< part of a reply that a prompt ends
  Prompt       ///< the end of such a reply
};

/// How the output of a tool is to be read.
struct ConversationRules {
  std::string_view prompt{};                            ///< ends a reply wherever it stands in a line; empty: none
  std::string_view header{};                            ///< begins a line that names, in quotes, what was asked
  LineKind (*kindOf)(std::string_view line) = nullptr;  ///< null: every line is Text
  Clock::duration patience{};                           ///< longest wait for a reply; for Text, longest silence
  Clock::duration allInVain = std::chrono::hours(24);   ///< longest time of all waits in vain together
  std::size_t longestLine = std::size_t{1024} * 1024;   ///< longer ones are cut, to bound the memory
};

class Conversation {
 public:
  /// Receives the text of a reply: a line without its newline, or a piece with it.
  using Sink = std::function<void(std::string_view text)>;

  /// What is to be awaited.
  struct Request {
    unsigned replies = 1;                       ///< replies that the tool may give to it; the first one counts
    std::string_view subject{};                 ///< what the header of its reply will name; empty: not known
    std::optional<Clock::duration> patience{};  ///< in place of that of the rules
    std::size_t longestPiece = 0;               ///< if not 0: any piece of text of this size at most is the reply
  };

  explicit Conversation(const ConversationRules& rules)
      : rules_(rules), left_(rules.allInVain), text_(rules.longestLine) {}

  /// A new child was started, which owes nothing.
  void start();

  /// Drops the text that was at hand, and `bytes`, as a request is about to be sent to which they cannot belong.
  void drop(std::string_view bytes);

  /// A wait for the reply to `request` begins at `now`; `sink` will be given it.
  void await(const Request& request, Sink sink, Deadline now);

  /// A request could not be sent between `begin` and `now`, because the tool does not read.
  void fail(Deadline begin, Deadline now);

  /// Takes `bytes`, which arrived at `now`; none when the time of the wait has come. Returns until when to wait for
  /// more, or nothing when the wait is over.
  std::optional<Deadline> hear(std::string_view bytes, Deadline now);

  /// The output has ended, and so has the wait.
  void end();

  /// How long a wait may take from now on: next to nothing while the tool is mute, or when nothing is left.
  Clock::duration patience() const;
  /// What is left of the time that all waits in vain may take together.
  Clock::duration left() const { return left_; }

  /// Whether the latest reply was complete (true before the first request).
  bool complete() const { return phase_ >= Phase::Further; }
  /// Whether a tool that is at work may still write something that belongs to that reply.
  bool mayGoOn() const { return complete() && toListen_ > 0; }
  /// Bytes that arrived while something was awaited of this child.
  std::size_t heard() const { return heard_; }
  /// Whether text is at hand.
  bool holdsText() const { return !text_.text().empty(); }

 private:
  // The reply did not come; it is awaited; it has come, and other replies to the same request, or what may follow at
  // once, are awaited; all is over.
  enum class Phase { GivenUp, Waiting, Further, Trailing, Over };

  // What came of a reply: it is over after a silence, in the last case a short one.
  enum class Said { Nothing, Part, PerhapsAll };

  struct Unit {
    std::string_view text;  // for a prompt, what stands before it in its line
    LineKind kind;
  };

  static constexpr unsigned always = ~0U;

  bool waits() const { return phase_ != Phase::GivenUp && phase_ != Phase::Over; }
  std::optional<Unit> nextUnit(Deadline now);
  std::optional<Unit> nextPiece(Deadline now);
  void take(const Unit& unit, Deadline now);
  void takeStray(const Unit& unit);
  void takeReply(std::string_view line, Deadline now);
  void takeText(std::string_view line);
  void readHeader(std::string_view rest);
  void takePrompt(std::string_view before, Deadline now);
  void finish(Deadline now);
  void giveUp(Deadline now);
  void charge(Clock::duration time) { left_ -= std::min(left_, time); }
  bool mayBeOver() const { return said_ == Said::PerhapsAll && owed_ == 0; }
  Deadline endOfWait() const;

  // The tool.
  ConversationRules rules_;
  Clock::duration left_;
  unsigned long owed_ = 0;     // replies to earlier requests that have not come
  unsigned toListen_ = 64;     // replies after which it will be listened for more; `always` if it wrote more once
  bool mute_ = false;          // the latest wait was in vain
  bool bannerMayCome_ = true;  // it has not replied yet

  // The wait.
  Phase phase_ = Phase::Over;
  Sink sink_;
  Deadline begin_;     // of the phase
  Deadline lastText_;  // when text arrived, or the phase began
  Clock::duration patience_{};
  std::string subject_;
  std::size_t longestPiece_ = 0;
  unsigned due_ = 0;  // replies, or lines that follow one, that are still awaited
  Said said_ = Said::Nothing;

  // The text that has arrived.
  std::size_t heard_ = 0;  // see above
  LineBuffer text_;
  bool stale_ = false;  // its first line began before the request
};
