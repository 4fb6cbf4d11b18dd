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

// An answer that never ends is given up after this many patiences, however busily it flows.
constexpr int mostPatiences = 6;

}  // namespace

int GDBControl::startGDB() {
  signal(SIGCHLD, childhandler);
  overdue = 0;
  vain = 0;
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
  if (result == StartResult::NoPrompt && child.active()) {
    overdue = 1;
    vain = mostVain;
  }
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
  const Deadline end = Clock::now() + mostPatiences * std::chrono::seconds(startPatience);
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

// The end of a silence that begins now.
Deadline GDBControl::patienceEnd() const {
  return Clock::now() + (vain >= mostVain ? Clock::duration(pieceEndPause) : patience);
}

bool GDBControl::queryGDB(const std::string& command, const std::function<void(const std::string&)>& useLine) {
  if (overdue == 0) session.dropTextAtHand();
  if (session.send(command, patienceEnd()) <= 0) return false;
  const Deadline end = Clock::now() + mostPatiences * patience;
  Patience listening(patienceEnd());
  std::string line;
  for (bool paid = false;;) {
    const Heard what = session.nextText(line, listening, prompt);
    if (what == Heard::End) session.noteEnd();
    if (what == Heard::Silence) giveUp(paid);
    if (what == Heard::End || what == Heard::Silence) return false;
    vain = 0;
    listening.extend(std::min(end, patienceEnd()));
    if (what == Heard::Prompt && overdue == 0) return true;
    if (what == Heard::Prompt) paid = overdue-- > 0;
    if (what == Heard::Line && overdue == 0) useLine(line);
  }
}

// Ends a wait that was in vain. `paid`: overdue prompts did come, but not all that gdb owed. Then nobody knows any more
// to which command the next one belongs, and only a new gdb can be trusted.
void GDBControl::giveUp(bool paid) {
  ++overdue;
  ++vain;
  if (paid) child.kill(exchangeDeadline(1));
}
