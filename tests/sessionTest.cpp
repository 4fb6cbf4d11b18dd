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

constexpr std::chrono::milliseconds patience{2000};

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
  const std::string full(4998, 'x');
  fake.addr2line("args\nfds\nread\nsay a.c:$\\nb.c:2\\nrest\nread\nsay " + full + "\\n\nread\nsay " + full +
                 "y\\n\nread\nsay one\\0two\\n\nread\nsay %s%n\\n\nread\nsay half\npause\nsay line\\n\nread");
  A2LControl session("the program");
  EXPECT_EQ(pieces(session.convA2L(1, "%s", "")), "") << "not started";
  EXPECT_EQ(session.sendA2L("1\n"), -1);
  ASSERT_EQ(session.startA2L(), 0);
  EXPECT_EQ(session.isActive(), 1);
  EXPECT_EQ(pieces(session.convA2L(1, "%s", "")), "[-e][the program]\n|0 1 2 \n|");
  EXPECT_EQ(pieces(session.convA2L(1, "%d\n", 7)), "a.c:7\n|b.c:2\n|rest|");
  EXPECT_EQ(pieces(session.convA2L(1, "\n")), full + "\n|");
  EXPECT_EQ(pieces(session.convA2L(1, "\n")), full + "y|\n|");
  EXPECT_EQ(pieces(session.convA2L(1, "\n")), "one|");
  EXPECT_EQ(pieces(session.convA2L(1, "\n")), "%s%n\n|");
  EXPECT_EQ(pieces(session.convA2L(1, "\n")), "half|line\n|");
  EXPECT_EQ(session.haveA2L(-1, 20), 0);
  session.endA2L();
  session.endA2L();
  EXPECT_EQ(session.isActive(), 0);
}

