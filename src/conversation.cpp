#include "conversation.h"

#include <utility>

namespace {

constexpr std::chrono::milliseconds lonelyLinePause{100};  // after a line that may be all that a tool has to say
constexpr std::chrono::seconds furtherPatience{1};         // for the other replies to one request, all together
constexpr unsigned enoughSingleReplies = 64;               // after which a tool is believed to write no more
constexpr unsigned mostTrailing = 1000;                    // lines of one reply; more are written without end

bool isBlank(std::string_view line) { return line.find_first_not_of(" \t\r") == std::string_view::npos; }

}  // namespace

void Conversation::start() {
  const Clock::duration left = left_;
  *this = Conversation(rules_);
  left_ = left;
}

void Conversation::drop(LineBuffer& text) {
  while (const auto unit = nextUnit(text, {})) takeStray(*unit);
  stale_ = !text.text().empty();
  received_ = text.received();
}

void Conversation::await(const Request& request, Deadline now) {
  phase_ = Phase::Waiting;
  begin_ = lastText_ = now;
  const bool untilSilence = rules_.kindOf == nullptr;
  silence_ = untilSilence ? request.patience.value_or(rules_.patience) : Clock::duration::zero();
  limit_ = now + (untilSilence ? left_ : patience());
  subject_ = request.subject;
  replies_ = due_ = request.replies;
  trailing_ = 0;
  complete_ = heard_ = passedOver_ = spoke_ = elsewhere_ = skipped_ = false;
  mayRepeat_ = repeatsPrompt_;
}

void Conversation::fail(Deadline begin, Deadline now) {
  charge(now - begin);
  mute_ = true;
  complete_ = heard_ = false;
}

void Conversation::hear(LineBuffer& text, Deadline now, const Sink& sink) {
  if (received_ != text.received()) {
    received_ = text.received();
    lastText_ = now;
    heard_ = true;
  }
  while (waits()) {
    const auto unit = nextUnit(text, now);
    if (!unit) break;
    take(*unit, now, sink);
  }
  if (!waits()) return;
  until_ = endOfWait(text);
  if (now >= until_) giveUp(now);
}

void Conversation::end(LineBuffer& text, const Sink& sink) {
  if (waits() && rules_.longestPiece > 0 && !text.text().empty())
    take({text.text(), holdsPrompt(text.text())}, {}, sink);
  text.drop(text.text().size());
  phase_ = Phase::Idle;
  owed_ = 0;
}

std::optional<Conversation::Unit> Conversation::nextUnit(LineBuffer& text, Deadline now) {
  return rules_.longestPiece > 0 ? nextPiece(text, now) : nextLine(text);
}

// The line that holds a prompt is dropped with it, but for what stands after the prompt.
std::optional<Conversation::Unit> Conversation::nextLine(LineBuffer& text) const {
  if (!rules_.prompt.empty()) {
    const std::string_view first = text.text().substr(0, text.text().find('\n'));
    if (const std::size_t at = first.find(rules_.prompt); at != std::string_view::npos) {
      text.drop(at + rules_.prompt.size());
      return Unit{first.substr(0, at), true};
    }
  }
  std::string_view line;
  for (;;) {
    const LineBuffer::Found found = text.next(line);
    if (found == LineBuffer::Found::Nothing) return std::nullopt;
    // An overlong line is one all the same.
    return Unit{found == LineBuffer::Found::Line ? line : std::string_view()};
  }
}

// A piece ends with its newline, at its greatest length, or at a pause.
std::optional<Conversation::Unit> Conversation::nextPiece(LineBuffer& text, Deadline now) {
  const std::string_view first = text.text().substr(0, rules_.longestPiece);
  const std::size_t newline = first.find('\n');
  const bool whole = newline != std::string_view::npos || first.size() == rules_.longestPiece;
  if (first.empty() || (!whole && now < lastText_ + pieceEndPause)) return std::nullopt;
  const std::string_view piece = first.substr(0, newline == std::string_view::npos ? first.size() : newline + 1);
  text.drop(piece.size());
  return Unit{piece, holdsPrompt(piece)};
}

// Whether the prompt stands in a piece, or began in the pieces before it.
bool Conversation::holdsPrompt(std::string_view piece) {
  if (rules_.prompt.empty()) return false;
  tail_ += piece;
  const bool prompted = tail_.find(rules_.prompt) != std::string::npos;
  tail_.erase(0, tail_.size() - std::min(tail_.size(), rules_.prompt.size() - 1));
  return prompted;
}

void Conversation::take(const Unit& unit, Deadline now, const Sink& sink) {
  if (std::exchange(stale_, false)) {
    takeStray(unit);
  } else if (phase_ == Phase::Trailing) {
    takeTrailing(unit, sink);
  } else if (unit.prompt) {
    takePrompt(unit.text, now);
  } else {
    takeLine(unit.text, now, sink);
  }
}

