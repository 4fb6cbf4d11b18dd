#include "gdbControl.h"

#include <algorithm>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <vector>

ChildState GDBControl::child_;
bool GDBControl::refusesDbx_ = false;

namespace {

constexpr ToolNames names{"GDB", "gdb"};
constexpr std::string_view prompt = "(gdb) ";
constexpr std::string_view header = "All variables matching regular expression \"";

}  // namespace

GDBControl::GDBControl(const char* exe, Clock::duration queryTimeout)
    : exename_(exe),
      session_(
          names, child_,
          {.prompt = prompt, .header = header, .timeout = queryTimeout, .timeoutBudget = maxTimeouts * queryTimeout}) {}

int GDBControl::startGDB() {
  if (session_.conversation().remainingBudget() == Clock::duration::zero()) return -1;
  std::signal(SIGCHLD, childhandler);
  for (bool retry = true; retry;) {
    std::vector<std::string> argv{"gdb", "--readnow", "--dbx", "--nw", "--nx", exename_};
    if (refusesDbx_) argv.erase(argv.begin() + 2);
    if (session_.start(argv, "starting gdb\n") != 0) return -1;
    bool namesDbx = false;
    const auto useLine = [&](std::string_view line) { namesDbx = namesDbx || line.find("--dbx") != line.npos; };
    const bool prompted = session_.awaitPrompt(std::chrono::seconds(startTimeoutSeconds), useLine);
    // A gdb that exits before its prompt with a message about the option, in any language, does not know it.
    retry = namesDbx && !refusesDbx_ && !prompted && child_.active() == 0;
    refusesDbx_ = refusesDbx_ || retry;
  }
  if (session_.conversation().received() > 0) return 0;
  std::fprintf(stderr, "ERROR! Gdb did not start in %u seconds...\n", startTimeoutSeconds);
  return -1;
}

void GDBControl::endGDB() {
  if (session_.isRunning() && !child_.reapIfExited()) {
    constexpr std::chrono::milliseconds least{200};
    const Clock::duration left = session_.conversation().remainingBudget();
    const Deadline deadline =
        Clock::now() + std::clamp<Clock::duration>(left, least, std::chrono::seconds(endTimeoutSeconds));
    session_.send("quit\nquit\n", deadline);
    session_.closeInputAndAwaitExit(deadline);
  }
  child_.markInactive();
}

ssize_t GDBControl::sendGDB(const char* str) { return session_.send(str, exchangeDeadline(queryTimeoutSeconds)); }

response* GDBControl::convGDB(unsigned int timeout, const char* fmt, ...) {
  va_list arguments;
  va_start(arguments, fmt);
  response* pieces = session_.converse(timeout, prompt, fmt, arguments);
  va_end(arguments);
  return pieces;
}

void GDBControl::childhandler(int) { ChildState::reapAll(); }

bool GDBControl::queryGDB(const std::string& command, std::string_view subject, const Conversation::Sink& useLine) {
  const Conversation& conversation = session_.conversation();
  for (int attempt = 0; attempt < 2 && conversation.remainingBudget() > Clock::duration::zero(); ++attempt) {
    if (isGdbActive() == 0 && startGDB() != 0) break;
    const std::size_t received = conversation.received();
    if (session_.exchange(command, {.subject = subject}, useLine)) return true;
    if (conversation.received() > received || isGdbActive() != 0) break;
  }
  return false;
}
