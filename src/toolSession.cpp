#include "toolSession.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "diagnostics.h"

namespace {

constexpr std::chrono::seconds collectionPatience{1};     // from the end of a child's output to its own
constexpr std::chrono::milliseconds finishPatience{100};  // from a reply to the end of the child's work on it

// Appends a copy of `text` up to its first NUL to a list with the end `end`. False when there is no memory; a node
// without a text may then be at the end.
bool appendPiece(reply**& end, const std::string& text) {
  auto* node = static_cast<reply*>(std::malloc(sizeof(reply)));
  if (node == nullptr) return false;
  *node = {nullptr, nullptr};
  *end = node;
  end = &node->next;
  node->line = strdup(text.c_str());
  return node->line != nullptr;
}

}  // namespace

void releasePieces(reply* list) {
  for (reply* next = nullptr; list != nullptr; list = next) {
    next = list->next;
    std::free(list->line);
    std::free(list);
  }
}

int ToolSession::start(const std::vector<std::string>& argv, std::string_view firstOutput) {
  tool_ = {};  // closes what an earlier child had
  unsent_.clear();
  stateTells_ = true;
  conversation_.start();
  tool_ = child_.spawn({names_, argv, firstOutput});
  return canBeHeard() ? 0 : -1;
}

ssize_t ToolSession::send(std::string_view text, Deadline deadline) {
  if (!isRunning() || !sendUnsent(deadline)) return -1;
  unsent_ = text;
  sendUnsent(deadline);
  const std::size_t sent = text.size() - unsent_.size();
  if (sent > 0 || text.empty()) return static_cast<ssize_t>(sent);
  unsent_.clear();
  return -1;
}

