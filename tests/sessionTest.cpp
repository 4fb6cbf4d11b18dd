// Sessions with fake tools that misbehave in every way, and what is left of them.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <csignal>
#include <functional>
#include <utility>

#include "a2lControl.h"
#include "gdbControl.h"
#include "support.h"

namespace {

// Checks at the end that no child and no descriptor is left.
class Session : public testing::Test {
 protected:
  void TearDown() override {
    signal(SIGCHLD, SIG_DFL);  // or the handler would reap children of the test framework
    EXPECT_EQ(openDescriptors(), descriptorsBefore);
    EXPECT_EQ(children(), 0);
  }
  FakeTools fake;
  int descriptorsBefore = openDescriptors();
};

using A2L = Session;
using GDB = Session;

// The pieces of a reply, each followed by "|". Frees the list.
std::string pieces(reply* list) {
  std::string text;
  for (const reply* at = list; at != nullptr; at = at->next) text += std::string(at->line) + "|";
  A2LControl::free_reply(list);
  return text;
}

std::string locate(A2LControl& session, const std::string& address) {
  const SourceLocation location = session.locate(address.c_str());
  return location.file + " " + std::to_string(location.line);
}

// The lines of the answer, each followed by "|"; "?" if it is incomplete.
std::string ask(GDBControl& session, const std::string& command) {
  std::string answer;
  const bool whole =
      session.queryGDB(command + "\n", command, [&](std::string_view line) { answer += std::string(line) + "|"; });
  return whole ? answer : "?";
}

// Runs `work` and returns what it writes to standard error.
std::string errorsOf(const std::function<void()>& work) {
  testing::internal::CaptureStderr();
  work();
  return testing::internal::GetCapturedStderr();
}

constexpr std::chrono::milliseconds timeout{2000};
constexpr std::chrono::hours never{1};  // a wait that takes so long exceeds the time limit of the test
constexpr unsigned int neverSeconds = 3600;

}  // namespace

TEST_F(A2L, PiecesOfAnExchange) {
  fake.addr2line(R"(
    printf '[%s][%s]\n' "$@"; echo $(ls /proc/self/fd)
    read a; printf "a.c:$a\nb.c:2\nrest"
    read a; printf '%04998d\n' 0
    read a; printf '%04999d\n' 0
    read a; printf 'one\0two\n'
    read a; echo '%s%n'
    read a; printf half; sleep 0.3; echo line
    read a)");
  const std::string full(4998, '0');
  A2LControl session("the program");
  EXPECT_EQ(pieces(session.convA2L(1, "%s", "")), "") << "not started";
  EXPECT_EQ(session.sendA2L("1\n"), -1);
  ASSERT_EQ(session.startA2L(), 0);
  EXPECT_EQ(session.isActive(), 1);
  EXPECT_EQ(pieces(session.convA2L(1, "%s", "")), "[-e][the program]\n|0 1 2 3\n|")
      << "3 is the directory that ls reads";
  EXPECT_EQ(pieces(session.convA2L(1, "%d\n", 7)), "a.c:7\n|b.c:2\n|rest|");
  EXPECT_EQ(pieces(session.convA2L(1, "\n")), full + "\n|");
  EXPECT_EQ(pieces(session.convA2L(1, "\n")), full + "0|\n|");
  EXPECT_EQ(pieces(session.convA2L(1, "\n")), "one|");
  EXPECT_EQ(pieces(session.convA2L(1, "\n")), "%s%n\n|");
  EXPECT_EQ(pieces(session.convA2L(1, "\n")), "half|line\n|");
  EXPECT_EQ(session.haveA2L(-1, 20), 0);
  session.endA2L();
  session.endA2L();
  EXPECT_EQ(session.isActive(), 0);
}

// The request is larger than a pipe, so it is written in parts.
TEST_F(A2L, LongRequestIsSentWhole) {
  fake.addr2line("head -c 200001 | wc -c");
  A2LControl session("x");
  ASSERT_EQ(session.startA2L(), 0);
  EXPECT_EQ(session.sendA2L((std::string(200000, 'a') + "\n").c_str()), 200001);
  EXPECT_EQ(pieces(session.convA2L(20, "%s", "")), "200001\n|");
}

// Also after restarts, which neither inherit text from the previous child nor leave it running.
TEST_F(A2L, RepliesArePairedWithTheirRequests) {
  fake.addr2line(R"(
    echo 'addr2line: DWARF error: a:1' >&2
    while read a; do
      sleep 0.005; printf "s$a"; sleep 0.005; echo .c:1                                  # in pieces
      read a; echo 'BFD: x:1' >&2; echo 'addr2line: y:2' >&2; seq 10000; echo "t$a.c:2"  # after noise
      read a; echo x.c:5; echo y.c:9                                                     # several at once
      read a; printf '??:0\nz.c:9\n'
      read a; echo '??:?'
      read a; printf 'n\0ul:1\nl.c: -7x\r\n'; sleep 0.005; echo l.c:2                   # a reply to each 99 characters
    done)");
  A2LControl session("x");
  for (int round = 0; round < 6; ++round) {
    for (int i = 0; round % 2 == 0 && i < 50; ++i) ASSERT_EQ(session.startA2L(), 0);
    EXPECT_EQ(locate(session, "1"), "s1.c 1");
    EXPECT_EQ(locate(session, "2%n"), "t2%n.c 2");
    EXPECT_EQ(locate(session, "3"), "x.c 5");
    EXPECT_EQ(locate(session, "4"), "z.c 9");
    EXPECT_EQ(locate(session, "5"), " 0");
    EXPECT_EQ(locate(session, std::string(99, 'a')), "l.c -7");
  }
  EXPECT_TRUE(becomesTrue([] { return children() == 1; })) << "earlier children end when their input is closed";
}

