// Which output of a tool belongs to which request, as tables of bytes and pauses. A script is a sequence of steps, each
// ended by '|': ">" a request (sent after the wait for the one before it has ended), "+N" a pause of N microseconds,
// anything else output of the tool. The result is, for each request, the lines of its reply, "!" if it is incomplete,
// and "/" with the milliseconds that were waited for it, if any.
#include <gtest/gtest.h>

#include <optional>
#include <utility>

#include "a2lControl.h"
#include "support.h"

namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;

constexpr std::size_t longestLine = 100;

const ConversationRules addr2line{.classify = classifyReply,
                                  .timeout = milliseconds(20000),
                                  .timeoutBudget = milliseconds(60000),
                                  .longestLine = longestLine};
const ConversationRules gdb{.prompt = "(gdb) ",
                            .header = "All variables matching regular expression \"",
                            .timeout = milliseconds(20000),
                            .timeoutBudget = milliseconds(120000),
                            .longestLine = longestLine};

class Script {
 public:
  // `longestPiece`: if not 0, requests ask for pieces of at most this size instead of lines.
  explicit Script(const ConversationRules& rules, std::size_t longestPiece = 0)
      : conversation_(rules), longestPiece_(longestPiece) {}

  std::string run(const std::string& steps) {
    for (const std::string& step : splitAt(steps, '|')) {
      if (step.starts_with('>')) {
        finish();
        ask(step.substr(1));
      } else if (step.starts_with('+')) {
        passUntil(now_ + microseconds(std::stol(step)));
      } else if (until_) {
        receive(step);
      } else {
        unread_ += step;
      }
    }
    finish();
    return result_;
  }

 private:
  // `what`: the number of replies to expect, or the subject.
  void ask(const std::string& what) {
    const bool counted = !what.empty() && what.find_first_not_of("0123456789") == std::string::npos;
    if (longestPiece_ == 0) conversation_.discard(std::exchange(unread_, ""));
    reply_.clear();
    asked_ = now_;
    conversation_.await(
        {.replies = counted ? static_cast<unsigned>(std::stoul(what)) : 1,
         .subject = counted ? "" : what,
         .timeout = longestPiece_ > 0 ? std::optional(milliseconds(1000)) : std::nullopt,
         .longestPiece = longestPiece_},
        [this](std::string_view line) { reply_ += (reply_.empty() ? "" : ",") + std::string(line); }, now_);
    receive(std::exchange(unread_, ""));
  }
  void receive(const std::string& bytes) {
    until_ = conversation_.receive(bytes, now_);
    if (until_) return;
    const auto waited = std::chrono::duration_cast<milliseconds>(now_ - asked_).count();
    result_ += (noted_++ == 0 ? "" : ";") + reply_ + (conversation_.complete() ? "" : "!") +
               (waited > 0 ? "/" + std::to_string(waited) : "");
  }
  void passUntil(Deadline end) {
    while (until_ && *until_ <= end) {
      now_ = *until_;
      receive("");
    }
    now_ = end;
  }
  void finish() {
    while (until_) passUntil(*until_);
  }

  Conversation conversation_;
  std::size_t longestPiece_;
  std::string unread_;  // written while no reply was awaited
  std::optional<Deadline> until_;
  Deadline now_{std::chrono::hours(1)};
  Deadline asked_;
  int noted_ = 0;
  std::string reply_;
  std::string result_;
};

std::string repeat(const std::string& steps, int times) {
  std::string all;
  for (int i = 0; i < times; ++i) all += steps;
  return all;
}

struct Case {
  std::string steps;
  std::string expected;
};

}  // namespace

