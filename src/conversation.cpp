#include "conversation.h"

#include <utility>

#include "whiteSpace.h"

namespace {

constexpr std::chrono::milliseconds possibleEndTimeout{100};  // after text that may be the whole reply
constexpr std::chrono::seconds furtherRepliesTimeout{1};      // for all other replies to one request
constexpr unsigned maxTrailingLines = 1000;                   // a tool that writes more writes endlessly

}  // namespace

void Conversation::restart() {
  const Clock::duration budget = budget_;
  *this = Conversation(rules_);
  budget_ = budget;
}

void Conversation::discard(std::string_view bytes) {
  longestPiece_ = 0;
  text_.append(bytes);
  while (const auto token = nextToken({})) handleStray(*token);
  stale_ = hasText();
}

void Conversation::await(const Request& request, Sink sink, Deadline now) {
  phase_ = Phase::AwaitingReply;
  sink_ = std::move(sink);
  phaseStart_ = lastReceived_ = now;
  timeout_ = request.timeout.value_or(timeout());
  subject_ = request.subject;
  longestPiece_ = request.longestPiece;
  expected_ = oneReplyPerLine_ ? 1 : request.replies;
  lateReplies_ = false;
  progress_ = Progress::None;
}

void Conversation::sendTimedOut(Deadline begin, Deadline now) {
  spend(now - begin);
  unresponsive_ = true;
  phase_ = Phase::Failed;
}

std::optional<Deadline> Conversation::receive(std::string_view bytes, Deadline now) {
  text_.append(bytes);
  received_ += bytes.size();
  if (!bytes.empty()) lastReceived_ = now;
  while (waiting()) {
    const auto token = nextToken(now);
    if (!token) break;
    handle(*token, now);
  }
  if (waiting() && now >= deadline()) timeOut(now);
  return waiting() ? std::optional(deadline()) : std::nullopt;
}

void Conversation::endOfOutput() {
  // The rest of the text is a piece.
  if (longestPiece_ > 0) receive({}, Deadline::max());
  text_.drop(text_.text().size());
  phase_ = complete() ? Phase::Done : Phase::Failed;
  outstanding_ = 0;
  lateReplies_ = false;
}

Clock::duration Conversation::timeout() const {
  const bool lines = rules_.classify != nullptr;
  if (lines && unresponsive_) return pieceTimeout;
  // A tool of lines keeps a rest, so that a reply that comes soon is still waited for after many waits in vain.
  const Clock::duration usable = lines ? budget_ - budget_ / 8 : budget_;
  return std::max<Clock::duration>(std::min(rules_.timeout, usable), pieceTimeout);
}

// `longest`, unless that is a large part of the budget, which many such waits would use up.
Clock::duration Conversation::shortWait(Clock::duration longest) const {
  return std::max<Clock::duration>(std::min(longest, budget_ / 32), pieceTimeout);
}

std::optional<Conversation::Token> Conversation::nextToken(Deadline now) {
  if (longestPiece_ > 0) return nextPiece(now);
  if (!rules_.prompt.empty()) {
    const std::string_view first = text_.text().substr(0, text_.text().find('\n'));
    if (const std::size_t at = first.find(rules_.prompt); at != std::string_view::npos) {
      text_.drop(at + rules_.prompt.size());
      return Token{first.substr(0, at), LineKind::Prompt};
    }
  }
  const auto line = text_.next();
  if (!line) return std::nullopt;
  return Token{*line, rules_.classify != nullptr ? rules_.classify(*line) : LineKind::Text};
}

// A piece ends with its newline, at its maximum length, or with a pause.
std::optional<Conversation::Token> Conversation::nextPiece(Deadline now) {
  const std::string_view text = text_.text().substr(0, longestPiece_);
  const std::size_t newline = text.find('\n');
  const bool whole = newline != std::string_view::npos || text.size() == longestPiece_;
  if (text.empty() || (!whole && now < lastReceived_ + pieceTimeout)) return std::nullopt;
  const std::string_view piece = text.substr(0, newline == std::string_view::npos ? newline : newline + 1);
  text_.drop(piece.size());
  return Token{piece, LineKind::Text};
}

