#include "a2lControl.h"

#include <algorithm>
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

// A line number: digits or '?', and behind them at most a remark after a blank.
bool isLineNumber(std::string_view text) {
  const std::size_t end = std::min(text.starts_with('?') ? 1 : text.find_first_not_of("0123456789"), text.size());
  return end > 0 && (end == text.size() || text[end] == ' ');
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
  const bool pathGoesOn = line.find('/', pieces[0].size() + 1 + pieces[1].size()) != std::string_view::npos;
  if (!isLineNumber(pieces[1]) || pathGoesOn) {
    if (!isLineNumber(pieces.back())) return ReplyKind::Noise;
    pieces = {std::string(line.substr(0, line.rfind(':'))), pieces.back()};
  }
  location = {pieces[0], saturatingInt(pieces[1].c_str(), 10)};
  return ReplyKind::Location;
}

int A2LControl::startA2L() {
  signal(SIGCHLD, childhandler);
  debt.clear();
  expected = 0;
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

void A2LControl::requestLocation(const char* address) {
  // While replies are owed, what is at hand has to be counted.
  if (!debt.owes()) session.dropTextAtHand();
  processor.beforeQuestion();
  const std::string request = std::string(address) + '\n';
  const bool sent = session.send(request, debt.waitEnd()) > 0;
  expected = sent ? static_cast<unsigned>((request.size() + inputBite - 1) / inputBite) : 0;
}

SourceLocation A2LControl::awaitLocation() {
  SourceLocation location;
  std::string line;
  debt.beginWait();
  Patience listening(debt.waitEnd());
  while (expected > 0) {
    const Heard what = session.nextText(line, listening);
    if (what == Heard::End) {
      session.noteEnd();
      expected = 0;
    } else if (what == Heard::Silence) {
      if (debt.giveUp(std::exchange(expected, 0))) startAnew();
    } else if (takeReply(line, location)) {
      if (debt.heard()) listening.extend(debt.waitEnd());
    }
  }
  // What is readable when the reply is complete belongs to it; only an unknown place can still gain by it.
  Patience atHand(Clock::now());
  Heard more = Heard::Line;
  while (location.file.empty() && !debt.owes() && more == Heard::Line) {
    more = session.nextText(line, atHand);
    if (more == Heard::Line) takeReply(line, location);
  }
  if (more == Heard::End) session.noteEnd();
  return location;
}

void A2LControl::startAnew() {
  endA2L();
  if (restarts++ < maxRestarts) startA2L();
}

// Counts one line of output. Returns whether it is a reply rather than noise.
bool A2LControl::takeReply(const std::string& line, SourceLocation& location) {
  SourceLocation found;
  // A NUL ends the text, as it does in every line of the suite.
  const ReplyKind kind = parseReply(line.c_str(), found);
  if (kind == ReplyKind::Noise) return false;
  if (!debt.countReply()) return true;
  if (kind == ReplyKind::Location && location.file.empty()) location = found;
  if (expected > 0) --expected;
  return true;
}
