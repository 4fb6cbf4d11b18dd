// What the tests share: temporary directories, running programs, fake tools.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

/// The outcome of a shell command: exit status (128 + signal if it was killed) and output.
struct RunResult {
  int status = 0;
  std::string out;
  std::string err;
};
/// Runs `command` in a shell.
RunResult run(const std::string& command);

/// A temporary directory, which the destructor removes with its contents.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  /// Path of `name` in the directory.
  std::string operator/(const std::string& name) const { return path_ + "/" + name; }
  const std::string& path() const { return path_; }
  /// Runs `command` in a shell, in the directory.
  RunResult run(const std::string& command) const { return ::run("cd " + path_ + "\n" + command); }

 private:
  std::string path_;
};

void writeFile(const std::string& path, const std::string& content);
std::string readFile(const std::string& path);
std::vector<std::string> splitAt(const std::string& text, char separator);

/// Starts tolquin.exe for at most a minute, with standard error discarded. Returns its process id.
pid_t startTolquin(const std::string& directory, const std::string& program);

/// Puts an addr2line and a gdb that are shell scripts, at first empty ones, in front of PATH for its lifetime.
class FakeTools {
 public:
  FakeTools();
  ~FakeTools();
  void addr2line(const std::string& script) { write("addr2line", script); }
  void gdb(const std::string& script) { write("gdb", script); }

 private:
  void write(const std::string& name, const std::string& script);

  TempDir directory_;
  std::string oldPath_;
};

/// Whether `condition` becomes true within a minute.
bool becomesTrue(const std::function<bool()>& condition);

/// The number of descriptors open in this process, and of its children, including zombies.
int openDescriptors();
int children();
