#include "gdbControl.h"

#include <algorithm>
#include <cstdarg>

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
  mute = false;
  if (launch(!refusesDbx) != 0) return -1;
  StartResult result = awaitFirstPrompt();
  if (result == StartResult::Refused && !refusesDbx) {
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
    mute = true;
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
  for (;;) {
    const Text text = session.nextText(line, std::min(end, exchangeDeadline(startPatience)), prompt);
    if (text == Text::Prompt) return StartResult::Prompt;
    if (text == Text::End) session.noteEnd(false);
    if (text == Text::End && namesDbx) return StartResult::Refused;
    if (text != Text::Line) return heard ? StartResult::NoPrompt : StartResult::Nothing;
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
  char textbuf[ToolSession::textSize];
  va_list arguments;
  va_start(arguments, fmt);
  std::vsnprintf(textbuf, sizeof textbuf, fmt, arguments);
  va_end(arguments);
  // A prompt cut by a pause is a prompt all the same.
  std::string tail;
  return session.converse<response>(timeout, textbuf, [&tail](const char* piece) {
    tail += piece;
    const bool prompted = tail.find(prompt) != std::string::npos;
    if (tail.ends_with('\n')) tail.clear();
    return prompted;
  });
}

void GDBControl::childhandler(int) { collectChildren(); }

bool GDBControl::queryGDB(const std::string& command, const std::function<void(const std::string&)>& useLine) {
  if (overdue == 0) session.dropTextAtHand();
  const bool wasRunning = session.isRunning();
  const auto nextDeadline = [&] { return exchangeDeadline(mute ? 0 : queryPatience); };
  if (session.send(command, nextDeadline()) <= 0) return false;
  const Deadline end = Clock::now() + mostPatiences * std::chrono::seconds(queryPatience);
  std::string line;
  for (;;) {
    const Text text = session.nextText(line, std::min(end, nextDeadline()), prompt);
    if (text == Text::End) {
      session.noteEnd(wasRunning);
      return false;
    }
    mute = text == Text::Silence;
    if (mute) ++overdue;
    if (mute || (text == Text::Prompt && overdue == 0)) return !mute;
    if (text == Text::Prompt) --overdue;
    if (text == Text::Line && overdue == 0) useLine(line);
  }
}
