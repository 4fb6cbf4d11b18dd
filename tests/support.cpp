#include "support.h"

#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

namespace fs = std::filesystem;

namespace {

// Commands in tests find the programs as tolquin, tolquin.exe and inventoryRows on PATH, the sources in $SOURCE, and
// the directory of the project's own addr2line in $LOCATOR.
const bool environmentIsSet = [] {
  setenv("PATH", (std::string(PROGRAM_DIRECTORIES ":") + std::getenv("PATH")).c_str(), 1);
  setenv("SOURCE", SOURCE_DIRECTORY, 1);
  setenv("LOCATOR", LOCATOR_DIRECTORY, 1);
  return true;
}();

}  // namespace

TempDir::TempDir() : path_(fs::temp_directory_path() / "tolquin-test-XXXXXX") {
  if (mkdtemp(path_.data()) == nullptr) std::abort();
}

TempDir::~TempDir() {
  std::error_code ignored;
  fs::remove_all(path_, ignored);
}

void writeFile(const std::string& path, const std::string& content) {
  std::ofstream(path, std::ios::binary) << content;
}

std::string readFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

std::vector<std::string> splitAt(const std::string& text, char separator) {
  std::vector<std::string> parts;
  std::istringstream stream(text);
  for (std::string part; std::getline(stream, part, separator);) parts.push_back(part);
  return parts;
}

RunResult run(const std::string& command) {
  const TempDir capture;
  const std::string redirected = "{ " + command + "\n} >" + capture / "out" + " 2>" + capture / "err";
  const int status = std::system(redirected.c_str());
  const int code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return {code, readFile(capture / "out"), readFile(capture / "err")};
}

pid_t startTolquin(const std::string& directory, const std::string& program) {
  const pid_t pid = fork();
  if (pid != 0) return pid;
  setenv("DB", directory.c_str(), 1);
  setenv("EXEFILE", program.c_str(), 1);
  // LeakSanitizer starts a child too, and would wait forever for it if a test killed it.
  setenv("ASAN_OPTIONS", "detect_leaks=0", 1);
  alarm(60);
  std::freopen("/dev/null", "w", stderr);
  execlp("tolquin.exe", "tolquin.exe", directory.c_str(), program.c_str(), nullptr);
  _exit(99);
}

FakeTools::FakeTools() : oldPath_(std::getenv("PATH")) {
  addr2line("");
  gdb("");
  setenv("PATH", (directory_.path() + ":" + oldPath_).c_str(), 1);
}

FakeTools::~FakeTools() { setenv("PATH", oldPath_.c_str(), 1); }

void FakeTools::write(const std::string& name, const std::string& script) {
  writeFile(directory_ / name, "#!/bin/sh\n" + script + "\n");
  fs::permissions(directory_ / name, fs::perms::owner_all);
}

bool becomesTrue(const std::function<bool()>& condition) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(1);
  bool isTrue = condition();
  while (!isTrue && std::chrono::steady_clock::now() < end) {
    usleep(1000);
    isTrue = condition();
  }
  return isTrue;
}

int openDescriptors() {
  return static_cast<int>(std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator())) - 1;
}

int children() {
  const std::string self = std::to_string(getpid());
  std::istringstream list(readFile("/proc/self/task/" + self + "/children"));
  return static_cast<int>(std::distance(std::istream_iterator<int>(list), std::istream_iterator<int>()));
}
