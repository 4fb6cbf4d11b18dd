// The debugger session: a child gdb on the executable and the exchanges with it, each ended by gdb's "(gdb) " prompt.
// The type query keeps one GDBControl for the whole process.
#pragma once

#include <cstddef>
#include <functional>
#include <string>

#include "replyDebt.h"
#include "toolSession.h"

/// One received piece of text; a list of them belongs to the caller of the exchange that returned it.
struct response {
  response* next;  ///< null at the end of the list
  char* line;      ///< NUL-terminated, with its newline when one was received; null after an out-of-memory failure
};

class GDBControl {
 public:
  /// Longest silences, in seconds, during the start, within the answer to a query, and at the end.
  static constexpr unsigned int startPatience = 120;
  static constexpr unsigned int queryPatience = 20;
  static constexpr unsigned int endPatience = 60;
  /// Waits in vain in a row after which gdb is taken for mute.
  static constexpr int maxTimeouts = 3;
  /// An answer that never ends is given up after this many longest silences, however busily it flows.
  static constexpr int maxSilences = 6;

  /// `exe`: path of the executable to debug; `queryWait`: longest silence within an answer of queryGDB. Starts nothing.
  explicit GDBControl(const char* exe, Clock::duration queryWait = std::chrono::seconds(queryPatience))
      : exename(exe), patience(queryWait), session(names, child), debt(queryWait, maxTimeouts) {}
  ~GDBControl() { endGDB(); }
  GDBControl(const GDBControl&) = delete;
  GDBControl& operator=(const GDBControl&) = delete;

  /// Installs the SIGCHLD handler, starts gdb and waits for its first prompt. A gdb that does not know the option
  /// --dbx is started once more without it. Returns 0, or -1 after a message on standard error when a pipe or the
  /// fork fails or nothing at all arrives. When gdb cannot be executed, or ends before its prompt, the result is 0
  /// and the session is not active.
  int startGDB();

  /// Asks gdb to quit and waits until it is gone, at most `endPatience`. Does nothing when it is gone already.
  void endGDB();

  /// Sends `str`. Returns the bytes taken; -1 when none was: the session is not active, or gdb does not read.
  ssize_t sendGDB(const char* str);

  /// 1 when `fd` becomes readable within `tmout` seconds and 100 microseconds, else 0 (a signal ends the wait).
  int haveGDB(int fd, int tmout) { return session.have(fd, tmout); }

  /// Reads one piece of gdb's text into `buf` of `len` bytes: a line with its newline, the text before a pause of 100
  /// microseconds, or len - 1 characters. Returns the characters stored, else 0 or a read error's -1.
  int readGDB(char* buf, std::size_t len) { return session.readPiece(buf, len); }

  /// One exchange: sends the formatted text (at most 4999 characters; none if empty) and collects pieces up to the
  /// one that holds gdb's prompt, or until `timeout` seconds and 100 microseconds of silence. Returns the list
  /// without the prompt, to be released with free_response; null when nothing came.
  response* convGDB(unsigned int timeout, const char* fmt, ...) __attribute__((format(printf, 3, 4)));

  /// Frees a list returned by convGDB; null is allowed.
  static void free_response(response* rp) { PieceList<response>::release(rp); }

  /// 1 while a child is believed to run, else 0.
  int isGdbActive() const { return child.active(); }

  /// The SIGCHLD handler: collects every child of the process that has ended.
  static void childhandler(int sig);

  /// An exchange that is paired with its own answer: sends `command`, which ends in a newline, and hands each line of
  /// the answer, newline removed and pauses within it joined, to `useLine`, up to the prompt. Gives up after
  /// `queryWait` of silence; once that has been in vain `maxTimeouts` times in a row, after 100 microseconds, until gdb
  /// is heard again; and after `maxSilences` times `queryWait` in all. Answers to commands given up before are
  /// recognised by their prompts and dropped. A gdb that lost a prompt cannot be followed any more: it is killed, and
  /// the session is not active. False when the answer did not come whole, or the session is not active.
  bool queryGDB(const std::string& command, const std::function<void(const std::string&)>& useLine);

 private:
  enum class StartResult { Prompt, Refused, Nothing, NoPrompt };

  int launch(bool withDbx);
  StartResult awaitFirstPrompt();

  static const ToolNames names;
  static ChildState child;
  static bool refusesDbx;  // learnt at the first start
  const std::string exename;
  const Clock::duration patience;
  ToolSession session;
  ReplyDebt debt;  // in prompts
};