TEST(Conversation, Addr2line) {
  const std::string first64 = repeat(">|a:1\n|+200|", 64);
  const std::string replies64 = repeat("a:1;", 64);
  const Case cases[] = {
      // Text that follows a complete reply at once belongs to it, text that comes later to no request.
      {">|x:5\ny:9\n|>|z:1\n", "x:5,y:9;z:1"},
      {">|x:5\n|+90|y:9\n|+90|w:2\n|>|z:1\n", "x:5,y:9,w:2;z:1"},
      {">|x:5\n|+110|y:9\n|+500|>|z:1\n", "x:5;z:1"},
      {">|??:0\n|+50|z:9\n|>|BFD: x:1\na:2\nBFD: x:1\n", "??:0,z:9;a:2"},
      {first64 + ">|x:5\n|+50|y:9\n|>|z:1\n|+50|w:1\n", replies64 + "x:5;z:1,w:1"},
      {">|a:1\nb:2\n|+200|" + first64 + ">|x:5\n|+50|y:9\n", "a:1,b:2;" + replies64 + "x:5,y:9"},
      {">|" + repeat("a:1\n", 5000), repeat("a:1,", 1000) + "a:1"},
      // Lines are joined across pauses; the rest of a line that began before the request is not its reply.
      {">|x.|+300|c:|+5000000|5\n|>|z:1\n", "x.c:5/5000;z:1"},
      {">|x:5\n|+200|ha|>|lf:2\n|+50|z:1\n", "x:5;z:1"},
      {"stray:1\n|>|x:5\n", "x:5"},
      {">|" + std::string(101, 'x') + ":1\n|y:2\n", "y:2"},
      // Replies that come late or never.
      {">|>|>|", "!/20000;!;!"},
      {">|>|+50|late:1\n|+1000000|own:2\n|>|z:3\n", "!/20000;own:2/1000;z:3"},
      {">|>|>|+500|late:1\nlate:2\n|>|+50|late:3\nown:4\n", "!/20000;!;!;own:4"},
      {">|>|late:1\n|>|late:2\n|>|late:3\n|>|late:4\n", "!/20000;!/20000;!/17500;!/2187;!/273"},
      {repeat(">|", 10) + repeat("late:1\n|>|", 30),
       "!/20000" + repeat(";!", 8) + ";!/20000;!/17499;!/2187;!/273;!/34;!/4" + repeat(";!", 25)},
      // Neither a reply nor a diagnostic.
      {">|a:1\n|>|garbage\n|+200000|>|b:2\n", "a:1;!/100;b:2"},
      {">|a:1\n|>|garbage\n|+50000|b:2\n|>|c:3\n", "a:1;b:2/50;c:3"},
      {">|garbage\n|+9000000|a:1\n|>|b:2\n", "a:1/9000;b:2"},
      {">|garbage\n|>|b:2\n", "!/20000;b:2"},
      {">|a:1\n|" + repeat(">|nonsense\n|", 500), "a:1" + repeat(";!/100", 500)},
      {">|a:1\n|>|addr2line: DWARF error: x:1\n|+300000|b:2\n", "a:1;b:2/300"},
      // Several replies to one request.
      {">3|a:1\nb:2\n|+500000|c:3\n|>|z:1\n", "a:1/500;z:1"},
      {">3|a:1\n|>|z:1\n|>3|??:0\nb:2\nc:3\n|>|y:1\n", "a:1/1000;z:1;??:0,b:2,c:3;y:1"},
      {">3|nothing\n|+200000|>|b:1\n|>|c:1\n", "!/20000;b:1;c:1"},
      {">|a:1\n|>3|nothing\n|+200000|>|b:1\n", "a:1;!/100;b:1"},
      {">|a:1\n|+200|" + std::string(101, 'x') + "|>|y\n|b:1\n|>|c:1\n", "a:1;b:1;c:1"},
      {repeat(">2|a:1\n|", 62), "a:1/1000" + repeat(";a:1", 61)},
  };
  for (const auto& [steps, expected] : cases) EXPECT_EQ(Script(addr2line).run(steps), expected) << steps;
  // After many fruitless waits, a reply that comes soon still counts.
  const std::string result = Script(addr2line).run(">|a:1\n|" + repeat(">|nonsense\n|", 700) + ">|+1000|b:2\n");
  EXPECT_TRUE(result.ends_with(";b:2/1")) << result;
}

