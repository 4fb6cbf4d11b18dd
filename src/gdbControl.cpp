#include "gdbControl.h"

#include <algorithm>
#include <csignal>
#include <cstdarg>
#include <cstdio>

const ToolNames GDBControl::names{"GDB", "gdb"};
ChildState GDBControl::child;
bool GDBControl::refusesDbx = false;

namespace {

constexpr std::string_view prompt = "(gdb) ";

}  // namespace

int GDBControl::startGDB() {
  signal(SIGCHLD, childhandler);
  debt.clear();
  if (launch(!refusesDbx) != 0) return -1;
  StartResult result = awaitFirstPrompt();
  if (result == StartResult::Refused) {
    refusesDbx = true;
    if (launch(false) != 0) return -1;
    result = awaitFirstPrompt();
  }
  if (result == StartResult::Nothing) {
    std::fprintf(stderr, "ERROR! Gdb did not start in %u seconds...\n", startPatience);
    return -1;
  }
  if (result == StartResult::NoPrompt && child.active()) debt.startMute(1);
  return 0;
}

int GDBControl::launch(bool withDbx) {
  std::vector<std::string> argv{"gdb", "--readnow"};
  if (withDbx) argv.emplace_back("--dbx");
  argv.insert(argv.end(), {"--nw", "--nx", exename});
  return session.start(
      {.argv = std::move(argv), .firstOutput = "starting gdb\n", .execFailureFormat = "ERROR: Cannot exec gdb: %s.\n"});
}

// Reads up to the first prompt. `Refused`: gdb ended before it with a text that names the option --dbx, whatever the
// language of the message.
GDBControl::StartResult GDBControl::awaitFirstPrompt() {
  std::string line;
  bool heard = false;
  bool namesDbx = false;
  const Deadline end = Clock::now() + maxSilences * std::chrono::seconds(startPatience);
  Patience listening(exchangeDeadline(startPatience));
  for (;;) {
    const Heard what = session.nextText(line, listening, prompt);
    if (what == Heard::Prompt) return StartResult::Prompt;
    if (what == Heard::End && namesDbx && !refusesDbx) return StartResult::Refused;
    if (what == Heard::End) session.noteEnd();
    if (what != Heard::Line) return heard ? StartResult::NoPrompt : StartResult::Nothing;
    listening.extend(std::min(end, exchangeDeadline(startPatience)));
    heard = true;
    namesDbx = namesDbx || line.find("--dbx") != std::string::npos;
  }
}

void GDBControl::endGDB() {
  const Deadline deadline = exchangeDeadline(endPatience);
  if (session.isRunning() && child.stillRuns()) {
    session.send("quit\nquit\n", deadline);
    session.awaitEnd(deadline);
  }
  child.forget();
}

ssize_t GDBControl::sendGDB(const char* str) { return session.send(str, exchangeDeadline(queryPatience)); }

response* GDBControl::convGDB(unsigned int timeout, const char* fmt, ...) {
  va_list arguments;
  va_start(arguments, fmt);
  // A prompt cut by a pause is a prompt all the same.
  std::string tail;
  auto* pieces = session.converse<response>(timeout, fmt, arguments, [&tail](const char* piece) {
    tail += piece;
    const bool prompted = tail.find(prompt) != std::string::npos;
    if (tail.ends_with('\n')) tail.clear();
    return prompted;
  });
  va_end(arguments);
  return pieces;
}

void GDBControl::childhandler(int) { collectChildren(); }

bool GDBControl::queryGDB(const std::string& command, const std::function<void(const std::string&)>& useLine) {
  if (!debt.owes()) session.dropTextAtHand(prompt);
  if (session.send(command, debt.waitEnd()) <= 0) return false;
  const Deadline end = Clock::now() + maxSilences * patience;
  debt.beginWait();
  Patience listening(debt.waitEnd());
  std::string line;
  for (;;) {
    const Heard what = session.nextText(line, listening, prompt);
    if (what == Heard::End) {
      session.noteEnd();
      return false;
    }
    if (what == Heard::Silence) {
      if (debt.giveUp(1)) child.kill(exchangeDeadline(1));
      return false;
    }
    debt.heard();
    listening.extend(std::min(end, debt.waitEnd()));
    if (what == Heard::Prompt && debt.countReply()) return true;
    if (what == Heard::Line && !debt.owes()) useLine(line);
  }
}
