// Which part of a child tool's output is the reply to which request. A Conversation is given the bytes that arrive and
// the time; it says what the reply is, whether it is still to be waited for, and until when. It makes no system call:
// ToolSession writes, waits and reads for it.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "deadline.h"
#include "lineBuffer.h"

/// The pause that ends a piece of text, and the shortest wait for a reply.
inline constexpr std::chrono::microseconds pieceEndPause{100};

/// What a line of a tool without a prompt is: what completes a reply, a message that answers nothing, or neither.
enum class LineKind { Reply, Diagnostic, Other };

/// How the output of a tool is to be read: a reply ends with a prompt, or else with its first line of the kind
/// `Reply`, or else with silence.
struct ConversationRules {
  std::string_view prompt{};                            ///< wherever it stands in a line; empty: none
  std::string_view header{};                            ///< begins a line that names, in quotes, what was asked
  LineKind (*kindOf)(std::string_view line) = nullptr;  ///< null: no line ends a reply
  std::size_t longestPiece = 0;                         ///< text is delivered in pieces of this size; 0: in lines
  bool singlePiece = false;                             ///< a reply is one piece
  Clock::duration patience{};  ///< longest wait for a reply; with a prompt or pieces, longest silence within it
  Clock::duration allInVain = std::chrono::hours(24);  ///< longest time of all waits in vain together
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
  };

  explicit Conversation(const ConversationRules& rules) : rules_(rules), left_(rules.allInVain) {}

  /// A new child was started, which owes nothing.
  void start();

  /// Drops `text`, which arrived before a request is sent and so belongs to none. The rest of a line that has not
  /// arrived whole is dropped later.
  void drop(LineBuffer& text);

  /// A wait for the reply to `request` begins at `now`.
  void await(const Request& request, Deadline now);

  /// A request could not be sent between `begin` and `now`, because the tool does not read.
  void fail(Deadline begin, Deadline now);

  /// Takes off `text` what belongs to the reply, and hands it to `sink`. To be called when text has arrived and when
  /// the time `until` has come.
  void hear(LineBuffer& text, Deadline now, const Sink& sink);

  /// The output has ended, and so has the wait. A last piece without a newline counts.
  void end(LineBuffer& text, const Sink& sink);

  /// Whether there is something to wait for, and when that wait ends unless text arrives.
  bool waits() const { return phase_ != Phase::Idle; }
  Deadline until() const { return until_; }

  /// How long a wait may take from now on: next to nothing while the tool is mute, or when nothing is left.
  Clock::duration patience() const {
    return mute_ ? pieceEndPause : std::max<Clock::duration>(std::min(rules_.patience, left_), pieceEndPause);
  }
  /// What is left of the time that all waits in vain may take together.
  Clock::duration left() const { return left_; }
  /// A wait of `time` for the tool was in vain.
  void charge(Clock::duration time) { left_ -= std::min(left_, time); }

  /// Whether the latest reply was complete (true before the first request).
  bool complete() const { return complete_; }
  /// Whether a tool that is at work may still write something that belongs to that reply.
  bool mayGoOn() const { return complete_ && listens() && left_ > Clock::duration::zero(); }
  /// Whether any text arrived during the latest wait.
  bool heard() const { return heard_; }

 private:
  // Nothing; the reply; the other replies to the same request; what may follow a complete reply at once.
  enum class Phase { Idle, Waiting, Further, Trailing };

  // A line, a piece, or a prompt with what stands before it in its line.
  struct Unit {
    std::string_view text;
    bool prompt = false;
  };

  std::optional<Unit> nextUnit(LineBuffer& text, Deadline now);
  std::optional<Unit> nextLine(LineBuffer& text) const;
  std::optional<Unit> nextPiece(LineBuffer& text, Deadline now);
  bool holdsPrompt(std::string_view piece);
  void take(const Unit& unit, Deadline now, const Sink& sink);
  void takeStray(const Unit& unit);
  void takeTrailing(const Unit& unit, const Sink& sink);
  void takePrompt(std::string_view before, Deadline now);
  void takeLine(std::string_view line, Deadline now, const Sink& sink);
  void takeReply(std::string_view line, Deadline now, const Sink& sink);
  void readHeader(std::string_view line);
  void finish(Deadline now);
  void giveUp(Deadline now);
  bool listens() const;
  LineKind kindOf(std::string_view line) const {
    return rules_.kindOf != nullptr ? rules_.kindOf(line) : LineKind::Other;
  }
  bool isPassedOver() const { return passedOver_ && owed_ == 0; }
  Deadline endOfWait(const LineBuffer& text) const;

  // The tool.
  ConversationRules rules_;
  Clock::duration left_;
  unsigned long owed_ = 0;      // replies to requests that were given up
  unsigned singleReplies_ = 0;  // replies of one line
  bool writesMore_ = false;     // it has written more than one line in a reply
  bool repeatsPrompt_ = false;  // it has written a prompt twice
  bool mute_ = false;           // nothing came in the latest wait
  bool bannerMayCome_ = true;   // it has not replied yet

  // The wait.
  Phase phase_ = Phase::Idle;
  Deadline begin_;     // of the phase
  Deadline limit_;     // of the phase, whatever arrives
  Deadline lastText_;  // when text arrived, or the phase began
  Deadline until_;
  Clock::duration silence_{};  // longest within the wait; 0: no limit of its own
  std::string subject_;
  unsigned replies_ = 0;     // to the request
  unsigned due_ = 0;         // of them, those that have not come
  unsigned trailing_ = 0;    // units that followed the reply
  bool complete_ = true;     // see above
  bool heard_ = false;       // see above
  bool passedOver_ = false;  // a line came that was neither reply nor diagnostic

  // The text that arrives.
  std::uint64_t received_ = 0;  // bytes
  std::string tail_;            // the last characters of the pieces so far, in which a prompt may have begun
  bool stale_ = false;          // the line began before the request
  bool spoke_ = false;          // lines came since the latest prompt
  bool mayRepeat_ = false;      // a prompt that follows now may be the latest one once more
  bool skipped_ = false;        // a prompt was passed over as the latest one once more
  bool elsewhere_ = false;      // its header names something else than was asked
};
