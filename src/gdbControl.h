// The debugger session: a child gdb on the executable and the exchanges with it, each ended by gdb's "(gdb) " prompt.
// The type query keeps one GDBControl for the whole process.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>

#include "toolSession.h"

class GDBControl {
 public:
  /// Longest silences, in seconds, during the start, within the answer to a query, and at the end.
  static constexpr unsigned int startPatience = 120;
  static constexpr unsigned int queryPatience = 20;
  static constexpr unsigned int endPatience = 60;
  /// All waits in vain together take at most this many times the silence of a query.
  static constexpr int maxTimeouts = 6;

  /// `exe`: path of the executable to debug; `queryWait`: longest silence within an answer of queryGDB. Starts nothing.
  explicit GDBControl(const char* exe, Clock::duration queryWait = std::chrono::seconds(queryPatience));
  ~GDBControl() { endGDB(); }
  GDBControl(const GDBControl&) = delete;
  GDBControl& operator=(const GDBControl&) = delete;

  /// Installs the SIGCHLD handler, starts gdb and waits for its first prompt. A gdb that does not know the option
  /// --dbx is started once more without it. Returns 0; -1 after a message on standard error when a pipe or the fork
  /// fails or nothing at all arrives; -1 without a message when the time of all waits in vain is used up. When gdb
  /// cannot be executed, or ends before its prompt, the result is 0 and the session is not active.
  int startGDB();

  /// Asks gdb to quit and waits until it is gone, at most `endPatience`. Does nothing when it is gone already.
  void endGDB();

  /// As the operations of A2LControl; an exchange of convGDB also ends with a piece that holds gdb's prompt, which is
  /// not part of the list.
  ssize_t sendGDB(const char* str);
  int haveGDB(int fd, int tmout) { return session_.have(fd, tmout); }
  int readGDB(char* buf, std::size_t len) { return session_.readPiece(buf, len); }
  response* convGDB(unsigned int timeout, const char* fmt, ...) __attribute__((format(printf, 3, 4)));
  static void free_response(response* rp) { releasePieces(rp); }
  int isGdbActive() const { return child_.active(); }
  static void childhandler(int sig);

  /// An exchange that is paired with its own answer: sends `command`, which ends in a newline and asks for `subject`,
  /// and hands each line of the answer, newline removed and pauses within it joined, to `useLine`, up to the prompt.
  /// Starts gdb if it is not active, and once more when it ends before the first byte of the answer. Gives up after
  /// `queryWait` of silence, and asks nothing more after `maxTimeouts` times that in all. Answers to earlier questions
  /// are recognised by their prompts, or by what gdb says that it answers, and dropped. Returns whether the answer
  /// ended with a prompt.
  bool queryGDB(const std::string& command, std::string_view subject, const Conversation::Sink& useLine);

 private:
  static ChildState child_;
  static bool refusesDbx_;  // learnt at the first start
  const std::string exename_;
  ToolSession session_;
};