void Conversation::handle(const Token& token, Deadline now) {
  if (longestPiece_ > 0) {
    sink_(token.text);
    phase_ = Phase::Done;
  } else if (std::exchange(stale_, false)) {
    handleStray(token);
  } else if (phase_ == Phase::Trailing) {
    handleStray(token);
    if (token.kind == LineKind::Reply) sink_(token.text);
    if (--expected_ == 0) phase_ = Phase::Done;
  } else if (token.kind == LineKind::Reply) {
    handleReply(token.text, now);
  } else if (token.kind == LineKind::Prompt) {
    handlePrompt(token.text, now);
  } else if (token.kind == LineKind::Text) {
    handleText(token.text);
  } else if (token.kind == LineKind::Other) {
    progress_ = Progress::PossiblyAll;
  }
}

// Text that answers no current request is a late reply, or shows that the tool writes more than one line per reply.
void Conversation::handleStray(const Token& token) {
  const bool prompt = token.kind == LineKind::Prompt;
  if (outstanding_ > 0 && (prompt || token.kind == LineKind::Reply)) {
    --outstanding_;
    unresponsive_ = false;
    lateReplies_ = true;
  } else if (!bannerPossible_ && token.kind != LineKind::Diagnostic && (prompt || !isBlank(token.text))) {
    trailingWaits_ = always;
  }
}

void Conversation::handleReply(std::string_view line, Deadline now) {
  unresponsive_ = bannerPossible_ = false;
  progress_ = Progress::None;
  if (outstanding_ > 0) {
    --outstanding_;
    lateReplies_ = true;
    timeout_ = timeout();
  } else if (phase_ == Phase::AwaitingMore) {
    if (--expected_ == 0) phase_ = Phase::Done;
  } else {
    sink_(line);
    if (--expected_ == 0) return completeReply(now);
    phase_ = Phase::AwaitingMore;
    phaseStart_ = now;
    timeout_ = shortWait(furtherRepliesTimeout);
  }
}

void Conversation::handleText(std::string_view line) {
  if (!isBlank(line)) progress_ = Progress::Partial;
  if (!rules_.header.empty() && line.starts_with(rules_.header)) handleHeader(line.substr(rules_.header.size()));
  if (outstanding_ == 0) sink_(line);
}

// Replies that quote their subject need not be counted.
void Conversation::handleHeader(std::string_view rest) {
  const std::size_t quote = rest.rfind('"');
  if (subject_.empty() || quote == std::string_view::npos) return;
  outstanding_ = rest.substr(0, quote) == subject_ ? 0 : std::max(outstanding_, 1UL);
}

void Conversation::handlePrompt(std::string_view before, Deadline now) {
  const bool empty = progress_ == Progress::None && isBlank(before);
  progress_ = Progress::None;
  if (outstanding_ > 0) {
    --outstanding_;
  } else if (empty && trailingWaits_ == always) {
    // The prompt of the previous reply, repeated, or the end of an empty one.
    progress_ = Progress::PossiblyAll;
  } else {
    completeReply(now);
  }
}

void Conversation::completeReply(Deadline now) {
  unresponsive_ = bannerPossible_ = false;
  phase_ = trailingWaits_ > 0 ? Phase::Trailing : Phase::Done;
  expected_ = maxTrailingLines;
  lastReceived_ = now;
}

void Conversation::timeOut(Deadline now) {
  const Phase phase = std::exchange(phase_, complete() ? Phase::Done : Phase::Failed);
  if (longestPiece_ > 0) return;
  if (phase == Phase::Trailing) {
    if (trailingWaits_ != always) --trailingWaits_;
    return;
  }
  spend(now - phaseStart_);
  if (phase == Phase::AwaitingMore) {
    oneReplyPerLine_ = timeout_ == furtherRepliesTimeout;
    return;
  }
  bannerPossible_ = false;
  // If part of the reply came, the rest is not waited for; otherwise all of it is outstanding.
  unresponsive_ = progress_ != Progress::Partial && !possiblyComplete();
  if (unresponsive_) outstanding_ += expected_;
}

Deadline Conversation::deadline() const {
  if (phase_ == Phase::Trailing) return lastReceived_ + pieceTimeout;
  if (longestPiece_ > 0) return lastReceived_ + (hasText() ? pieceTimeout : timeout_);
  const Deadline from = rules_.classify != nullptr ? phaseStart_ : lastReceived_;
  const Deadline end = std::min(from + timeout_, phaseStart_ + std::max<Clock::duration>(budget_, pieceTimeout));
  return possiblyComplete() && !bannerPossible_ ? std::min(end, lastReceived_ + shortWait(possibleEndTimeout)) : end;
}
