#include "gdbControl.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <vector>

const ToolNames GDBControl::names{"GDB", "gdb"};
ChildState GDBControl::child;
bool GDBControl::refusesDbx = false;

namespace {

constexpr std::string_view prompt = "(gdb) ";
constexpr std::string_view header = "All variables matching regular expression \"";

}  // namespace

GDBControl::GDBControl(const char* exe, Clock::duration queryWait)
    : exename(exe),
      session(names, child),
      conversation({.prompt = prompt, .header = header, .patience = queryWait, .allInVain = maxTimeouts * queryWait}) {}

int GDBControl::startGDB() {
  if (conversation.left() == Clock::duration::zero()) return -1;
  signal(SIGCHLD, childhandler);
  for (bool again = true; again;) {
    conversation.start();
    std::vector<std::string> argv{"gdb", "--readnow", "--dbx", "--nw", "--nx", exename};
    if (refusesDbx) argv.erase(argv.begin() + 2);
    if (session.start({argv, "starting gdb\n", "gdb"}) != 0) return -1;
    bool namesDbx = false;
    const auto useLine = [&](std::string_view line) { namesDbx = namesDbx || line.find("--dbx") != line.npos; };
    session.exchange(conversation, "", {.patience = std::chrono::seconds(startPatience)}, useLine);
    // One that ends before its prompt with a text that names the option, in whatever language, does not know it.
    again = namesDbx && !refusesDbx && !conversation.complete() && child.active() == 0;
    refusesDbx = refusesDbx || again;
  }
  if (conversation.heard()) return 0;
  std::fprintf(stderr, "ERROR! Gdb did not start in %u seconds...\n", startPatience);
  return -1;
}

void GDBControl::endGDB() {
  if (session.isRunning() && child.stillRuns()) {
    constexpr std::chrono::milliseconds least{200};
    const auto patience = std::clamp<Clock::duration>(conversation.left(), least, std::chrono::seconds(endPatience));
    const Deadline deadline = Clock::now() + patience;
    session.send("quit\nquit\n", deadline);
    session.awaitEnd(deadline);
  }
  child.forget();
}

ssize_t GDBControl::sendGDB(const char* str) { return session.send(str, exchangeDeadline(queryPatience)); }

response* GDBControl::convGDB(unsigned int timeout, const char* fmt, ...) {
  va_list arguments;
  va_start(arguments, fmt);
  response* pieces = session.converse(timeout, prompt, fmt, arguments);
  va_end(arguments);
  return pieces;
}

void GDBControl::childhandler(int) { collectChildren(); }

GDBControl::Answer GDBControl::queryGDB(const std::string& command, std::string_view subject,
                                        const Conversation::Sink& useLine) {
  if (!session.isRunning() || conversation.left() == Clock::duration::zero()) return Answer::Partial;
  if (session.exchange(conversation, command, {.subject = subject}, useLine)) return Answer::Whole;
  return conversation.heard() || child.active() ? Answer::Partial : Answer::Died;
}
