// What the tests share: temporary directories, running programs, fake tools.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

/// How a shell command ended: exit status (128 + signal when killed), and what it wrote.
struct RunResult {
  int status = 0;
  std::string out;
  std::string err;
};
/// Runs `command` by the shell.
RunResult run(const std::string& command);

/// A directory of its own, removed with all it holds at the end.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  /// Path of `name` within the directory.
  std::string operator/(const std::string& name) const { return path_ + "/" + name; }
  const std::string& path() const { return path_; }
  /// Runs `command` by the shell within the directory.
  RunResult run(const std::string& command) const { return ::run("cd " + path_ + "\n" + command); }

 private:
  std::string path_;
};

void writeFile(const std::string& path, const std::string& content);
std::string readFile(const std::string& path);
std::vector<std::string> splitAt(const std::string& text, char separator);

/// Starts tolquin.exe, mute, for a minute at most. Returns its process id.
pid_t startTolquin(const std::string& directory, const std::string& program);

/// Puts fake tools, shell scripts that do nothing at first, on the search path of this process while it lives.
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

/// Whether `condition` comes true within a minute, however busy the machine.
bool comesTrue(const std::function<bool()>& condition);

/// Descriptors open in this process, and its children that are still there, ended or not.
int openDescriptors();
int children();
