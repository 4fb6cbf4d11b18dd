// Fuzzes conversations: the output of a tool in blocks, with requests and pauses in between. Every conversation ends in
// time and passes on only what the tool wrote; if an addr2line answers each request with one line, each line is paired
// with its request. The first byte of the input selects the tool; of the rest, bytes from 0xf0 are steps.
#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "a2lControl.h"
#include "expect.h"

namespace {

using std::chrono::microseconds;
using std::chrono::seconds;

constexpr std::size_t longestLine = 64;

const ConversationRules rules[] = {
    {.classify = classifyReply, .timeout = seconds(20), .timeoutBudget = seconds(60), .longestLine = longestLine},
    {.prompt = "(gdb) ",
     .header = "All variables ",
     .timeout = seconds(20),
     .timeoutBudget = seconds(120),
     .longestLine = longestLine},
};

// A tool and the conversation with it, with a simulated clock.
class Tool {
 public:
  // `longestPiece`: if not 0, requests ask for pieces of at most this size instead of lines.
  Tool(const ConversationRules& chosen, std::size_t longestPiece)
      : rules_(chosen), longestPiece_(longestPiece), conversation_(chosen) {}

  void write(char c) {
    written_ += c;
    if (until_) {
      receive({&c, 1});
    } else {
      unread_ += c;
    }
  }

  void ask(unsigned replies) {
    while (until_) pass(*until_);
    if (longestPiece_ == 0) conversation_.discard(std::exchange(unread_, ""));
    const Clock::duration before = conversation_.remainingBudget();
    conversation_.await({.replies = replies, .subject = "a", .longestPiece = longestPiece_}, sink_, now_);
    receive(std::exchange(unread_, ""));
    while (until_ && replies > 8) pass(*until_);
    const Clock::duration left = conversation_.remainingBudget();
    EXPECT(left <= before && left >= Clock::duration::zero());
  }

  void pass(Deadline end) {
    while (until_ && *until_ <= end) {
      now_ = std::max(now_, *until_);
      receive({});
    }
    now_ = std::max(now_, end);
  }
  void pass(microseconds time) { pass(now_ + time); }

  void end() {
    conversation_.endOfOutput();
    until_.reset();
    EXPECT(!conversation_.hasText());
    conversation_.restart();
  }

 private:
  void receive(std::string_view bytes) {
    until_ = conversation_.receive(bytes, now_);
    EXPECT(!until_ || *until_ > now_);
    EXPECT(!until_ || *until_ - now_ <= rules_.timeoutBudget);
  }

  ConversationRules rules_;
  std::size_t longestPiece_;
  Conversation conversation_;
  std::string unread_;  // written while no reply was awaited
  std::string written_;
  std::optional<Deadline> until_;
  Deadline now_{std::chrono::hours(1)};
  Conversation::Sink sink_ = [this](std::string_view unit) {
    EXPECT(written_.find(unit) != std::string::npos);
    if (longestPiece_ > 0) {
      EXPECT(!unit.empty() && unit.size() <= longestPiece_);
      return;
    }
    EXPECT(unit.size() <= longestLine);
    EXPECT(rules_.classify == nullptr || rules_.classify(unit) == LineKind::Reply);
    EXPECT(rules_.prompt.empty() || unit.find(rules_.prompt) == std::string_view::npos);
    if (rules_.classify != nullptr) parseLocation(unit);
  };
};

// Answers each request with its own number, in blocks of the sizes given by the input.
void answerInTurn(const std::uint8_t* data, std::size_t size) {
  Conversation conversation(rules[0]);
  Deadline now{std::chrono::hours(1)};
  for (std::size_t at = 0; at < size; ++at) {
    const std::string reply = std::to_string(at) + ".c:1\n";
    const std::size_t block = data[at] % 8 + 1;
    std::string received;
    conversation.discard({});
    conversation.await(
        {}, [&received](std::string_view line) { received += line; }, now);
    std::optional<Deadline> until;
    for (std::size_t from = 0; from < reply.size(); from += block) {
      now += microseconds(data[at] * 100);
      until = conversation.receive(std::string_view(reply).substr(from, block), now);
    }
    EXPECT(received + "\n" == reply);
    while (until) until = conversation.receive({}, now = std::max(now, *until));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 2 || size > 4096) return 0;
  if (data[0] % 8 == 7) {
    answerInTurn(data + 1, size - 1);
    return 0;
  }
  Tool tool(rules[data[0] % 2], data[0] % 8 < 4 ? 0 : 7);
  for (std::size_t at = 1; at < size; ++at) {
    const unsigned step = data[at];
    if (step < 0xf0) {
      tool.write(static_cast<char>(step));
    } else if (step < 0xf8) {
      tool.ask(step - 0xf0 + 1);
    } else if (step < 0xff) {
      tool.pass(microseconds(60) * (1u << (3 * (step - 0xf8))));
    } else {
      tool.end();
    }
  }
  tool.ask(9);
  return 0;
}
