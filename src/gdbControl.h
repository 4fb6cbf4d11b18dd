// The debugger session: a child gdb on the executable and the exchanges with it, each ended by gdb's "(gdb) " prompt.
// The type query (objRead) keeps one GDBControl for the whole process.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>

#include "toolSession.h"

/// A session with gdb, which is asked to quit when this object is destroyed.
class GDBControl {
 public:
  /// Timeouts in seconds: for silence during the start and within an answer, and for gdb to quit.
  static constexpr unsigned int startTimeoutSeconds = 120;
  static constexpr unsigned int queryTimeoutSeconds = 20;
  static constexpr unsigned int endTimeoutSeconds = 60;
  /// All waits that time out take at most this many times the timeout of a query.
  static constexpr int maxTimeouts = 6;

  /// `exe`: path of the executable to debug; `queryTimeout`: for silence within an answer of queryGDB. Starts nothing.
  explicit GDBControl(const char* exe, Clock::duration queryTimeout = std::chrono::seconds(queryTimeoutSeconds));
  ~GDBControl() { endGDB(); }
  GDBControl(const GDBControl&) = delete;
  GDBControl& operator=(const GDBControl&) = delete;

  /// Installs the SIGCHLD handler, starts gdb and waits for its first prompt. A gdb that does not know the option --dbx
  /// is started once more without it. Returns 0; -1 after a message on standard error when a pipe or the fork fails or
  /// gdb writes nothing; -1 without a message when the timeout budget is used up. When gdb cannot be
  /// executed, or exits before its prompt, returns 0, but the session is not active.
  int startGDB();

  /// Asks gdb to quit, and waits until it has exited, at most `endTimeoutSeconds`. Does nothing if it has already.
  void endGDB();

  /// Like the operations of A2LControl; convGDB also ends with a piece that contains gdb's prompt, which is not part of
  /// the list.
  ssize_t sendGDB(const char* str);
  int haveGDB(int fd, int tmout) { return session_.have(fd, tmout); }
  int readGDB(char* buf, std::size_t len) { return session_.readPiece(buf, len); }
  response* convGDB(unsigned int timeout, const char* fmt, ...) __attribute__((format(printf, 3, 4)));
  static void free_response(response* rp) { freeReplies(rp); }
  int isGdbActive() const { return child_.active(); }
  static void childhandler(int sig);

  /// Sends `command`, which ends in a newline and asks for `subject`, and passes each complete line of the answer to
  /// this command, up to the prompt and without newlines, to `useLine`. Starts gdb if it is not active, and once more
  /// when it exits before the first byte of the answer. Gives up after `queryTimeout` of silence, and asks nothing more
  /// after `maxTimeouts` times that in all. Late answers to earlier commands are recognized by their prompts, or by
  /// their header lines, and discarded. Returns whether the answer ended with a prompt.
  bool queryGDB(const std::string& command, std::string_view subject, const Conversation::Sink& useLine);

 private:
  static ChildState child_;
  static bool refusesDbx_;  // known after the first start
  const std::string exename_;
  ToolSession session_;
};