// The fake leaves three requests unanswered until a fourth has come: the late replies are not mistaken for those to
// later requests.
TEST_F(A2L, LateRepliesAreDropped) {
  const TempDir directory;
  fake.addr2line("echo >" + directory / "started" + R"(
    read a; echo a.c:1
    read a; read a; read a; read a; printf 'l.c:2\nl.c:3\nl.c:4\n'; sleep 0.005; echo d.c:5
    while read a; do echo "$a.c:6"; done)");
  A2LControl session("x", timeout);
  ASSERT_EQ(session.startA2L(), 0);
  ASSERT_TRUE(becomesTrue([&] { return !readFile(directory / "started").empty(); }));
  EXPECT_EQ(locate(session, "1"), "a.c 1");
  EXPECT_EQ(locate(session, "2") + locate(session, "3") + locate(session, "4"), " 0 0 0");
  // The fifth request gets its own reply if the fake is fast enough, otherwise none, but never a late one.
  const std::string fifth = locate(session, "5");
  EXPECT_TRUE(fifth == "d.c 5" || fifth == " 0") << fifth;
  EXPECT_TRUE(becomesTrue([&] { return locate(session, "e") == "e.c 6"; }));
  EXPECT_EQ(locate(session, "f"), "f.c 6");
}

// The replies do not show whether a request was skipped or the child is behind for good; a new child is in step.
TEST_F(A2L, ChildThatSkipsARequest) {
  const TempDir directory;
  fake.addr2line("echo >>" + directory / "starts" + R"(
    read a; echo a.c:1; read skipped; while read a; do echo "$a.c:3"; done)");
  A2LControl session("x", timeout);
  ASSERT_EQ(session.startA2L(), 0);
  ASSERT_TRUE(becomesTrue([&] { return !readFile(directory / "starts").empty(); }));
  EXPECT_EQ(locate(session, "1"), "a.c 1");
  EXPECT_EQ(locate(session, "2"), " 0");
  EXPECT_EQ(locate(session, "3"), " 0");
  EXPECT_TRUE(becomesTrue([&] { return locate(session, "4") == "a.c 1"; }));
  EXPECT_GE(readFile(directory / "starts").size(), 2U);
}

// Both sessions give up in time on a child that never stops writing.
TEST_F(A2L, Floods) {
  for (const std::string flood : {"yes noise", "yes noise | tr -d '\\n'", "yes '??:0'"}) {
    fake.addr2line("read a; " + flood);
    fake.gdb("printf '(gdb) '; read a; " + flood + " & read quit; kill $!");
    A2LControl session("x", timeout / 10);
    GDBControl debugger("x", timeout / 10);
    ASSERT_EQ(session.startA2L() + debugger.startGDB(), 0);
    for (int i = 0; i < 20; ++i) EXPECT_EQ(locate(session, "1"), " 0");
    EXPECT_EQ(ask(debugger, "x"), "?");
  }
}

// Whenever a child dies, before or during the wait for its reply, the wait ends without a message; also if another
// process still holds the pipe, so that only SIGCHLD reports the death.
TEST_F(A2L, ChildrenThatDie) {
  const struct {
    const char* script;
    const char* located = " 0";
    int times = 1;
  } cases[] = {{""},
               {"read a", " 0", 150},
               {"read a; exec 3<&0 4>&1; cat <&3 >/dev/null &", " 0", 150},
               {"kill -9 $$"},
               {"read a; printf half.c:"},
               {"read a; echo half.c:1; kill -9 $$", "half.c 1"},
               {"read a; exec sleep 100 >&- 2>&-"}};
  for (const auto& c : cases) {
    fake.addr2line(c.script);
    for (int i = 0; i < c.times; ++i) {
      A2LControl session("x", never);
      const std::string errors = errorsOf([&] {
        ASSERT_EQ(session.startA2L(), 0);
        EXPECT_EQ(locate(session, "1"), c.located) << c.script;
        EXPECT_EQ(locate(session, "2"), " 0") << c.script;
        EXPECT_EQ(pieces(session.convA2L(neverSeconds, "3\n")), "") << c.script;
      });
      ASSERT_EQ(errors, "") << c.script;
    }
  }
}

