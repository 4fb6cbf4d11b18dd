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

GDBControl::GDBControl(const char* exe, Clock::duration queryWait)
    : exename_(exe),
      session_(names, child_,
               {.prompt = prompt, .header = header, .patience = queryWait, .allInVain = maxTimeouts * queryWait}) {}

int GDBControl::startGDB() {
  if (session_.conversation().left() == Clock::duration::zero()) return -1;
  std::signal(SIGCHLD, childhandler);
  for (bool again = true; again;) {
    std::vector<std::string> argv{"gdb", "--readnow", "--dbx", "--nw", "--nx", exename_};
    if (refusesDbx_) argv.erase(argv.begin() + 2);
    if (session_.start(argv, "starting gdb\n") != 0) return -1;
    bool namesDbx = false;
    const auto useLine = [&](std::string_view line) { namesDbx = namesDbx || line.find("--dbx") != line.npos; };
    const bool prompted = session_.hear(std::chrono::seconds(startPatience), useLine);
    // One that ends before its prompt with a text that names the option, in whatever language, does not know it.
    again = namesDbx && !refusesDbx_ && !prompted && child_.active() == 0;
    refusesDbx_ = refusesDbx_ || again;
  }
  if (session_.conversation().heard() > 0) return 0;
  std::fprintf(stderr, "ERROR! Gdb did not start in %u seconds...\n", startPatience);
  return -1;
}

void GDBControl::endGDB() {
  if (session_.isRunning() && child_.stillRuns()) {
    constexpr std::chrono::milliseconds least{200};
    const Clock::duration left = session_.conversation().left();
    const Deadline deadline =
        Clock::now() + std::clamp<Clock::duration>(left, least, std::chrono::seconds(endPatience));
    session_.send("quit\nquit\n", deadline);
    session_.awaitEnd(deadline);
  }
  child_.forget();
}

ssize_t GDBControl::sendGDB(const char* str) { return session_.send(str, exchangeDeadline(queryPatience)); }

response* GDBControl::convGDB(unsigned int timeout, const char* fmt, ...) {
  va_list arguments;
  va_start(arguments, fmt);
  response* pieces = session_.converse(timeout, prompt, fmt, arguments);
  va_end(arguments);
  return pieces;
}

void GDBControl::childhandler(int) { ChildState::collectAll(); }

bool GDBControl::queryGDB(const std::string& command, std::string_view subject, const Conversation::Sink& useLine) {
  const Conversation& conversation = session_.conversation();
  for (int attempt = 0; attempt < 2 && conversation.left() > Clock::duration::zero(); ++attempt) {
    if (isGdbActive() == 0 && startGDB() != 0) break;
    const std::size_t heard = conversation.heard();
    if (session_.exchange(command, {.subject = subject}, useLine)) return true;
    if (conversation.heard() > heard || isGdbActive() != 0) break;
  }
  return false;
}
