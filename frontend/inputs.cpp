#include "frontend/inputs.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "frontend/jsonInput.h"
#include "frontend/resultTable.h"
#include "src/io.h"
#include "src/userError.h"
#include "src/whiteSpace.h"

namespace {

[[noreturn]] void fail(const std::string& path, const std::string& why) { throw UserError(path + ": " + why); }

std::string contentOf(const std::string& path, int fd) {
  std::string content;
  if (!readAll(fd, content)) fail(path, std::string("cannot read: ") + std::strerror(errno));
  return content;
}

bool beginsAsJson(std::string_view text) {
  const std::size_t start = text.find_first_not_of(whiteSpace);
  return start != std::string_view::npos && text[start] == '{';
}

// The first bytes of the regular file `fd`, enough to recognize its format.
std::string startOf(int fd) {
  std::string start(64, '\0');
  const ssize_t count = readRetrying(fd, start.data(), start.size());
  lseek(fd, 0, SEEK_SET);
  start.resize(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
  return start;
}

// An empty .jsonl file is a valid result: that of a program without variables.
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
  if (stat(path.c_str(), &status) != 0) fail(path, std::string("cannot open: ") + std::strerror(errno));
  if (S_ISDIR(status.st_mode)) return one(readResultTable(path));
  if (!S_ISREG(status.st_mode) && !S_ISFIFO(status.st_mode)) fail(path, "is not a regular file, pipe or directory");
  const UniqueFd file = openFile(path.c_str(), O_RDONLY);
  if (!file) fail(path, std::string("cannot open: ") + std::strerror(errno));
  if (S_ISFIFO(status.st_mode)) {
    const std::string content = contentOf(path, file.get());
    if (!content.empty() && !beginsAsJson(content)) fail(path, "the data from this pipe is not JSON");
    return parseJson(path, content);
  }
  const std::string start = startOf(file.get());
  if (beginsAsJson(start) || isEmptyResult(path, status)) return parseJson(path, contentOf(path, file.get()));
  if (!start.starts_with("\177ELF") && !start.starts_with("!<"))
    fail(path, "is neither an ELF file nor JSON written by list");
  Inventory program = readInventory(path, options);
  program.modified = status.st_mtime;
  return one(std::move(program));
}