TEST(Conversation, Gdb) {
  const std::string about = "All variables matching regular expression ";
  const Case cases[] = {
      {">a|int a;\n|(g|+300|db) |>b|long |+300|b;\n(gdb) ", "int a;;long b;"},
      // A prompt ends the answer anywhere in a line; the text after it is dropped, and a second prompt is not another
      // answer.
      {">a|int a;\nx (gdb) y\n|>b|int b;\n(gdb) ", "int a;;int b;"},
      {">a|int a;\n(gdb) \n|>b|int b;\n(gdb) \n", "int a;;int b;"},
      {">a|int a;\n(gdb) (gdb) |>b|(gdb) int b;\n(gdb) (gdb) |>c|int c;\n(gdb) ", "int a;;int b;;int c;"},
      {">a|int a;\n(gdb) |+500|int x;\n(gdb) |>b|(gdb) int b;\n(gdb) |>c|(gdb) |(gdb) ", "int a;;int b;;"},
      {">a|int a;\n(gdb) |+500|late remark\n|>b|(gdb) |>c|int c;\n(gdb) |>d|int d;\n(gdb) ",
       "int a;;!/100;int c;;int d;"},
      {">a|int a;\n(gdb) (gdb) |>b|(gdb) |>c|int c;\n(gdb) |>d|int d;\n(gdb) ", "int a;;!/100;int c;;int d;"},
      {">a|int a;\n(gdb) |+500|" + std::string(101, 'x') + "(gdb) |>b|int b;\n(gdb) ", "int a;;int b;"},
      {">a|(gdb) |>b|int b;\n(gdb) ", ";int b;"},
      // Late answers are counted by their prompts, or recognized by the name in their header.
      {">a|>b|int a;\n(gdb) int b;\n(gdb) |>c|int c;\n(gdb) ", "!/20000;int b;;int c;"},
      {">|(gdb) (gdb) |>a|>b|(gdb) (gdb) int b;\n(gdb) |>c|int c;\n(gdb) ", ";!/20000;int b;;int c;"},
      {">a|>b|" + about + "\"b\":\nint b;\n(gdb) |>c|int c;\n(gdb) ", "!/20000;" + about + "\"b\":,int b;;int c;"},
      {">b|" + about + "\"a\":\nint b;\n(gdb) |+50|long b;\n(gdb) ", "long b;"},
      {">b|" + about + "\"a\":\nint b;\n|>c|int c;\n(gdb) |int c;\n(gdb) ", "!/20000;int c;"},
      // Silence after some lines ends an answer; it is measured from the latest text.
      {">a|int x;\n|>b|int b;\n(gdb) ", "int x;!/20000;int b;"},
      {">a|int x;\n|+15000000|int a;\n|+15000000|(gdb) ", "int x;,int a;/30000"},
      {repeat(">a|", 8), repeat("!/20000;", 5) + "!/20000;!;!"},
  };
  for (const auto& [steps, expected] : cases) EXPECT_EQ(Script(gdb).run(steps), expected) << steps;
}

TEST(Conversation, Pieces) {
  const Case cases[] = {
      {">|one\ntwo\n|>|>|+50|t|+50|h|+200|>|ree\n|>|", "one\n;two\n;th;ree\n;!/1000"},
      {">|1234\n12345\n123456|>|>|>|>|", "1234\n;12345;\n;12345;6"},
  };
  for (const auto& [steps, expected] : cases) EXPECT_EQ(Script(addr2line, 5).run(steps), expected) << steps;
  EXPECT_EQ(Script(addr2line, 500).run(">|" + repeat("one\n|+60|", 50)), "one\n")
      << "a complete line does not wait for a pause";
}