// Sends what an earlier call left. False when there is no room for it until `deadline`.
bool ToolSession::sendUnsent(Deadline deadline) {
  while (!unsent_.empty()) {
    const int fd = tool_.input.writeEnd.get();
    const ssize_t count = writeRetrying(fd, unsent_.data(), unsent_.size());
    if (count < 0 && (errno != EAGAIN || waitFor(fd, POLLOUT, deadline, &child_) != WaitResult::Ready)) return false;
    unsent_.erase(0, static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
  }
  return true;
}

int ToolSession::have(int fd, int seconds) const {
  if (fd < 0 || seconds < 0) return 0;
  if (fd == tool_.output.readEnd.get() && conversation_.holdsText()) return 1;
  const Deadline deadline = exchangeDeadline(static_cast<unsigned int>(seconds));
  return waitFor(fd, POLLIN, deadline, nullptr) == WaitResult::Ready ? 1 : 0;
}

int ToolSession::readPiece(char* buffer, std::size_t size) {
  if (size > 0) *buffer = '\0';
  if (size < 2) return 0;
  Ending ending = Ending::None;
  const std::string piece = nextPiece(size - 1, pieceEndPause, ending);
  piece.copy(buffer, piece.size());
  buffer[piece.size()] = '\0';
  return piece.empty() && ending == Ending::Error ? -1 : static_cast<int>(piece.size());
}

reply* ToolSession::converse(unsigned int timeout, std::string_view prompt, const char* fmt, va_list arguments) {
  char request[textSize];
  std::vsnprintf(request, sizeof request, fmt, arguments);
  if (*request != '\0') send(request, exchangeDeadline(timeout));
  reply* list = nullptr;
  reply** end = &list;
  Ending ending = Ending::None;
  std::string line;  // so far; a pause may divide a prompt
  for (;;) {
    const std::string piece = nextPiece(textSize - 1, std::chrono::seconds(timeout) + pieceEndPause, ending);
    if (line.ends_with('\n')) line.clear();
    line += piece;
    if (piece.empty() || (!prompt.empty() && line.find(prompt) != line.npos)) break;
    if (appendPiece(end, piece)) continue;
    std::fprintf(stderr, "Out of memory storing %s responses\n", names_.lower);
    break;
  }
  report(ending, true);
  return list;
}

// The next piece of what the child writes; empty when none begins within `patience`. `ending` tells whether it was the
// last.
std::string ToolSession::nextPiece(std::size_t longest, Clock::duration patience, Ending& ending) {
  std::string piece;
  conversation_.await(
      {.patience = patience, .longestPiece = longest}, [&piece](std::string_view text) { piece = text; }, Clock::now());
  if (canBeHeard()) ending = listen();
  return piece;
}

bool ToolSession::exchange(std::string_view text, const Conversation::Request& request,
                           const Conversation::Sink& sink) {
  if (!canBeHeard() || !tool_.executed) return false;
  dropTextAtHand();
  const Deadline begin = Clock::now();
  if (isRunning() && send(text, begin + conversation_.patience()) <= 0) {
    conversation_.fail(begin, Clock::now());
    return false;
  }
  conversation_.await(request, sink, Clock::now());
  report(listen(), debug_err == 22);
  return conversation_.complete();
}

bool ToolSession::hear(Clock::duration patience, const Conversation::Sink& sink) {
  conversation_.await({.patience = patience}, sink, Clock::now());
  report(listen(), false);
  return conversation_.complete();
}

void ToolSession::awaitEnd(Deadline deadline) {
  if (!isRunning()) return;
  tool_.input.writeEnd.reset();
  while (Clock::now() < deadline) {
    if (readBefore(deadline) != Ending::None) return noteEnd();
  }
}

// Waits for the child and reads as the conversation asks.
ToolSession::Ending ToolSession::listen() {
  arrived_ = {};
  while (const auto until = conversation_.hear(arrived_, Clock::now())) {
    const Ending ending = readBefore(*until);
    if (ending == Ending::None) continue;
    conversation_.end();
    noteEnd();
    return ending;
  }
  return Ending::None;
}

// Waits for output until `deadline` and reads a block of it.
ToolSession::Ending ToolSession::readBefore(Deadline deadline) {
  arrived_ = {};
  const WaitResult waited = waitFor(tool_.output.readEnd.get(), POLLIN, deadline, &child_);
  if (waited == WaitResult::Failed) return Ending::Error;
  // Whoever still holds the pipe open, nothing comes from a child that is gone.
  if (waited == WaitResult::TimedOut) return child_.active() ? Ending::None : Ending::Output;
  const ssize_t count = readBlock();
  if (count == 0) return Ending::Output;
  return count > 0 || errno == EAGAIN ? Ending::None : Ending::Error;
}

// Drops what the child has written so far. One that may still be writing its latest reply is let finish that first, so
// that none of it passes for the reply to the next request.
void ToolSession::dropTextAtHand() {
  constexpr int mostBlocks = 16;  // bounded, as a child may write without end
  const Deadline begin = Clock::now();
  for (;;) {
    const bool finished = !stateTells_ || !conversation_.mayGoOn() || !child_.isBusy();
    for (int i = 0; i < mostBlocks && readBlock() > 0; ++i) conversation_.drop(arrived_);
    conversation_.drop({});
    if (finished) return;
    // One that never reads its input itself, such as a script around the tool, always seems to be busy.
    if (Clock::now() - begin > finishPatience) stateTells_ = false;
    waitFor(tool_.output.readEnd.get(), POLLIN, Clock::now() + pieceEndPause, &child_);
  }
}

// Reads one block. Returns its size; 0 at the end of the output, -1 on an error.
ssize_t ToolSession::readBlock() {
  const ssize_t count = readRetrying(tool_.output.readEnd.get(), block_.data(), block_.size());
  arrived_ = {block_.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0))};
  return count;
}

// The output has ended: reaps the child, whose own end follows within moments. One that lives on mute is killed.
void ToolSession::noteEnd() {
  tool_.output.readEnd.reset();
  if (child_.pid() != tool_.pid) return;
  child_.awaitEnd(Clock::now() + collectionPatience);
  child_.kill(Clock::now() + collectionPatience);
}

// The messages for what ended listening; an end of the output that nobody expects is worth one only if `verbose`.
void ToolSession::report(Ending ending, bool verbose) const {
  if (ending == Ending::Error) std::fprintf(stderr, "Error communicating with %s!\n", names_.upper);
  if (ending == Ending::Output && tool_.executed && verbose)
    std::fprintf(stderr, "EOF reading from %s!\n", names_.upper);
}
