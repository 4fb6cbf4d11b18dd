#include "frontend/inputs.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "frontend/jsonInput.h"
#include "frontend/resultTable.h"
#include "src/io.h"
#include "src/userError.h"

namespace {

[[noreturn]] void fail(const std::string& path, const std::string& why) { throw UserError(path + ": " + why); }

std::string readAll(const std::string& path, int fd) {
  std::string content;
  constexpr std::size_t blockSize = std::size_t{256} * 1024;
  for (ssize_t count = 1; count > 0;) {
    const std::size_t size = content.size();
    content.resize(size + blockSize);
    count = readRetrying(fd, content.data() + size, blockSize);
    if (count < 0) fail(path, std::string("cannot be read: ") + std::strerror(errno));
    content.resize(size + static_cast<std::size_t>(count));
  }
  return content;
}

bool beginsAsJson(std::string_view text) {
  const std::size_t start = text.find_first_not_of(" \t\r\n");
  return start != std::string_view::npos && text[start] == '{';
}

// Whether the regular file `fd` holds JSON, by what it begins with.
bool holdsJson(int fd) {
  char start[64];
  const ssize_t count = readRetrying(fd, start, sizeof start);
  lseek(fd, 0, SEEK_SET);
  return count > 0 && beginsAsJson({start, static_cast<std::size_t>(count)});
}

// A program without a variable gives no line.
bool isEmptyResult(const std::string& path, const struct stat& status) {
  return status.st_size == 0 && path.ends_with(".jsonl");
}

std::vector<Inventory> one(Inventory program) {
  std::vector<Inventory> programs;
  programs.push_back(std::move(program));
  return programs;
}

}  // namespace

std::vector<Inventory> readInput(const std::string& path, const ReadOptions& options) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) fail(path, std::string("cannot be opened: ") + std::strerror(errno));
  if (S_ISDIR(status.st_mode)) return one(readResultTable(path));
  if (!S_ISREG(status.st_mode) && !S_ISFIFO(status.st_mode)) fail(path, "is neither a file, a pipe nor a directory");
  const UniqueFd file = openFile(path.c_str(), O_RDONLY);
  if (!file) fail(path, std::string("cannot be opened: ") + std::strerror(errno));
  if (S_ISFIFO(status.st_mode)) {
    const std::string content = readAll(path, file.get());
    if (!content.empty() && !beginsAsJson(content)) fail(path, "what comes from this pipe is not JSON");
    return parseJson(path, content);
  }
  if (holdsJson(file.get()) || isEmptyResult(path, status)) return parseJson(path, readAll(path, file.get()));
  return one(readInventory(path, options));
}
