#include "toolSession.h"

#include <poll.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "diagnostics.h"

namespace {

constexpr std::size_t longestLine = std::size_t{1024} * 1024;  // longer ones are dropped, to bound the memory
constexpr std::chrono::seconds collectionPatience{1};          // from the end of a child's output to its own
constexpr std::chrono::milliseconds finishPatience{100};       // from a reply to the end of the child's work on it

// Appends a copy of `text` up to its first NUL to a list with the end `end`. False when there is no memory; a node
// without a text may then be at the end.
bool appendPiece(reply**& end, std::string_view text) {
  auto* node = static_cast<reply*>(std::malloc(sizeof(reply)));
  if (node == nullptr) return false;
  *node = {nullptr, nullptr};
  *end = node;
  end = &node->next;
  node->line = strndup(text.data(), text.size());
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

ToolSession::ToolSession(const ToolNames& names, ChildState& child)
    : names_(names), child_(child), text_(longestLine) {}

int ToolSession::start(SpawnRequest request) {
  toTool_.reset();
  fromTool_.reset();
  toolInput_.reset();
  unsent_.clear();
  text_.clear();
  stateTells_ = true;
  Pipe input;
  Pipe output;
  Pipe status;
  const char* failed = nullptr;
  if (!makePipe(input)) {
    failed = "open pipe to";
  } else if (!makePipe(output) || !makePipe(status)) {
    failed = "open pipe from";
  }
  if (failed != nullptr) {
    std::fprintf(stderr, "ERROR: unable to %s %s: %s.\n", failed, names_.upper, std::strerror(errno));
    return -1;
  }
  request.standardInput = input.readEnd.get();
  request.standardOutputAndError = output.writeEnd.get();
  if (const int error = spawn(request, std::move(status), child_, executed_); error != 0) {
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

ssize_t ToolSession::send(std::string_view text, Deadline deadline) {
  if (!isRunning()) return -1;
  const std::size_t owed = unsent_.size();
  unsent_ += text;
  std::size_t sent = 0;
  while (sent < unsent_.size()) {
    const ssize_t count = writeRetrying(toTool_.get(), unsent_.data() + sent, unsent_.size() - sent);
    if (count < 0 && (errno != EAGAIN || waitFor(toTool_.get(), POLLOUT, deadline) != WaitResult::Ready)) break;
    sent += static_cast<std::size_t>(std::max<ssize_t>(count, 0));
  }
  unsent_.erase(0, sent);
  if (sent > owed || text.empty()) return static_cast<ssize_t>(sent) - static_cast<ssize_t>(owed);
  // Nothing of this text went out, and it is given up.
  unsent_.resize(owed - sent);
  return -1;
}

int ToolSession::have(int fd, int seconds) const {
  if (fd < 0 || seconds < 0) return 0;
  if (fd == fromTool_.get() && !text_.text().empty()) return 1;
  const Deadline deadline = exchangeDeadline(static_cast<unsigned int>(seconds));
  return waitOnce(fd, POLLIN, deadline, nullptr) == WaitResult::Ready ? 1 : 0;
}

int ToolSession::readPiece(char* buffer, std::size_t size) {
  if (size > 0) *buffer = '\0';
  if (size < 2) return 0;
  Conversation piece({.longestPiece = size - 1, .singlePiece = true, .patience = pieceEndPause});
  std::size_t stored = 0;
  piece.await({}, Clock::now());
  const Ending ending = listen(piece, [&](std::string_view text) {
    stored = text.copy(buffer, size - 1);
    buffer[stored] = '\0';
  });
  return stored == 0 && ending == Ending::Error ? -1 : static_cast<int>(stored);
}

reply* ToolSession::converse(unsigned int timeout, std::string_view prompt, const char* fmt, va_list arguments) {
  char request[textSize];
  std::vsnprintf(request, sizeof request, fmt, arguments);
  if (*request != '\0') send(request, exchangeDeadline(timeout));
  Conversation pieces(
      {.prompt = prompt, .longestPiece = textSize - 1, .patience = std::chrono::seconds(timeout) + pieceEndPause});
  reply* list = nullptr;
  reply** end = &list;
  bool stored = true;
  pieces.await({}, Clock::now());
  const Ending ending = listen(pieces, [&](std::string_view piece) { stored = stored && appendPiece(end, piece); });
  if (!stored) std::fprintf(stderr, "Out of memory storing %s responses\n", names_.lower);
  report(ending, true);
  return list;
}

bool ToolSession::exchange(Conversation& conversation, std::string_view text, const Conversation::Request& request,
                           const Conversation::Sink& sink) {
  if (!text.empty()) {
    if (!fromTool_ || !executed_) return false;
    dropTextAtHand(conversation);
    const Deadline begin = Clock::now();
    if (isRunning() && send(text, begin + conversation.patience()) <= 0) {
      conversation.fail(begin, Clock::now());
      return false;
    }
  }
  conversation.await(request, Clock::now());
  report(listen(conversation, sink), debug_err == 22 && !text.empty());
  return conversation.complete();
}

void ToolSession::awaitEnd(Deadline deadline) {
  if (!isRunning()) return;
  toTool_.reset();
  const Clock::duration patience = deadline - Clock::now();
  Conversation rest({.longestPiece = textSize, .patience = patience, .allInVain = patience});
  rest.await({}, Clock::now());
  listen(rest, [](std::string_view) {});
  child_.awaitEnd(deadline);
}

// Waits for the child and reads as the conversation asks.
ToolSession::Ending ToolSession::listen(Conversation& conversation, const Conversation::Sink& sink) {
  for (;;) {
    conversation.hear(text_, Clock::now(), sink);
    if (!conversation.waits()) return Ending::Over;
    const std::optional<Ending> ending = readBefore(conversation.until());
    if (!ending) continue;
    conversation.end(text_, sink);
    if (*ending != Ending::Over) noteEnd();
    return *ending;
  }
}

// Waits for text until `deadline` and reads it. Says how listening has ended, if it has.
std::optional<ToolSession::Ending> ToolSession::readBefore(Deadline deadline) {
  if (!fromTool_) return Ending::Over;
  const WaitResult waited = waitFor(fromTool_.get(), POLLIN, deadline);
  if (waited == WaitResult::Failed) return Ending::Error;
  // Whoever still holds the pipe open, nothing comes from a child that is gone.
  if (waited == WaitResult::TimedOut) return child_.active() ? std::nullopt : std::optional(Ending::Output);
  const ssize_t count = refill();
  if (count == 0) return Ending::Output;
  return count > 0 || errno == EAGAIN ? std::nullopt : std::optional(Ending::Error);
}

// Drops what the child has written so far. One that may still be writing its latest reply is let finish that first, so
// that none of it passes for the reply to the next request.
void ToolSession::dropTextAtHand(Conversation& conversation) {
  constexpr int mostBlocks = 16;  // bounded, as a child may write without end
  const Deadline begin = Clock::now();
  for (;;) {
    const bool finished = !stateTells_ || !conversation.mayGoOn() || !child_.works();
    for (int i = 0; i < mostBlocks && refill() > 0; ++i) conversation.drop(text_);
    conversation.drop(text_);
    if (finished) return;
    // One that never reads its input itself, such as a script around the tool, always seems to be at work.
    if (Clock::now() - begin > finishPatience) stateTells_ = false;
    waitFor(fromTool_.get(), POLLIN, Clock::now() + pieceEndPause);
  }
}

// Waits until the deadline however many signals come.
WaitResult ToolSession::waitFor(int fd, short events, Deadline deadline) const {
  WaitResult result = WaitResult::Interrupted;
  while (result == WaitResult::Interrupted) result = waitOnce(fd, events, deadline, &child_);
  return result;
}

// Reads one block. Returns its size; 0 at the end of the output, -1 on an error.
ssize_t ToolSession::refill() {
  char block[64 * 1024];
  const ssize_t count = readRetrying(fromTool_.get(), block, sizeof block);
  if (count > 0) text_.append({block, static_cast<std::size_t>(count)});
  return count;
}

// The output has ended: reaps the child, whose own end follows within moments. One that lives on mute is killed.
void ToolSession::noteEnd() {
  fromTool_.reset();
  if (child_.pid() != startedPid_) return;
  child_.awaitEnd(Clock::now() + collectionPatience);
  child_.kill(Clock::now() + collectionPatience);
}

// The messages for what ended listening; an end of the output that nobody expects is worth one only if `verbose`.
void ToolSession::report(Ending ending, bool verbose) const {
  if (ending == Ending::Error) std::fprintf(stderr, "Error communicating with %s!\n", names_.upper);
  if (ending == Ending::Output && executed_ && verbose) std::fprintf(stderr, "EOF reading from %s!\n", names_.upper);
}
