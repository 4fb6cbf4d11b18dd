#include "conversation.h"

#include <utility>

namespace {

constexpr std::chrono::milliseconds lonelyLinePause{100};  // after what may be all that a tool has to say
constexpr std::chrono::seconds furtherPatience{1};         // for the other replies to one request, all together
constexpr unsigned mostTrailing = 1000;                    // lines that follow a reply; more are written without end

bool isBlank(std::string_view line) { return line.find_first_not_of(" \t\r") == std::string_view::npos; }

}  // namespace

void Conversation::start() {
  const Clock::duration left = left_;
  *this = Conversation(rules_);
  left_ = left;
}

void Conversation::drop(std::string_view bytes) {
  longestPiece_ = 0;
  text_.append(bytes);
  while (const auto unit = nextUnit({})) takeStray(*unit);
  stale_ = holdsText();
}

void Conversation::await(const Request& request, Sink sink, Deadline now) {
  phase_ = Phase::Waiting;
  sink_ = std::move(sink);
  begin_ = lastText_ = now;
  patience_ = request.patience.value_or(patience());
  subject_ = request.subject;
  longestPiece_ = request.longestPiece;
  due_ = request.replies;
  said_ = Said::Nothing;
}

void Conversation::fail(Deadline begin, Deadline now) {
  charge(now - begin);
  mute_ = true;
  phase_ = Phase::GivenUp;
}

std::optional<Deadline> Conversation::hear(std::string_view bytes, Deadline now) {
  text_.append(bytes);
  heard_ += bytes.size();
  if (!bytes.empty()) lastText_ = now;
  while (waits()) {
    const auto unit = nextUnit(now);
    if (!unit) break;
    take(*unit, now);
  }
  if (waits() && now >= endOfWait()) giveUp(now);
  return waits() ? std::optional(endOfWait()) : std::nullopt;
}

void Conversation::end() {
  // What is left is a piece.
  if (longestPiece_ > 0) hear({}, Deadline::max());
  text_.drop(text_.text().size());
  phase_ = complete() ? Phase::Over : Phase::GivenUp;
  owed_ = 0;
}

Clock::duration Conversation::patience() const {
  const bool mute = mute_ && rules_.kindOf != nullptr;
  return mute ? pieceEndPause : std::max<Clock::duration>(std::min(rules_.patience, left_), pieceEndPause);
}

std::optional<Conversation::Unit> Conversation::nextUnit(Deadline now) {
  if (longestPiece_ > 0) return nextPiece(now);
  if (!rules_.prompt.empty()) {
    const std::string_view first = text_.text().substr(0, text_.text().find('\n'));
    if (const std::size_t at = first.find(rules_.prompt); at != std::string_view::npos) {
      text_.drop(at + rules_.prompt.size());
      return Unit{first.substr(0, at), LineKind::Prompt};
    }
  }
  const auto line = text_.next();
  if (!line) return std::nullopt;
  return Unit{*line, rules_.kindOf != nullptr ? rules_.kindOf(*line) : LineKind::Text};
}

// A piece ends with its newline, at its greatest length, or at a pause.
std::optional<Conversation::Unit> Conversation::nextPiece(Deadline now) {
  const std::string_view text = text_.text().substr(0, longestPiece_);
  const std::size_t newline = text.find('\n');
  const bool whole = newline != std::string_view::npos || text.size() == longestPiece_;
  if (text.empty() || (!whole && now < lastText_ + pieceEndPause)) return std::nullopt;
  const std::string_view piece = text.substr(0, newline == std::string_view::npos ? newline : newline + 1);
  text_.drop(piece.size());
  return Unit{piece, LineKind::Text};
}

