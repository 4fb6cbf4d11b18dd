#include "frontend/output.h"

#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstring>

#include "frontend/texts.h"
#include "src/io.h"
#include "src/userError.h"

void Output::putNumber(std::uint64_t number) {
  char digits[20];
  buffer_.append(digits, std::to_chars(digits, digits + sizeof digits, number).ptr);
}

void Output::flush() {
  if (isClosed_ && !buffer_.empty()) throw UserError("standard output is closed");
  std::string_view left = buffer_;
  while (!left.empty()) {
    const ssize_t count = writeRetrying(STDOUT_FILENO, left.data(), left.size());
    if (count < 0) throw UserError(std::string("cannot write to standard output: ") + std::strerror(errno));
    left.remove_prefix(static_cast<std::size_t>(count));
  }
  buffer_.clear();
}

std::string hexadecimal(std::uint64_t number) {
  char digits[16];
  return "0x" + std::string(digits, std::to_chars(digits, digits + sizeof digits, number, 16).ptr);
}

std::string withSeparators(std::uint64_t number) {
  std::string text = std::to_string(number);
  for (std::size_t at = text.size(); at > 3;) text.insert(at -= 3, ",");
  return text;
}

std::string counted(std::uint64_t count, const char* what) {
  return withSeparators(count) + " " + what + (count == 1 ? "" : "s");
}

void printMessage(std::string_view text) {
  const std::string line = "tolquin: " + shownText(text) + "\n";
  // A failure to write the message cannot be reported anywhere.
  (void)!writeRetrying(STDERR_FILENO, line.data(), line.size());
}