TEST_F(GDB, ChildrenThatDie) {
  const TempDir directory;
  for (const std::string script : {"", "echo no prompt", "printf '(gdb) '; read a; echo part"}) {
    writeFile(directory / "starts", "");
    fake.gdb("echo >>" + directory / "starts\n" + script);
    GDBControl session("x", never);
    const std::string errors = errorsOf([&] {
      EXPECT_EQ(session.startGDB(), 0);
      EXPECT_EQ(readFile(directory / "starts"), "\n") << script;
      EXPECT_EQ(ask(session, "1"), "?");
      EXPECT_EQ(session.isGdbActive(), 0);
      session.endGDB();
    });
    EXPECT_EQ(errors, "") << script;
  }
}

TEST_F(A2L, ToolThatCannotBeExecuted) {
  setenv("PATH", "/none", 1);
  A2LControl session("x");
  EXPECT_EQ(errorsOf([&] { EXPECT_EQ(session.startA2L(), 0); }), "");
  EXPECT_EQ(session.isActive(), 0);
  EXPECT_EQ(session.sendA2L("1\n"), -1);
  EXPECT_EQ(pieces(session.convA2L(0, "1\n")), "ERROR: Cannot exec a2l: No such file or directory.\n|");
}

TEST_F(A2L, ChildThatNeverReads) {
  fake.addr2line("trap '' TERM; exec sleep 100");
  A2LControl session("x");
  ASSERT_EQ(session.startA2L(), 0);
  const std::string request(4000, 'a');
  for (int i = 0; i < 100; ++i) EXPECT_EQ(pieces(session.convA2L(0, "%s\n", request.c_str())), "");
}

TEST_F(A2L, StandardDescriptorsClosed) {
  fake.addr2line("echo $(ls /proc/self/fd)");
  const auto converse = [] {
    for (int fd = 0; fd <= 2; ++fd) close(fd);
    A2LControl session("x");
    session.startA2L();
    _exit(pieces(session.convA2L(1, "%s", "")) == "0 1 2 3\n|" ? 0 : 1);
  };
  EXPECT_EXIT(converse(), testing::ExitedWithCode(0), "");
}

TEST_F(GDB, StartQueryEnd) {
  fake.gdb(R"(
    case "$*" in *--dbx*) echo "gdb: unrecognized option '--dbx'" >&2; exit 1;; esac
    printf 'banner\n(g'; sleep 0.005; printf 'db) '
    read a; printf 'one\ntwo\n(g'; sleep 0.3; printf 'db) '
    read a; echo 'x (gdb) y'
    read a; printf "[$a]\n(gdb) "
    read a; printf h; sleep 0.005; printf 'alf\n(gdb) '
    read a)");
  GDBControl session("the program", never);
  EXPECT_EQ(pieces(session.convGDB(neverSeconds, "x\n")), "") << "not started";
  const std::string errors = errorsOf([&] {
    ASSERT_EQ(session.startGDB(), 0);
    EXPECT_EQ(session.isGdbActive(), 1);
    EXPECT_EQ(pieces(session.convGDB(neverSeconds, "%s\n", "info var x")), "one\n|two\n|(g|");
    EXPECT_EQ(pieces(session.convGDB(neverSeconds, "2\n")), "");
    EXPECT_EQ(pieces(session.convGDB(neverSeconds, "three\n")), "[three]\n|");
    EXPECT_EQ(ask(session, "4"), "half|");
    session.endGDB();
  });
  EXPECT_EQ(errors, "");
  EXPECT_EQ(session.isGdbActive(), 0);
}

// Each question to a silent gdb takes the timeout, and none once the time for all of them is used up, even if gdb does
// not quit. Its late answers are recognized by their prompts.
TEST_F(GDB, LateAnswersAreDropped) {
  const TempDir directory;
  fake.gdb("echo $$ >" + directory / "id" + R"(
    printf '(gdb) '
    read a; read a; read a; printf '1\n(gdb) 2 (gdb) x\n(gdb) '
    while read a; do [ $a = mute ] || [ $a = quit ] || printf "$a\n(gdb) "; done
    exec sleep 1000)");
  GDBControl session("x", timeout / 4);
  ASSERT_EQ(session.startGDB(), 0);
  EXPECT_EQ(ask(session, "1"), "?");
  EXPECT_EQ(ask(session, "2"), "?");
  // These two answers may also come too late, but are never mistaken for others.
  for (const auto& [question, own] : {std::pair("3", "x|"), std::pair("4", "4|")}) {
    const std::string answer = ask(session, question);
    EXPECT_TRUE(answer == own || answer == "?") << answer;
  }
  for (int i = 0; i < GDBControl::maxTimeouts; ++i) EXPECT_EQ(ask(session, "mute"), "?");
  for (int i = 0; i < 1000; ++i) EXPECT_EQ(ask(session, "5"), "?");
  session.endGDB();
  const pid_t leftBehind = std::stoi(readFile(directory / "id"));
  kill(leftBehind, SIGKILL);
  waitpid(leftBehind, nullptr, 0);  // unless the SIGCHLD handler has
}
