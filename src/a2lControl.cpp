#include "a2lControl.h"

#include <csignal>
#include <cstdarg>

#include "typeText.h"
#include "util.h"

ChildState A2LControl::child_;

namespace {

constexpr ToolNames names{"A2L", "a2l"};

// How long a child that was never heard may take to see the end of its input, and how long one that was killed may take
// to be collected.
constexpr std::chrono::milliseconds goodbyePatience{200};
constexpr std::chrono::seconds killPatience{1};

// GNU addr2line reads this many characters of a line at a time, and answers each part.
constexpr std::size_t charactersAtATime = 99;

// A NUL ends a line, as it does in every text of the suite.
std::string_view untilNul(std::string_view line) { return line.substr(0, line.find('\0')); }

}  // namespace

LineKind kindOfReply(std::string_view line) {
  for (const std::string_view diagnostic : {"addr2line: ", "BFD: ", "ERROR: "}) {
    if (line.starts_with(diagnostic)) return LineKind::Diagnostic;
  }
  const std::string_view text = untilNul(line);
  return text.starts_with("??") || text.find(':') != text.npos ? LineKind::Reply : LineKind::Other;
}

SourceLocation locationIn(std::string_view line) {
  if (line.starts_with("??")) return {};
  line = untilNul(line);
  const std::string file(takeWord(line, ":"));
  const std::string number(takeWord(line, ":"));
  if (number.empty()) return {};
  return {file, saturatingInt(number.c_str(), 10)};
}

A2LControl::A2LControl(const char* exe, Clock::duration replyWait)
    : exename_(exe),
      session_(names, child_, {.kindOf = kindOfReply, .patience = replyWait, .allInVain = maxTimeouts * replyWait}) {}

int A2LControl::startA2L() {
  std::signal(SIGCHLD, childhandler);
  return session_.start({"addr2line", "-e", exename_}, "");
}

void A2LControl::endA2L() {
  if (session_.conversation().heard() == 0) session_.awaitEnd(Clock::now() + goodbyePatience);
  child_.kill(Clock::now() + killPatience);
}

ssize_t A2LControl::sendA2L(const char* str) { return session_.send(str, Clock::now() + replyPatience); }

reply* A2LControl::convA2L(unsigned int timeout, const char* fmt, ...) {
  va_list arguments;
  va_start(arguments, fmt);
  reply* pieces = session_.converse(timeout, "", fmt, arguments);
  va_end(arguments);
  return pieces;
}

void A2LControl::childhandler(int) { ChildState::collectAll(); }

SourceLocation A2LControl::locate(const char* address) {
  const std::string request = std::string(address) + '\n';
  const auto replies = static_cast<unsigned>((request.size() + charactersAtATime - 1) / charactersAtATime);
  SourceLocation location;
  session_.exchange(request, {.replies = replies}, [&location](std::string_view line) {
    if (location.file.empty()) location = locationIn(line);
  });
  return location;
}
