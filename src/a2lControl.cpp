#include "a2lControl.h"

#include <cctype>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <utility>
#include <vector>

#include "objRead.h"
#include "util.h"

const ToolNames A2LControl::names{"A2L", "a2l"};
ChildState A2LControl::child;

namespace {

constexpr std::chrono::seconds endPatience{1};

// GNU addr2line reads its input in bites of this many characters and answers each.
constexpr std::size_t inputBite = 99;

// A line number: digits or '?', and behind it nothing that belongs to a path.
bool isLineNumber(std::string_view text) {
  const bool number = !text.empty() && (text[0] == '?' || std::isdigit(static_cast<unsigned char>(text[0])));
  return number && text.find('/') == std::string_view::npos;
}

}  // namespace

ReplyKind parseReply(std::string_view line, SourceLocation& location) {
  // GNU addr2line 2.40 names a file without a name for some symbols that have no debugging information.
  if (line.starts_with("??") || (line.starts_with(':') && isLineNumber(line.substr(1)))) return ReplyKind::Unknown;
  for (const std::string_view diagnostic : {"addr2line: ", "BFD: ", "ERROR: "}) {
    if (line.starts_with(diagnostic)) return ReplyKind::Noise;
  }
  std::vector<std::string> pieces;
  split(std::string(line), ":", pieces);
  if (pieces.size() < 2) return ReplyKind::Noise;
  if (!isLineNumber(pieces[1])) {
    if (!isLineNumber(pieces.back())) return ReplyKind::Noise;
    pieces = {std::string(line.substr(0, line.rfind(':'))), pieces.back()};
  }
  location = {pieces[0], saturatingInt(pieces[1].c_str(), 10)};
  return ReplyKind::Location;
}

int A2LControl::startA2L() {
  signal(SIGCHLD, childhandler);
  overdue = 0;
  expected = 0;
  mute = false;
  return session.start(
      {.argv = {"addr2line", "-e", exename}, .firstOutput = "", .execFailureFormat = "ERROR: Cannot exec a2l: %s.\n"});
}

void A2LControl::endA2L() { child.kill(Clock::now() + endPatience); }

ssize_t A2LControl::sendA2L(const char* str) { return session.send(str, Clock::now() + replyPatience); }

reply* A2LControl::convA2L(unsigned int timeout, const char* fmt, ...) {
  va_list arguments;
  va_start(arguments, fmt);
  auto* pieces = session.converse<reply>(timeout, fmt, arguments, [](const char*) { return false; });
  va_end(arguments);
  return pieces;
}

void A2LControl::childhandler(int) { collectChildren(); }

// The end of a wait that begins now.
Deadline A2LControl::patienceEnd() const { return Clock::now() + (mute ? Clock::duration(pieceEndPause) : patience); }

void A2LControl::requestLocation(const char* address) {
  // While replies are overdue, what is at hand has to be counted.
  if (overdue == 0) session.dropTextAtHand();
  processor.beforeQuestion();
  const std::string request = std::string(address) + '\n';
  const bool sent = session.send(request, patienceEnd()) > 0;
  expected = sent ? static_cast<unsigned>((request.size() + inputBite - 1) / inputBite) : 0;
}

SourceLocation A2LControl::awaitLocation() {
  SourceLocation location;
  std::string line;
  bool heard = false;
  Patience listening(patienceEnd());
  while (expected > 0) {
    const Heard what = session.nextText(line, listening);
    if (what == Heard::End) {
      session.noteEnd();
      expected = 0;
    } else if (what == Heard::Silence) {
      giveUp(heard);
    } else if (takeReply(line, location)) {
      heard = true;
      if (std::exchange(mute, false)) listening.extend(patienceEnd());
    }
  }
  // What is readable when the reply is complete belongs to it; only an unknown place can still gain by it.
  Patience atHand(Clock::now());
  Heard more = Heard::Line;
  while (location.file.empty() && overdue == 0 && more == Heard::Line) {
    more = session.nextText(line, atHand);
    if (more == Heard::Line) takeReply(line, location);
  }
  if (more == Heard::End) session.noteEnd();
  return location;
}

// Ends a wait that was in vain. `heard`: replies did come, but fewer than were owed. Then nobody knows any more to
// which request the next one belongs, and only a new child can be trusted.
void A2LControl::giveUp(bool heard) {
  overdue += std::exchange(expected, 0);
  mute = true;
  if (!heard) return;
  endA2L();
  if (restarts++ < mostRestarts) startA2L();
}

// Counts one line of output. Returns whether it is a reply rather than noise.
bool A2LControl::takeReply(const std::string& line, SourceLocation& location) {
  SourceLocation found;
  // A NUL ends the text, as it does in every line of the suite.
  const ReplyKind kind = parseReply(line.c_str(), found);
  if (kind == ReplyKind::Noise) return false;
  if (overdue > 0) {
    --overdue;
    return true;
  }
  if (kind == ReplyKind::Location && location.file.empty()) location = found;
  if (expected > 0) --expected;
  return true;
}
