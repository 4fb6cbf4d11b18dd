#include "toolSession.h"

#include <algorithm>
#include <cerrno>

namespace {

// A line longer than this is noise: it is dropped, so that a child cannot make the program hold more.
constexpr std::size_t longestLine = std::size_t{1024} * 1024;

// How long the end of a child may take to be reported after the end of its output.
constexpr std::chrono::seconds collectionPatience{1};

}  // namespace

int ToolSession::start(SpawnRequest request) {
  toTool_.reset();
  fromTool_.reset();
  toolInput_.reset();
  unsent_.clear();
  buffer_.clear();
  begin_ = 0;
  midLine_ = false;
  endIsNews_ = false;
  Pipe input;
  Pipe output;
  if (!makePipe(input)) {
    std::fprintf(stderr, "ERROR: unable to open pipe to %s: %s.\n", names_.upper, std::strerror(errno));
    return -1;
  }
  if (!makePipe(output)) {
    std::fprintf(stderr, "ERROR: unable to open pipe from %s: %s.\n", names_.upper, std::strerror(errno));
    return -1;
  }
  request.standardInput = input.readEnd.get();
  request.standardOutputAndError = output.writeEnd.get();
  if (const int error = spawn(request, child_, endIsNews_); error != 0) {
    std::fprintf(stderr, "ERROR: unable to fork process: %s.\n", std::strerror(error));
    return -1;
  }
  startedPid_ = child_.pid();
  toTool_ = std::move(input.writeEnd);
  toolInput_ = std::move(input.readEnd);
  fromTool_ = std::move(output.readEnd);
  setNonBlocking(toTool_.get());
  setNonBlocking(fromTool_.get());
  return 0;
}

void ToolSession::listenTo(UniqueFd output) {
  fromTool_ = std::move(output);
  setNonBlocking(fromTool_.get());
}

ssize_t ToolSession::send(std::string_view text, Deadline deadline) {
  if (!isRunning()) return -1;
  const std::size_t owed = unsent_.size();
  const std::string all = unsent_ + std::string(text);
  std::size_t sent = 0;
  while (sent < all.size()) {
    const ssize_t count = writeRetrying(toTool_.get(), all.data() + sent, all.size() - sent);
    if (count >= 0) {
      sent += static_cast<std::size_t>(count);
    } else if (errno != EAGAIN || waitFor(toTool_.get(), POLLOUT, deadline) != WaitResult::Ready) {
      break;
    }
  }
  // Nothing of this text went out: it is given up. Part of it did: the rest has to follow.
  unsent_ = sent > owed ? all.substr(sent) : unsent_.substr(std::min(sent, owed));
  if (sent <= owed && !text.empty()) return -1;
  return static_cast<ssize_t>(sent - owed);
}

int ToolSession::have(int fd, int seconds) const {
  if (fd < 0 || seconds < 0) return 0;
  if (fd == fromTool_.get() && !unread().empty()) return 1;
  const Deadline deadline = exchangeDeadline(static_cast<unsigned int>(seconds));
  return waitOnce(fd, POLLIN, deadline, nullptr) == WaitResult::Ready ? 1 : 0;
}

int ToolSession::readPiece(char* buffer, std::size_t size) {
  if (size == 0) return 0;
  std::size_t stored = 0;
  ssize_t result = 0;
  bool complete = false;
  while (stored < size - 1 && !complete) {
    if (unread().empty()) {
      result = 0;
      if (waitFor(fromTool_.get(), POLLIN, Clock::now() + pieceEndPause) != WaitResult::Ready) break;
      result = refill();
      if (result <= 0) break;
    }
    const std::string_view source = unread().substr(0, size - 1 - stored);
    const std::size_t newline = source.find('\n');
    complete = newline != std::string_view::npos;
    const std::size_t taken = complete ? newline + 1 : source.size();
    std::memcpy(buffer + stored, source.data(), taken);
    stored += taken;
    begin_ += taken;
  }
  buffer[stored] = '\0';
  return stored > 0 ? static_cast<int>(stored) : static_cast<int>(result);
}

Heard ToolSession::nextText(std::string& line, Patience& patience, std::string_view prompt) {
  for (;;) {
    if (const auto taken = takeText(line, prompt)) return *taken;
    if (!fromTool_) return Heard::End;
    if (!patience.lasts()) return Heard::Silence;
    const WaitResult waited = waitFor(fromTool_.get(), POLLIN, patience.until());
    if (waited == WaitResult::TimedOut) return child_.active() ? Heard::Silence : Heard::End;
    if (waited == WaitResult::Failed || (refill() < 0 && errno != EAGAIN)) {
      std::fprintf(stderr, "Error communicating with %s!\n", names_.upper);
      fromTool_.reset();
    }
  }
}

void ToolSession::dropTextAtHand(std::string_view prompt) {
  constexpr int mostBlocks = 16;  // bounded, as a child may write without end
  for (int i = 0; i < mostBlocks; ++i) {
    if (!unread().empty()) midLine_ = !unread().ends_with('\n') && !unread().ends_with(prompt);
    begin_ = buffer_.size();
    if (!fromTool_ || refill() <= 0) return;
  }
}

void ToolSession::awaitEnd(Deadline deadline) {
  endIsNews_ = false;
  std::string line;
  Patience patience(deadline);
  while (nextText(line, patience) == Heard::Line) continue;
  awaitCollection(deadline);
}

void ToolSession::noteEnd() {
  awaitCollection(Clock::now() + collectionPatience);
  if (child_.pid() == startedPid_) child_.kill(Clock::now() + collectionPatience);
  if (std::exchange(endIsNews_, false)) std::fprintf(stderr, "EOF reading from %s!\n", names_.upper);
}

void ToolSession::awaitCollection(Deadline deadline) {
  while (child_.pid() == startedPid_ && child_.stillRuns()) {
    if (waitOnce(-1, 0, deadline, &child_) != WaitResult::Interrupted) return;
  }
}

// Waits until the deadline however many signals come.
WaitResult ToolSession::waitFor(int fd, short events, Deadline deadline) const {
  if (fd < 0) return WaitResult::TimedOut;
  WaitResult result = WaitResult::Interrupted;
  while (result == WaitResult::Interrupted) result = waitOnce(fd, events, deadline, &child_);
  return result;
}

// Reads one block behind the unread text. Returns its size; 0 at the end of the output, which closes this end.
ssize_t ToolSession::refill() {
  buffer_.erase(0, begin_);
  begin_ = 0;
  char block[64 * 1024];
  const ssize_t count = readRetrying(fromTool_.get(), block, sizeof block);
  if (count > 0) buffer_.append(block, static_cast<std::size_t>(count));
  if (count == 0) fromTool_.reset();
  return count;
}

// Takes one line or prompt off the unread text, if there is a complete one.
std::optional<Heard> ToolSession::takeText(std::string& line, std::string_view prompt) {
  for (;;) {
    const std::string_view text = unread();
    const std::size_t newline = text.find('\n');
    const bool complete = newline != std::string_view::npos;
    const std::string_view first = text.substr(0, newline);
    const bool prompted =
        !prompt.empty() && (complete ? first.starts_with(prompt) : first.find(prompt) != std::string_view::npos);
    if (!complete && !prompted && first.size() <= longestLine) return std::nullopt;
    const bool skipped = std::exchange(midLine_, false);
    line = first;
    begin_ += prompted && first.starts_with(prompt) ? prompt.size() : first.size() + (complete ? 1 : 0);
    if (!complete && !prompted) midLine_ = true;
    if (prompted) return Heard::Prompt;
    if (complete && !skipped) return Heard::Line;
  }
}