// What belongs to no request pays a debt, or shows that the tool writes more than it should.
void Conversation::takeStray(const Unit& unit) {
  const LineKind kind = kindOf(unit.text);
  const bool repays = (unit.prompt || kind == LineKind::Reply) && owed_ > 0;
  if (repays) {
    --owed_;
    mute_ = false;
  } else if (unit.prompt && isBlank(unit.text)) {
    repeatsPrompt_ = true;
  } else if (kind != LineKind::Diagnostic && !isBlank(unit.text)) {
    writesMore_ = writesMore_ || !bannerMayCome_;
  }
}

void Conversation::takeTrailing(const Unit& unit, const Sink& sink) {
  takeStray(unit);
  if (replies_ == 1 && kindOf(unit.text) == LineKind::Reply) sink(unit.text);
  if (++trailing_ == mostTrailing) phase_ = Phase::Idle;
}

void Conversation::takePrompt(std::string_view before, Deadline now) {
  const bool again = !spoke_ && isBlank(before) && mayRepeat_;
  mayRepeat_ = false;
  skipped_ = skipped_ || again;
  if (again) return;
  spoke_ = false;
  if (owed_ == 0 && !elsewhere_) return finish(now);
  if (owed_ > 0) --owed_;
  elsewhere_ = false;
  mayRepeat_ = true;
}

void Conversation::takeLine(std::string_view line, Deadline now, const Sink& sink) {
  const LineKind kind = kindOf(line);
  if (kind == LineKind::Reply) return takeReply(line, now, sink);
  if (rules_.kindOf != nullptr) {
    passedOver_ = passedOver_ || kind == LineKind::Other;
    return;
  }
  if (!isBlank(line)) spoke_ = true;
  readHeader(line);
  if (owed_ == 0 && !elsewhere_) sink(line);
  if (rules_.singlePiece) finish(now);
}

void Conversation::takeReply(std::string_view line, Deadline now, const Sink& sink) {
  mute_ = bannerMayCome_ = passedOver_ = false;
  if (owed_ > 0) {
    --owed_;
    limit_ = begin_ + patience();
    return;
  }
  if (due_ == replies_) sink(line);
  if (--due_ == 0) return finish(now);
  if (phase_ == Phase::Waiting) {
    phase_ = Phase::Further;
    complete_ = true;
    begin_ = now;
    limit_ = now + std::min<Clock::duration>(furtherPatience, left_);
  }
}

bool Conversation::listens() const {
  return rules_.longestPiece == 0 && (writesMore_ || repeatsPrompt_ || singleReplies_ < enoughSingleReplies);
}

// Answers that name what they answer need not be counted.
void Conversation::readHeader(std::string_view line) {
  if (rules_.header.empty() || subject_.empty() || !line.starts_with(rules_.header)) return;
  line.remove_prefix(rules_.header.size());
  const std::size_t quote = line.rfind('"');
  if (quote == std::string_view::npos) return;
  elsewhere_ = line.substr(0, quote) != subject_;
  if (!elsewhere_) owed_ = 0;
}

void Conversation::finish(Deadline now) {
  complete_ = true;
  mute_ = bannerMayCome_ = false;
  phase_ = listens() ? Phase::Trailing : Phase::Idle;
  lastText_ = now;
}

// The time of the wait is over.
void Conversation::giveUp(Deadline now) {
  if (phase_ == Phase::Trailing) {
    if (trailing_ == 0) ++singleReplies_;
  } else {
    charge(now - begin_);
    bannerMayCome_ = false;
    // What was said, if only in part, is over; the rest may still come.
    const bool said = isPassedOver() || skipped_ || (spoke_ && !(elsewhere_ && owed_ == 0));
    // A prompt that was skipped may have been the end of an empty answer.
    if (skipped_) repeatsPrompt_ = false;
    if (phase_ == Phase::Waiting && !(said && owed_ == 0)) owed_ += due_ - (said ? 1 : 0);
    mute_ = !said && phase_ == Phase::Waiting;
  }
  phase_ = Phase::Idle;
}

Deadline Conversation::endOfWait(const LineBuffer& text) const {
  if (phase_ == Phase::Trailing) return lastText_ + pieceEndPause;
  Deadline end = limit_;
  if (silence_ > Clock::duration::zero()) end = std::min(end, lastText_ + silence_);
  if (isPassedOver() && !bannerMayCome_) end = std::min(end, lastText_ + lonelyLinePause);
  if (rules_.longestPiece > 0 && !text.text().empty()) end = std::min(end, lastText_ + pieceEndPause);
  return end;
}
