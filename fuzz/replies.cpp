// The output of a tool, cut into chunks: the lines and prompts that come out depend on the bytes alone, not on the
// chunks. The first byte of the input chooses the chunks' sizes.
#include <cstdint>
#include <string>
#include <vector>

#include "a2lControl.h"
#include "expect.h"
#include "toolSession.h"

namespace {

const ToolNames names{"TOOL", "tool"};
ChildState child;

// What a session hears of `text` written in chunks of `chunk` bytes: lines as they are, prompts as "PROMPT".
std::vector<std::string> hear(const std::string& text, std::size_t chunk) {
  Pipe pipe;
  EXPECT(makePipe(pipe));
  ToolSession session(names, child);
  session.listenTo(std::move(pipe.readEnd));
  std::vector<std::string> heard;
  std::string line;
  for (std::size_t at = 0; at < text.size(); at += chunk) {
    const std::string_view part = std::string_view(text).substr(at, chunk);
    writeRetrying(pipe.writeEnd.get(), part.data(), part.size());
    Patience atHand(Clock::now());
    for (Heard what = Heard::Line; what == Heard::Line || what == Heard::Prompt;) {
      what = session.nextText(line, atHand, "(gdb) ");
      if (what == Heard::Line) heard.push_back(line);
      if (what == Heard::Prompt) heard.emplace_back("PROMPT");
    }
  }
  return heard;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 2 || size > 4096) return 0;
  // Prompts within lines make the pieces count; here they are at the starts of lines only.
  std::string text;
  for (std::size_t at = 1; at < size; ++at) {
    if (data[at] == '(' && !text.empty() && text.back() != '\n' && !text.ends_with("(gdb) ")) text += '\n';
    text += static_cast<char>(data[at]);
  }
  const std::vector<std::string> whole = hear(text, text.size());
  EXPECT(hear(text, data[0] % 32 + 1) == whole);
  for (const std::string& line : whole) {
    SourceLocation location;
    const ReplyKind kind = parseReply(line, location);
    EXPECT((kind == ReplyKind::Location) == !location.file.empty());
  }
  return 0;
}