TEST_F(A2L, RepliesArePairedWithTheirRequests) {
  const std::string address244(244, 'a');
  fake.addr2line(
      "err addr2line: DWARF error: a:1\\n\nloop\nread\nsay \npause\nsay s$\npause\nsay .c:1\\n\n"  // in pieces
      "read\nerr BFD: x:1\\naddr2line: y:2\\n\ntimes 10000 noise\\n\nsay t$.c:2\\n\n"              // after noise
      "read\nsay x.c:5\\ny.c:9\\n\nread\nsay ??:0\\nz.c:9\\n\nread\nsay ??:?\\n\n"                 // several at once
      "read\nsay main.c:\\nn\\0ul:1\\nlong.c:1\\nlong.c:2\\nlong.c:3\\n\nrepeat");
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
  fake.addr2line(
      "read\nsay a.c:1\\n\nread\nread\nread\nread\nsay l.c:2\\nl.c:3\\nl.c:4\\n\npause\nsay d.c:5\\n\n"
      "loop\nread\nsay $.c:6\\n\nrepeat");
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

// A child that lost a reply is started anew; until then nothing is taken for what it is not.
TEST_F(A2L, LostRepliesDoNotShiftTheOthers) {
  fake.addr2line("read\nread\nloop\nread\nsay $.c:1\\n\nrepeat");
  A2LControl session("x", patience / 10);
  ASSERT_EQ(session.startA2L(), 0);
  fake.addr2line("loop\nread\nsay $.c:1\\n\nrepeat");  // for the next child
  int asked = 0;
  int inARow = 0;
  EXPECT_TRUE(comesTrue([&] {
    const std::string address = std::to_string(++asked);
    const std::string located = locate(session, address);
    EXPECT_TRUE(located == address + ".c 1" || located == " 0") << address << located;
    inARow = located == " 0" ? 0 : inARow + 1;
    return inARow == 20;
  }));
}

// One that loses replies whenever it is started, is left alone after some starts.
TEST_F(A2L, ToolThatLosesRepliesForGood) {
  fake.addr2line("read\nread\nloop\nread\nsay $.c:1\\n\nrepeat");
  A2LControl session("x", patience / 20);
  ASSERT_EQ(session.startA2L(), 0);
  for (int i = 0; session.isActive() && i < 1000; ++i) EXPECT_EQ(locate(session, "1"), " 0");
  EXPECT_LT(secondsOf([&] { EXPECT_EQ(locate(session, "2"), " 0"); }), 0.1);
}

// Who was slow is not taken for one who loses replies.
TEST(Debt, OneSlowReplyAfterAnother) {
  ReplyDebt debt(std::chrono::seconds(1), 1);
  const auto wait = [&debt](int replies) {
    debt.beginWait();
    bool own = false;
    for (int i = 0; i < replies; ++i) own = debt.countReply();
    return own;
  };
  for (int round = 0; round < 5; ++round) {
    EXPECT_FALSE(wait(0));
    EXPECT_FALSE(debt.giveUp(1));
    EXPECT_FALSE(wait(1));  // the one that was owed
    EXPECT_FALSE(debt.giveUp(1));
    EXPECT_TRUE(wait(2));
    EXPECT_FALSE(debt.owes());
  }
  EXPECT_FALSE(wait(0) || debt.giveUp(1));
  EXPECT_FALSE(wait(1) || debt.giveUp(1));
  EXPECT_TRUE(!wait(1) && debt.giveUp(1));
}

// A child that writes without end is given up in time, by both sessions.
TEST_F(A2L, Floods) {
  for (const char* text : {"noise\\n", "noise", "??:0\\n"}) {
    const TempDir directory;
    const std::string flood = "read\nloop\nexists " + directory / "enough" + "\ntimes 1000 " + text + "\nrepeat";
    fake.addr2line(flood);
    fake.gdb("say (gdb) \n" + flood);
    A2LControl session("x", patience / 10);
    GDBControl debugger("x", patience / 10);
    ASSERT_EQ(session.startA2L() + debugger.startGDB(), 0);
    EXPECT_LT(secondsOf([&] {
                for (int i = 0; i < 20; ++i) EXPECT_EQ(locate(session, "1"), " 0");
                EXPECT_FALSE(debugger.queryGDB("x\n", [](const std::string&) {}));
                writeFile(directory / "enough", "");
              }),
              20);
  }
}

TEST_F(A2L, ChildrenThatDie) {
  const struct {
    const char *script, *located;
  } cases[] = {{"", " 0"},
               {"read", " 0"},
               {"die", " 0"},
               {"read\nsay half.c:", " 0"},
               {"read\nsay half.c:1\\n\ndie", "half.c 1"},
               {"read\nheir", " 0"},
               {"read\nclose\nhang", " 0"}};
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
  fake.addr2line("hang");
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
  for (const char* script : {"read", "heir\nread"}) {
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
  fake.addr2line("loop\nread\nsay $.c:1\\n\nrepeat");
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
  fake.addr2line("fds\nloop\nread\nsay $.c:1\\n\nrepeat");
  EXPECT_EXIT(
      {
        for (int fd = 0; fd <= 2; ++fd) close(fd);
        A2LControl session("x");
        session.startA2L();
        const bool right = pieces(session.convA2L(1, "%s", "")) == "0 1 2 \n|" && locate(session, "a") == "a.c 1";
        _exit(right ? 0 : 1);
      },
      testing::ExitedWithCode(0), "");
}

TEST_F(GDB, StartQueryEnd) {
  fake.gdb(
      "refuse --dbx\nargs\nsay banner\\n(g\npause\nsay db) \nread\nsay one\\ntwo\\n(gdb) \nread\nsay x (gdb) y\\n\n"
      "read\nsay [$]\\n(gdb) \nread\nsay h\npause\nsay alf\\n(gdb) \nread");
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
  fake.gdb(
      "say (gdb) \nread\nread\nread\nread\nread\n"
      "say 1\\n(gdb) 2 (gdb) x\\n(gdb) 3\\n(gdb) 4\\n(gdb) last\\n(gdb) \n"
      "loop\nread\nuntil quit\nsay $\\n(gdb) \nrepeat");
  GDBControl session("x", patience);
  ASSERT_EQ(session.startGDB(), 0);
  std::string answer;
  const auto ask = [&](const char* command) {
    answer.clear();
    return session.queryGDB(command, [&](const std::string& line) { answer += line + "|"; });
  };
  for (int i = 0; i < GDBControl::maxTimeouts; ++i) EXPECT_FALSE(ask("1\n"));
  EXPECT_LT(secondsOf([&] { EXPECT_FALSE(ask("2\n")); }), 1.9);
  EXPECT_EQ(answer, "");
  EXPECT_EQ(answer, ask("3\n") ? "last|" : "");
  EXPECT_TRUE(comesTrue([&] { return ask("last\n"); }));
  EXPECT_EQ(answer, "last|");
}

TEST_F(GDB, ChildrenThatDie) {
  for (const char* script : {"", "say no prompt\\n", "say (gdb) \nread\nsay part\\n"}) {
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
