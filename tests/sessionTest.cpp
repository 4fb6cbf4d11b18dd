// The conversations with the child tools: with fakes that misbehave in every way, and what is left afterwards.
#include <gtest/gtest.h>

#include <csignal>
#include <functional>

#include "a2lControl.h"
#include "gdbControl.h"
#include "support.h"

namespace {

// Checks at the end that no child and no descriptor is left.
class Session : public testing::Test {
 protected:
  void TearDown() override {
    signal(SIGCHLD, SIG_DFL);  // or it would collect the children of the test framework
    EXPECT_EQ(openDescriptors(), descriptorsBefore);
    EXPECT_EQ(children(), 0);
  }
  FakeTools fake;
  int descriptorsBefore = openDescriptors();
};

using A2L = Session;
using GDB = Session;

// The pieces of a list, "|" behind each; the list is freed.
template <typename Node>
std::string pieces(Node* list) {
  std::string text;
  for (const Node* at = list; at != nullptr; at = at->next) text += std::string(at->line) + "|";
  PieceList<Node>::release(list);
  return text;
}

std::string locate(A2LControl& session, const std::string& address) {
  session.requestLocation(address.c_str());
  const SourceLocation location = session.awaitLocation();
  return location.file + " " + std::to_string(location.line);
}

template <typename Work>
std::string errorsOf(Work work) {
  testing::internal::CaptureStderr();
  work();
  return testing::internal::GetCapturedStderr();
}

constexpr std::chrono::seconds patience{2};

// Ends when it has read a line, but leaves a process that holds its pipes until the input ends.
constexpr const char* heir = "read a; exec 3<&0 4>&1; cat <&3 >/dev/null &";

// Whether `condition` comes true in time, however busy the machine.
bool comesTrue(const std::function<bool()>& condition) {
  const Deadline end = Clock::now() + std::chrono::seconds(60);
  bool met = condition();
  for (; !met && Clock::now() < end; met = condition()) usleep(1000);
  return met;
}

double secondsOf(const std::function<void()>& work) {
  const Deadline start = Clock::now();
  work();
  return std::chrono::duration<double>(Clock::now() - start).count();
}

}  // namespace

