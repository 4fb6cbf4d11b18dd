// What a tool writes, cut into blocks, with requests and pauses in between: whatever comes, a conversation ends, in
// time, what it hands over is what the tool wrote, and an addr2line that answers each request with one line gets every
// line paired with its request. The first byte of the input chooses the tool; of the rest, bytes from 0xf0 are steps.
#include <cstdint>
#include <string>

#include "a2lControl.h"
#include "expect.h"

namespace {

using std::chrono::microseconds;
using std::chrono::seconds;

const ConversationRules rules[] = {
    {.kindOf = kindOfReply, .patience = seconds(20), .allInVain = seconds(60)},
    {.prompt = "(gdb) ", .header = "All variables ", .patience = seconds(20), .allInVain = seconds(120)},
    {.prompt = "(gdb) ", .longestPiece = 7, .patience = seconds(1)},
    {.longestPiece = 7, .singlePiece = true, .patience = microseconds(100)},
};

class Tool {
 public:
  explicit Tool(const ConversationRules& chosen) : rules_(chosen), conversation_(chosen) {}

  void write(char c) {
    text_.append({&c, 1});
    written_ += c;
    hear();
  }

  void ask(unsigned replies) {
    while (conversation_.waits()) pass(conversation_.until());
    if (rules_.longestPiece == 0) conversation_.drop(text_);
    const Clock::duration left = conversation_.left();
    begin_ = now_;
    conversation_.await({.replies = replies, .subject = "a"}, now_);
    hear();
    while (conversation_.waits() && replies > 8) pass(conversation_.until());
    EXPECT(conversation_.left() <= left && conversation_.left() >= Clock::duration::zero());
  }

  void pass(Deadline end) {
    while (conversation_.waits() && conversation_.until() <= end) {
      now_ = std::max(now_, conversation_.until());
      hear();
    }
    now_ = std::max(now_, end);
  }
  void pass(microseconds time) { pass(now_ + time); }

  void end() {
    conversation_.end(text_, sink_);
    EXPECT(!conversation_.waits());
    conversation_.start();
    text_.clear();
  }

 private:
  void hear() {
    if (!conversation_.waits()) return;
    conversation_.hear(text_, now_, sink_);
    EXPECT(!conversation_.waits() || conversation_.until() > now_);
    EXPECT(rules_.prompt.empty() || conversation_.until() - now_ <= rules_.allInVain);
  }

  ConversationRules rules_;
  Conversation conversation_;
  LineBuffer text_{64};
  std::string written_;
  Deadline now_{std::chrono::hours(1)};
  Deadline begin_;
  Conversation::Sink sink_ = [this](std::string_view unit) {
    EXPECT(written_.find(unit) != std::string::npos);
    EXPECT(rules_.longestPiece == 0 || (!unit.empty() && unit.size() <= rules_.longestPiece));
    EXPECT(rules_.kindOf == nullptr || rules_.kindOf(unit) == LineKind::Reply);
    EXPECT(rules_.prompt.empty() || unit.find(rules_.prompt) == std::string_view::npos);
    if (rules_.kindOf != nullptr) locationIn(unit);
  };
};

// Each request is answered with its own number, by blocks of the sizes that the input gives.
void answerInTurn(const std::uint8_t* data, std::size_t size) {
  Conversation conversation(rules[0]);
  LineBuffer text(64);
  Deadline now{std::chrono::hours(1)};
  for (std::size_t at = 0; at < size; ++at) {
    const std::string reply = std::to_string(at) + ".c:1\n";
    std::string heard;
    conversation.drop(text);
    conversation.await({}, now);
    for (std::size_t from = 0; from < reply.size(); from += data[at] % 8 + 1) {
      now += microseconds(data[at] * 100);
      text.append(std::string_view(reply).substr(from, data[at] % 8 + 1));
      conversation.hear(text, now, [&heard](std::string_view line) { heard += line; });
    }
    EXPECT(heard + "\n" == reply);
    now = std::max(now, conversation.until());
    conversation.hear(text, now, {});
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 2 || size > 4096) return 0;
  if (data[0] % 8 == 7) {
    answerInTurn(data + 1, size - 1);
    return 0;
  }
  Tool tool(rules[data[0] % 4]);
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
