#include "toolSession.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "diagnostics.h"

namespace {

constexpr std::chrono::seconds reapTimeout{1};           // from the end of a child's output to its exit
constexpr std::chrono::milliseconds finishTimeout{100};  // from a reply to the child's next read of its input

// Appends a copy of `text` up to its first NUL to the list that ends at `end`. False when out of memory; the last node
// may then have no text.
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

void freeReplies(reply* list) {
  for (reply* next = nullptr; list != nullptr; list = next) {
    next = list->next;
    std::free(list->line);
    std::free(list);
  }
}

int ToolSession::start(const std::vector<std::string>& argv, std::string_view firstOutput) {
  tool_ = {};  // closes the pipes of an earlier child
  unsent_.clear();
  busyStateKnown_ = true;
  conversation_.restart();
  tool_ = child_.spawn({names_, argv, firstOutput});
  return outputOpen() ? 0 : -1;
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

// Sends `unsent_`. False if not all of it found room before `deadline`.
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
  if (fd == tool_.output.readEnd.get() && conversation_.hasText()) return 1;
  const Deadline deadline = exchangeDeadline(static_cast<unsigned int>(seconds));
  return waitFor(fd, POLLIN, deadline, nullptr) == WaitResult::Ready ? 1 : 0;
}

int ToolSession::readPiece(char* buffer, std::size_t size) {
  if (size > 0) *buffer = '\0';
  if (size < 2) return 0;
  Ending ending = Ending::None;
  const std::string piece = nextPiece(size - 1, pieceTimeout, ending);
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
  std::string line;  // joined from its pieces, as a pause may divide a prompt
  for (;;) {
    const std::string piece = nextPiece(textSize - 1, std::chrono::seconds(timeout) + pieceTimeout, ending);
    if (line.ends_with('\n')) line.clear();
    line += piece;
    if (piece.empty() || (!prompt.empty() && line.find(prompt) != line.npos)) break;
    if (appendPiece(end, piece)) continue;
    std::fprintf(stderr, "Out of memory storing %s responses\n", names_.lower);
    break;
  }
  reportEnding(ending, true);
  return list;
}

// The next piece of the child's output; empty when none starts within `timeout`. `ending` says whether it is the last.
std::string ToolSession::nextPiece(std::size_t maxSize, Clock::duration timeout, Ending& ending) {
  std::string piece;
  conversation_.await(
      {.timeout = timeout, .longestPiece = maxSize}, [&piece](std::string_view text) { piece = text; }, Clock::now());
  if (outputOpen()) ending = readUntilDone();
  return piece;
}

bool ToolSession::exchange(std::string_view text, const Conversation::Request& request,
                           const Conversation::Sink& sink) {
  if (!outputOpen() || !tool_.executed) return false;
  discardPendingOutput();
  const Deadline begin = Clock::now();
  if (isRunning() && send(text, begin + conversation_.timeout()) <= 0) {
    conversation_.sendTimedOut(begin, Clock::now());
    return false;
  }
  conversation_.await(request, sink, Clock::now());
  reportEnding(readUntilDone(), debug_err == 22);
  return conversation_.complete();
}

bool ToolSession::awaitPrompt(Clock::duration timeout, const Conversation::Sink& sink) {
  conversation_.await({.timeout = timeout}, sink, Clock::now());
  reportEnding(readUntilDone(), false);
  return conversation_.complete();
}

void ToolSession::closeInputAndAwaitExit(Deadline deadline) {
  if (!isRunning()) return;
  tool_.input.writeEnd.reset();
  while (Clock::now() < deadline) {
    if (readOnceBefore(deadline) != Ending::None) return reapChild();
  }
}

// Reads the child's output until the conversation's wait is over.
ToolSession::Ending ToolSession::readUntilDone() {
  received_ = {};
  while (const auto until = conversation_.receive(received_, Clock::now())) {
    const Ending ending = readOnceBefore(*until);
    if (ending == Ending::None) continue;
    conversation_.endOfOutput();
    reapChild();
    return ending;
  }
  return Ending::None;
}

// Waits for output until `deadline`, and reads one block.
ToolSession::Ending ToolSession::readOnceBefore(Deadline deadline) {
  received_ = {};
  const WaitResult waited = waitFor(tool_.output.readEnd.get(), POLLIN, deadline, &child_);
  if (waited == WaitResult::Failed) return Ending::Error;
  // A child that has exited writes nothing more, even if another process keeps the pipe open.
  if (waited == WaitResult::TimedOut) return child_.active() ? Ending::None : Ending::EndOfOutput;
  const ssize_t count = readBlock();
  if (count == 0) return Ending::EndOfOutput;
  return count > 0 || errno == EAGAIN ? Ending::None : Ending::Error;
}

// Discards what the child has written so far. If it may still be writing its latest reply, it can finish first, so that
// none of that is mistaken for the reply to the next request.
void ToolSession::discardPendingOutput() {
  constexpr int maxBlocks = 16;  // a child may write endlessly
  const Deadline begin = Clock::now();
  for (;;) {
    const bool finished = !busyStateKnown_ || !conversation_.moreMayFollow() || !child_.isBusy();
    for (int i = 0; i < maxBlocks && readBlock() > 0; ++i) conversation_.discard(received_);
    conversation_.discard({});
    if (finished) return;
    // A child that does not read its input itself, such as a wrapper script, always appears busy.
    if (Clock::now() - begin > finishTimeout) busyStateKnown_ = false;
    waitFor(tool_.output.readEnd.get(), POLLIN, Clock::now() + pieceTimeout, &child_);
  }
}

// Reads one block. Returns its size; 0 at the end of the output, -1 on an error.
ssize_t ToolSession::readBlock() {
  const ssize_t count = readRetrying(tool_.output.readEnd.get(), block_.data(), block_.size());
  received_ = {block_.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0))};
  return count;
}

// Closes the output, which has ended, and reaps the child, which usually exits at once. One that does not is killed.
void ToolSession::reapChild() {
  tool_.output.readEnd.reset();
  if (child_.pid() != tool_.pid) return;
  child_.awaitExit(Clock::now() + reapTimeout);
  child_.kill(Clock::now() + reapTimeout);
}

// Prints why reading ended; for an unexpected end of the output only if `verbose`.
void ToolSession::reportEnding(Ending ending, bool verbose) const {
  if (ending == Ending::Error) std::fprintf(stderr, "Error communicating with %s!\n", names_.upper);
  if (ending == Ending::EndOfOutput && tool_.executed && verbose)
    std::fprintf(stderr, "EOF reading from %s!\n", names_.upper);
}