TEST_F(A2L, PiecesOfAnExchange) {
  fake.addr2line(R"(
    printf '[%s][%s]\n' "$@"; echo $(ls /proc/self/fd)
    read a; printf "a.c:$a\nb.c:2\nrest"
    read a; printf '%04998d\n' 0
    read a; printf '%04999d\n' 0
    read a; printf 'one\0two\n'
    read a; echo '%s%n'
    read a; printf half; sleep 0.005; echo line
    read a)");
  const std::string full(4998, '0');
  A2LControl session("the program");
  EXPECT_EQ(pieces(session.convA2L(1, "%s", "")), "") << "not started";
  EXPECT_EQ(session.sendA2L("1\n"), -1);
  ASSERT_EQ(session.startA2L(), 0);
  EXPECT_EQ(session.isActive(), 1);
  EXPECT_EQ(pieces(session.convA2L(1, "%s", "")), "[-e][the program]\n|0 1 2 3\n|") << "3 is the list itself";
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

TEST_F(A2L, RepliesArePairedWithTheirRequests) {
  fake.addr2line(R"(
    echo 'addr2line: DWARF error: a:1' >&2
    while read a; do
      sleep 0.005; printf "s$a"; sleep 0.005; echo .c:1                                         # in pieces
      read a; echo 'BFD: x:1' >&2; echo 'addr2line: y:2' >&2; seq 10000; echo "t$a.c:2"         # after noise
      read a; printf 'x.c:5\ny.c:9\n'                                                           # several at once
      read a; printf '??:0\nz.c:9\n'
      read a; echo '??:?'
      read a; printf 'main.c:\nn\0ul:1\nlong.c:1\nlong.c:2\nlong.c:3\n'
    done)");
  const std::string address244(244, 'a');
  A2LControl session("x");
  ASSERT_EQ(session.startA2L(), 0);
  for (int round = 0; round < 3; ++round) {
    EXPECT_EQ(locate(session, "1"), "s1.c 1");
    EXPECT_EQ(locate(session, "2%n"), "t2%n.c 2");
    EXPECT_EQ(locate(session, "3"), "x.c 5");
    EXPECT_EQ(locate(session, "4"), "z.c 9");
    EXPECT_EQ(locate(session, "5"), " 0");
    EXPECT_EQ(locate(session, address244), "long.c 1");
  }
}

// The real tool, thousands of times in a row, as in a batch.
TEST(RealTool, AnswersAsInABatch) {
  const TempDir directory;
  const std::string program = directory / "program";
  const RunResult built = run("make -s -C " EXAMPLES_DIRECTORY "/inventory PROGRAM=" + program + "; nm " + program +
                              " | grep -i ' [bdruv] ' | cut -d' ' -f1");
  const std::vector<std::string> addresses = splitAt(built.out, '\n');
  const std::vector<std::string> batch =
      splitAt(run("nm " + program + " | grep -i ' [bdruv] ' | addr2line -e " + program).out, '\n');
  ASSERT_GT(addresses.size(), 40u) << built.err;
  A2LControl session(program.c_str());
  ASSERT_EQ(session.startA2L(), 0);
  for (std::size_t i = 0; i < 5000; ++i) {
    SourceLocation wanted;
    parseReply(batch[i % batch.size()], wanted);
    ASSERT_EQ(locate(session, addresses[i % addresses.size()]), wanted.file + " " + std::to_string(wanted.line));
  }
  session.endA2L();
  signal(SIGCHLD, SIG_DFL);
}

// The fake leaves three requests unanswered until a fourth has come. The first costs the patience, the others next to
// nothing, and the late replies are not taken for those of later requests.
TEST_F(A2L, LateRepliesAreDropped) {
  fake.addr2line(R"(
    read a; echo a.c:1
    read a; read a; read a; read a; printf 'l.c:2\nl.c:3\nl.c:4\n'; sleep 0.005; echo d.c:5
    while read a; do echo "$a.c:6"; done)");
  A2LControl session("x", patience);
  ASSERT_EQ(session.startA2L(), 0);
  EXPECT_EQ(locate(session, "1"), "a.c 1");
  EXPECT_GE(secondsOf([&] { EXPECT_EQ(locate(session, "2"), " 0"); }), 1.9);
  EXPECT_LT(secondsOf([&] { EXPECT_EQ(locate(session, "3") + locate(session, "4"), " 0 0"); }), 1.9);
  // The reply to the fifth request is within reach only if the fake was fast enough; it is never a late one.
  const std::string fifth = locate(session, "5");
  EXPECT_TRUE(fifth == "d.c 5" || fifth == " 0") << fifth;
  EXPECT_TRUE(comesTrue([&] { return locate(session, "e") == "e.c 6"; }));
  EXPECT_EQ(locate(session, "f"), "f.c 6");
}

// A reply that never comes costs the variable its place and the next one too; then the child is started anew, and a few
// times only.
TEST_F(A2L, LostRepliesDoNotShiftTheOthers) {
  fake.addr2line("read a; read a; while read a; do echo $a.c:1; done");
  A2LControl session("x", patience / 10);
  ASSERT_EQ(session.startA2L(), 0);
  int right = 0;
  for (int i = 0; i < 30; ++i) {
    const std::string address = std::to_string(i);
    const std::string located = locate(session, address);
    EXPECT_TRUE(located == " 0" || located == address + ".c 1") << located;
    right += located != " 0";
  }
  EXPECT_LE(right, 30);
  EXPECT_LT(secondsOf([&] { locate(session, "end"); }), 1.9);
}

// A child that writes without end is given up in time, by both sessions.
TEST_F(A2L, Floods) {
  for (const std::string flood : {"yes noise", "yes noise | tr -d '\\n'", "yes '??:0'"}) {
    fake.addr2line("read a; " + flood);
    fake.gdb("printf '(gdb) '; read a; (" + flood + ") & read quit; kill $(pgrep -P $$,$!)");
    A2LControl session("x", patience / 10);
    GDBControl debugger("x", patience / 10);
    ASSERT_EQ(session.startA2L() + debugger.startGDB(), 0);
    EXPECT_LT(secondsOf([&] {
                for (int i = 0; i < 20; ++i) EXPECT_EQ(locate(session, "1"), " 0");
                EXPECT_FALSE(debugger.queryGDB("x\n", [](const std::string&) {}));
              }),
              20);
  }
}

TEST_F(A2L, ChildrenThatDie) {
  const struct {
    const char *script, *located;
  } cases[] = {{"", " 0"},
               {"read a", " 0"},
               {"kill -9 $$", " 0"},
               {"read a; printf half.c:", " 0"},
               {"read a; echo half.c:1; kill -9 $$", "half.c 1"},
               {heir, " 0"},
               {"read a; exec sleep 100 >&- 2>&-", " 0"}};
  for (const auto& c : cases) {
    fake.addr2line(c.script);
    A2LControl session("x");
    const double seconds = secondsOf([&] {
      const std::string errors = errorsOf([&] {
        ASSERT_EQ(session.startA2L(), 0);
        EXPECT_EQ(locate(session, "1"), c.located) << c.script;
        EXPECT_EQ(locate(session, "2"), " 0") << c.script;
        EXPECT_EQ(pieces(session.convA2L(10, "3\n")), "") << c.script;
      });
      EXPECT_EQ(errors, "EOF reading from A2L!\n") << c.script;
    });
    EXPECT_LT(seconds, 9) << c.script;
  }
}

TEST_F(A2L, ToolThatCannotBeExecuted) {
  const TempDir empty;
  const std::string path = std::getenv("PATH");
  setenv("PATH", empty.path().c_str(), 1);
  A2LControl session("x");
  EXPECT_EQ(errorsOf([&] { EXPECT_EQ(session.startA2L(), 0); }), "");
  EXPECT_EQ(session.isActive(), 0);
  EXPECT_EQ(session.sendA2L("1\n"), -1);
  EXPECT_EQ(pieces(session.convA2L(0, "1\n")), "ERROR: Cannot exec a2l: No such file or directory.\n|");
  EXPECT_EQ(pieces(session.convA2L(0, "1\n")), "");
  GDBControl gdb("x");
  EXPECT_EQ(errorsOf([&] { EXPECT_EQ(gdb.startGDB(), 0); }), "");
  EXPECT_EQ(gdb.isGdbActive(), 0);
  EXPECT_EQ(pieces(gdb.convGDB(20, "info var x\n")), "");
  setenv("PATH", path.c_str(), 1);
}

TEST_F(A2L, ChildThatNeverReads) {
  fake.addr2line("exec sleep 100");
  A2LControl session("x");
  ASSERT_EQ(session.startA2L(), 0);
  const std::string request(4000, 'a');
  const double seconds = secondsOf([&] {
    for (int i = 0; i < 100; ++i) EXPECT_EQ(pieces(session.convA2L(0, "%s\n", request.c_str())), "");
  });
  EXPECT_LT(seconds, 10);
}

// Whatever the moment of the child's death relative to the wait, the wait ends with it; also when another process still
// holds the pipe, so that only SIGCHLD tells.
TEST_F(A2L, DeathEndsEveryWait) {
  for (const char* script : {"read a", heir}) {
    fake.addr2line(script);
    for (int i = 0; i < 150; ++i) {
      A2LControl session("x");
      ASSERT_EQ(session.startA2L(), 0);
      const double seconds = secondsOf([&] { errorsOf([&] { EXPECT_EQ(pieces(session.convA2L(60, "1\n")), ""); }); });
      ASSERT_LT(seconds, 20) << script;
    }
  }
}

TEST_F(A2L, RestartsLeaveNothing) {
  fake.addr2line("while read a; do echo $a.c:1; done");
  A2LControl session("x");
  int afterTen = 0;
  for (int i = 0; i < 300; ++i) {
    ASSERT_EQ(session.startA2L(), 0);
    ASSERT_EQ(locate(session, "a"), "a.c 1");
    if (i == 10) afterTen = openDescriptors();
  }
  EXPECT_EQ(openDescriptors(), afterTen);
  // Earlier children end by themselves as their input has closed.
  EXPECT_TRUE(comesTrue([] { return children() == 1; }));
}

TEST_F(A2L, StandardDescriptorsClosed) {
  fake.addr2line("echo $(ls /proc/self/fd); while read a; do echo $a.c:1; done");
  EXPECT_EXIT(
      {
        for (int fd = 0; fd <= 2; ++fd) close(fd);
        A2LControl session("x");
        session.startA2L();
        const bool right = pieces(session.convA2L(1, "%s", "")) == "0 1 2 3\n|" && locate(session, "a") == "a.c 1";
        _exit(right ? 0 : 1);
      },
      testing::ExitedWithCode(0), "");
}

TEST_F(GDB, StartQueryEnd) {
  fake.gdb(R"(
    case "$*" in *--dbx*) echo "gdb: unrecognized option '--dbx'" >&2; exit 1;; esac
    printf 'banner\n(g'; sleep 0.005; printf 'db) '
    read a; printf 'one\ntwo\n(gdb) '
    read a; echo 'x (gdb) y'
    read a; printf "[$a]\n(gdb) "
    read a; printf h; sleep 0.005; printf 'alf\n(gdb) '
    read a)");
  GDBControl session("the program");
  EXPECT_EQ(pieces(session.convGDB(20, "x\n")), "") << "not started";
  const double seconds = secondsOf([&] {
    const std::string errors = errorsOf([&] {
      ASSERT_EQ(session.startGDB(), 0);
      EXPECT_EQ(session.isGdbActive(), 1);
      EXPECT_EQ(pieces(session.convGDB(20, "%s\n", "info var x")), "one\n|two\n|");
      EXPECT_EQ(pieces(session.convGDB(20, "2\n")), "");
      EXPECT_EQ(pieces(session.convGDB(20, "three\n")), "[three]\n|");
      std::string answer;
      EXPECT_TRUE(session.queryGDB("4\n", [&](const std::string& line) { answer += line + "|"; }));
      EXPECT_EQ(answer, "half|");
      session.endGDB();
    });
    EXPECT_EQ(errors, "");
  });
  EXPECT_LT(seconds, 15);
  EXPECT_EQ(session.isGdbActive(), 0);
}

