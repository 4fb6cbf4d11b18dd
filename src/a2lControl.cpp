#include "a2lControl.h"

#include <csignal>
#include <cstdarg>
#include <cstdlib>

#include "typeText.h"
#include "util.h"

ChildState A2LControl::child_;

namespace {

constexpr ToolNames names{"A2L", "a2l"};

constexpr std::chrono::milliseconds exitTimeout{200};  // from the end of a child's input to its exit
constexpr std::chrono::seconds reapTimeout{1};         // from SIGKILL to the reaping of the child

// GNU addr2line reads a line in chunks of this many characters, and answers each chunk.
constexpr std::size_t chunkSize = 99;

// A NUL ends a line, like every text in the suite's tables.
std::string_view untilNul(std::string_view line) { return line.substr(0, line.find('\0')); }

}  // namespace

LineKind classifyReply(std::string_view line) {
  for (const std::string_view diagnostic : {"addr2line: ", "BFD: ", "ERROR: "}) {
    if (line.starts_with(diagnostic)) return LineKind::Diagnostic;
  }
  const std::string_view text = untilNul(line);
  return text.starts_with("??") || text.find(':') != text.npos ? LineKind::Reply : LineKind::Other;
}

SourceLocation parseLocation(std::string_view line) {
  if (line.starts_with("??")) return {};
  line = untilNul(line);
  const std::string file(nextWord(line, ":"));
  const std::string number(nextWord(line, ":"));
  if (number.empty()) return {};
  return {file, static_cast<int>(std::strtol(number.c_str(), nullptr, 10))};
}

A2LControl::A2LControl(const char* exe, Clock::duration replyTimeout)
    : exename_(exe),
      session_(names, child_,
               {.classify = classifyReply, .timeout = replyTimeout, .timeoutBudget = maxTimeouts * replyTimeout}) {}

int A2LControl::startA2L() {
  std::signal(SIGCHLD, childhandler);
  return session_.start({"addr2line", "-e", exename_}, "");
}

void A2LControl::endA2L() {
  if (session_.conversation().received() == 0) session_.closeInputAndAwaitExit(Clock::now() + exitTimeout);
  child_.kill(Clock::now() + reapTimeout);
}

ssize_t A2LControl::sendA2L(const char* str) { return session_.send(str, Clock::now() + defaultReplyTimeout); }

reply* A2LControl::convA2L(unsigned int timeout, const char* fmt, ...) {
  va_list arguments;
  va_start(arguments, fmt);
  reply* pieces = session_.converse(timeout, "", fmt, arguments);
  va_end(arguments);
  return pieces;
}

void A2LControl::childhandler(int) { ChildState::reapAll(); }

SourceLocation A2LControl::locate(const char* address) {
  const std::string request = std::string(address) + '\n';
  const auto replies = static_cast<unsigned>((request.size() + chunkSize - 1) / chunkSize);
  SourceLocation location;
  // Nothing that a new child writes answers an earlier request.
  if (session_.conversation().outOfStep() && restarts_++ < maxRestarts) {
    child_.kill(Clock::now() + reapTimeout);
    startA2L();
  }
  session_.exchange(request, {.replies = replies}, [&location](std::string_view line) {
    if (location.file.empty()) location = parseLocation(line);
  });
  return location;
}