void Conversation::take(const Unit& unit, Deadline now) {
  if (longestPiece_ > 0) {
    sink_(unit.text);
    phase_ = Phase::Over;
  } else if (std::exchange(stale_, false)) {
    takeStray(unit);
  } else if (phase_ == Phase::Trailing) {
    takeStray(unit);
    if (unit.kind == LineKind::Reply) sink_(unit.text);
    if (--due_ == 0) phase_ = Phase::Over;
  } else if (unit.kind == LineKind::Reply) {
    takeReply(unit.text, now);
  } else if (unit.kind == LineKind::Prompt) {
    takePrompt(unit.text, now);
  } else if (unit.kind == LineKind::Text) {
    takeText(unit.text);
  } else if (unit.kind == LineKind::Other) {
    said_ = Said::PerhapsAll;
  }
}

// What belongs to no request pays a debt, or shows that the tool writes more than one line in a reply.
void Conversation::takeStray(const Unit& unit) {
  const bool prompt = unit.kind == LineKind::Prompt;
  if (owed_ > 0 && (prompt || unit.kind == LineKind::Reply)) {
    --owed_;
    mute_ = false;
  } else if (!bannerMayCome_ && unit.kind != LineKind::Diagnostic && (prompt || !isBlank(unit.text))) {
    toListen_ = always;
  }
}

void Conversation::takeReply(std::string_view line, Deadline now) {
  mute_ = bannerMayCome_ = false;
  said_ = Said::Nothing;
  if (owed_ > 0) {
    --owed_;
    patience_ = patience();
  } else if (phase_ == Phase::Further) {
    if (--due_ == 0) phase_ = Phase::Over;
  } else {
    sink_(line);
    if (--due_ == 0) return finish(now);
    phase_ = Phase::Further;
    begin_ = now;
    patience_ = furtherPatience;
  }
}

void Conversation::takeText(std::string_view line) {
  if (!isBlank(line)) said_ = Said::Part;
  if (!rules_.header.empty() && line.starts_with(rules_.header)) readHeader(line.substr(rules_.header.size()));
  if (owed_ == 0) sink_(line);
}

// Replies that name what they answer need not be counted.
void Conversation::readHeader(std::string_view rest) {
  const std::size_t quote = rest.rfind('"');
  if (subject_.empty() || quote == std::string_view::npos) return;
  owed_ = rest.substr(0, quote) == subject_ ? 0 : std::max(owed_, 1UL);
}

void Conversation::takePrompt(std::string_view before, Deadline now) {
  const bool first = said_ == Said::Nothing && isBlank(before);
  said_ = Said::Nothing;
  if (owed_ > 0) {
    --owed_;
  } else if (first && toListen_ == always) {
    // The prompt of the reply before, once more, or the end of an empty one.
    said_ = Said::PerhapsAll;
  } else {
    finish(now);
  }
}

void Conversation::finish(Deadline now) {
  mute_ = bannerMayCome_ = false;
  phase_ = toListen_ > 0 ? Phase::Trailing : Phase::Over;
  due_ = mostTrailing;
  lastText_ = now;
}

// The time of the wait is over.
void Conversation::giveUp(Deadline now) {
  const Phase phase = std::exchange(phase_, complete() ? Phase::Over : Phase::GivenUp);
  if (longestPiece_ > 0) return;
  if (phase == Phase::Trailing) {
    if (toListen_ != always) --toListen_;
    return;
  }
  charge(now - begin_);
  if (phase == Phase::Further) return;
  bannerMayCome_ = false;
  // What was said, if only in part, is over; the rest may still come.
  mute_ = said_ != Said::Part && !mayBeOver();
  if (mute_) owed_ += due_;
}

Deadline Conversation::endOfWait() const {
  if (phase_ == Phase::Trailing) return lastText_ + pieceEndPause;
  if (longestPiece_ > 0) return lastText_ + (holdsText() ? pieceEndPause : patience_);
  const Deadline from = rules_.kindOf != nullptr ? begin_ : lastText_;
  const Deadline end = std::min(from + patience_, begin_ + std::max<Clock::duration>(left_, pieceEndPause));
  return mayBeOver() && !bannerMayCome_ ? std::min(end, lastText_ + lonelyLinePause) : end;
}