// A gdb that falls silent costs one patience; its late answers are recognised by their prompts.
TEST_F(GDB, LateAnswersAreDropped) {
  fake.gdb(R"(
    printf '(gdb) '
    read a; read a; read a; read a; read a
    printf '1\n(gdb) 2 (gdb) x\n(gdb) 3\n(gdb) 4\n(gdb) last\n(gdb) '
    while read a && [ $a != quit ]; do printf "$a\n(gdb) "; done)");
  GDBControl session("x", patience);
  ASSERT_EQ(session.startGDB(), 0);
  std::string answer;
  const auto ask = [&](const char* command) {
    answer.clear();
    return session.queryGDB(command, [&](const std::string& line) { answer += line + "|"; });
  };
  for (int i = 0; i < GDBControl::mostVain; ++i) EXPECT_FALSE(ask("1\n"));
  EXPECT_LT(secondsOf([&] { EXPECT_FALSE(ask("2\n")); }), 1.9);
  EXPECT_EQ(answer, "");
  EXPECT_EQ(answer, ask("3\n") ? "last|" : "");
  EXPECT_TRUE(comesTrue([&] { return ask("last\n"); }));
  EXPECT_EQ(answer, "last|");
}

TEST_F(GDB, ChildrenThatDie) {
  for (const char* script : {"", "echo no prompt", "printf '(gdb) '; read a; echo part"}) {
    fake.gdb(script);
    GDBControl session("x");
    const double seconds = secondsOf([&] {
      const std::string errors = errorsOf([&] {
        EXPECT_EQ(session.startGDB(), 0);
        EXPECT_FALSE(session.queryGDB("1\n", [](const std::string&) {}));
        EXPECT_EQ(session.isGdbActive(), 0);
        session.endGDB();
      });
      EXPECT_EQ(errors, "EOF reading from GDB!\n") << script;
    });
    EXPECT_LT(seconds, 15) << script;
  }
}
