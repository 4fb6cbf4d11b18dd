#include "scan.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <filesystem>
#include <map>
#include <set>

#include "childProcess.h"
#include "resultTable.h"
#include "userError.h"

namespace {

// `words` as exec(3) wants them; valid as long as `words`.
std::vector<char*> execArguments(const std::vector<std::string>& words) {
  std::vector<char*> pointers;
  pointers.reserve(words.size() + 1);
  for (const std::string& word : words) pointers.push_back(const_cast<char*>(word.c_str()));
  pointers.push_back(nullptr);
  return pointers;
}

namespace fs = std::filesystem;

// The signals that a scan waits for, kept from being delivered otherwise, so that none can come at a bad moment.
class AwaitedSignals {
 public:
  AwaitedSignals() {
    signal(SIGCHLD, SIG_DFL);
    sigemptyset(&awaited_);
    for (const int number : {SIGCHLD, SIGINT, SIGTERM, SIGHUP}) sigaddset(&awaited_, number);
    sigprocmask(SIG_BLOCK, &awaited_, &before_);
  }
  ~AwaitedSignals() { restore(); }
  AwaitedSignals(const AwaitedSignals&) = delete;
  AwaitedSignals& operator=(const AwaitedSignals&) = delete;

  void restore() const { sigprocmask(SIG_SETMASK, &before_, nullptr); }
  // Waits for the next of them and returns its number.
  int next() const {
    int number = -1;
    while (number < 0) number = sigwaitinfo(&awaited_, nullptr);
    return number;
  }
  // The same for a second at most; 0 when none came.
  int nextWithinSecond() const {
    const timespec second{1, 0};
    return std::max(sigtimedwait(&awaited_, nullptr, &second), 0);
  }

 private:
  sigset_t awaited_{};
  sigset_t before_{};
};

// Of one result table.
struct Counts {
  std::size_t found = 0, typed = 0, sized = 0, located = 0;
  std::size_t skipped() const { return found - typed; }
};

Counts countResults(const std::string& directory) {
  Counts counts;
  counts.found = countLines(directory + "/objdump.1");
  forEachResultRow(directory, [&counts](const ResultRow& row) {
    ++counts.typed;
    if (row[dRefDataSizeColumn] != resultColumns[dRefDataSizeColumn].unknown) ++counts.sized;
    if (row[sourceFileColumn] != resultColumns[sourceFileColumn].unknown) ++counts.located;
  });
  return counts;
}

// The two steps for one executable.
enum class Step { Tables, Result };

struct Job {
  std::string executable;
  std::string path;  // of the executable, absolute: a name that begins with '-' is no option for the tools
  std::string directory;
  Step step = Step::Tables;
  Clock::time_point begin = Clock::now();
};

// Half a result, or one of an earlier program, must not be taken for the result.
void removeResult(const Job& job) { unlink((job.directory + "/tGlobalVarDef.tbl").c_str()); }

class Scanner {
 public:
  explicit Scanner(const ScanOptions& options)
      : options_(options),
        core_((fs::path(options.self).parent_path() / "tolquin.exe").string()),
        locatorDirectory_(findLocator(fs::path(options.self).parent_path())) {}

  int run() {
    if (options_.useDebugger)
      expectTool("gdb", "variables that the tables lack will have no type; --no-gdb says you know");
    if (options_.gnuLocator || locatorDirectory_.empty()) expectTool("addr2line", "no place will be known");
    std::set<std::string> directories;
    for (const std::string& executable : options_.executables) {
      const std::string directory = tableDirectory(executable, options_.outputDirectory);
      if (directories.insert(fs::absolute(directory).lexically_normal()).second) {
        waiting_.push_back({executable, fs::absolute(executable).string(), directory});
      } else {
        ++failed_;
        ++done_;
        std::fprintf(stderr, "tolquin: %s: its results would go to %s, as those of an executable named before\n",
                     executable.c_str(), directory.c_str());
      }
    }
    while (!waiting_.empty() || !running_.empty()) {
      while (!waiting_.empty() && running_.size() < std::max(1u, options_.jobs)) startNext();
      showProgress();
      awaitOne();
    }
    clearProgress();
    return failed_ > 0 ? 1 : 0;
  }

 private:
  static void expectTool(const std::string& name, const char* otherwise) {
    const char* set = std::getenv("PATH");
    const std::string path = set != nullptr ? set : "";
    for (std::size_t start = 0, end = 0; end != std::string::npos; start = end + 1) {
      end = path.find(':', start);
      if (access((path.substr(start, end - start) + "/" + name).c_str(), X_OK) == 0) return;
    }
    std::fprintf(stderr, "tolquin: warning: %s is not on the search path: %s\n", name.c_str(), otherwise);
  }

  void startNext() {
    Job job = waiting_.front();
    waiting_.pop_front();
    job.begin = Clock::now();
    removeResult(job);
    start(std::move(job));
  }

  void start(Job job) {
    const std::vector<std::string> command = commandOf(job);
    const std::vector<std::string> environment = environmentOf(job);
    const std::vector<char*> arguments = execArguments(command);
    const std::vector<char*> variables = execArguments(environment);
    const pid_t pid = forkBound(SIGTERM);
    if (pid == 0) {
      setpgid(0, 0);
      signals_.restore();
      execve(arguments[0], arguments.data(), variables.data());
      std::fprintf(stderr, "tolquin: %s cannot be run: %s\n", arguments[0], std::strerror(errno));
      _exit(notRun);
    }
    if (pid < 0) {
      fail(job, std::string("no process can be started: ") + std::strerror(errno));
      return;
    }
    setpgid(pid, pid);  // here too, as nobody knows who comes first
    running_.emplace(pid, std::move(job));
  }

  std::vector<std::string> commandOf(const Job& job) const {
    if (job.step == Step::Result) return {core_, job.directory, job.path};
    std::vector<std::string> command{options_.self, "tables", "--output=" + job.directory, "--quiet"};
    if (options_.qualified) command.emplace_back("--qualified");
    command.insert(command.end(), {"--", job.executable});
    return command;
  }

  // This program's environment with the variables of tolquin.exe set.
  std::vector<std::string> environmentOf(const Job& job) const {
    std::map<std::string, std::string> variables;
    for (char** entry = environ; *entry != nullptr; ++entry) {
      const std::string_view text = *entry;
      const std::size_t end = std::min(text.find('='), text.size());
      variables.emplace(text.substr(0, end), text.substr(end));
    }
    variables["DB"] = "=" + job.directory;
    variables["DEBUG_ERR"] = "=0";
    variables.erase("EXEFILE");
    variables.erase("GDB_VERSION");  // names are asked for as gdb knows them today
    if (options_.useDebugger) variables["EXEFILE"] = "=" + job.path;
    if (!options_.gnuLocator && !locatorDirectory_.empty()) {
      std::string& path = variables["PATH"];
      path = "=" + locatorDirectory_ + ":" + (path.empty() ? "/usr/bin:/bin" : path.substr(1));
    }
    std::vector<std::string> environment;
    environment.reserve(variables.size());
    for (const auto& [name, value] : variables) environment.push_back(name + value);
    return environment;
  }

  // Where the locator lies: in the build beside this program, installed apart from it. Empty when it is missing.
  static std::string findLocator(const fs::path& here) {
    for (const fs::path& directory : {here / "libexec/tolquin", here / "../libexec/tolquin"}) {
      if (fs::exists(directory / "addr2line")) return fs::absolute(directory);
    }
    return "";
  }

  void awaitOne() {
    int status = 0;
    pid_t pid = 0;
    while ((pid = waitpid(-1, &status, WNOHANG)) == 0) {
      if (const int number = signals_.next(); number != SIGCHLD) endAll(number);
    }
    const auto found = running_.find(pid);
    if (found == running_.end()) return;
    Job job = std::move(found->second);
    running_.erase(found);
    finish(std::move(job), status);
  }

  void finish(Job job, int status) {
    if (status != 0) {
      fail(job, reason(job.step, status));
    } else if (job.step == Step::Tables) {
      job.step = Step::Result;
      // To be made anew anyway; emptying a large old one takes longer.
      unlink((job.directory + "/vifa.dat").c_str());
      start(std::move(job));
    } else {
      report(job);
    }
  }

  static std::string reason(Step step, int status) {
    const std::string program = step == Step::Tables ? "making the tables" : "tolquin.exe";
    if (WIFSIGNALED(status)) {
      return program + " was ended by signal " + std::to_string(WTERMSIG(status)) + " (" + strsignal(WTERMSIG(status)) +
             ")";
    }
    const int code = WEXITSTATUS(status);
    if (code == notRun) return "";
    if (step == Step::Tables) return code == 1 ? "" : program + " ended with status " + std::to_string(code);
    return program + " ended with status " + std::to_string(code) + "; its manual page tells what that means";
  }

  // An empty `why`: the step has said itself what was wrong.
  void fail(const Job& job, const std::string& why) {
    clearProgress();
    ++failed_;
    ++done_;
    removeResult(job);
    if (!why.empty()) std::fprintf(stderr, "tolquin: %s: %s\n", job.executable.c_str(), why.c_str());
  }

  void report(const Job& job) try {
    const Counts counts = countResults(job.directory);
    clearProgress();
    ++done_;
    const double seconds = std::chrono::duration<double>(Clock::now() - job.begin).count();
    std::printf(
        "%s: %zu variables found, %zu typed, %zu sized, %zu located, %zu skipped, %.2f s: %s/tGlobalVarDef.tbl\n",
        job.executable.c_str(), counts.found, counts.typed, counts.sized, counts.located, counts.skipped(), seconds,
        job.directory.c_str());
    std::fflush(stdout);
  } catch (const UserError& error) {
    fail(job, error.what());
  }

  void showProgress() {
    if (!onTerminal_ || running_.empty()) return;
    const std::string& name = running_.begin()->second.executable;
    std::fprintf(stderr, "\r\033[K%zu of %zu done, %zu running: %.60s", done_, options_.executables.size(),
                 running_.size(), name.c_str());
  }

  void clearProgress() const {
    if (onTerminal_) std::fputs("\r\033[K", stderr);
  }

  // Each step leads a process group of its own, so its children can be reached too.
  void signalAll(int number) const {
    for (const auto& [pid, job] : running_) ::kill(-pid, number);
  }

  // Ends the steps: by force when they take too long, or a second signal asks for it.
  [[noreturn]] void endAll(int number) {
    signalAll(SIGTERM);
    std::size_t left = running_.size();
    for (int seconds = 0, signal = SIGCHLD; left > 0; signal = signals_.nextWithinSecond()) {
      if (signal == 0) ++seconds;
      if (seconds == endSeconds || (signal != 0 && signal != SIGCHLD)) signalAll(SIGKILL);
      while (left > 0 && waitpid(-1, nullptr, WNOHANG) > 0) --left;
    }
    for (const auto& [pid, job] : running_) removeResult(job);
    clearProgress();
    signals_.restore();
    ::signal(number, SIG_DFL);
    raise(number);
    _exit(1);
  }

  static constexpr int notRun = 127;    // exit status of a step that could not be executed
  static constexpr int endSeconds = 5;  // for a step to end by itself

  const AwaitedSignals signals_;
  const ScanOptions& options_;
  const std::string core_;
  const std::string locatorDirectory_;
  const bool onTerminal_ = isatty(STDERR_FILENO) != 0;
  std::deque<Job> waiting_;
  std::map<pid_t, Job> running_;
  std::size_t done_ = 0;
  std::size_t failed_ = 0;
};

}  // namespace

std::string tableDirectory(const std::string& executable, const std::string& outputDirectory) {
  const fs::path path = executable;
  if (outputDirectory.empty()) return executable + ".vym";
  return (fs::path(outputDirectory) / (path.filename().string() + ".vym")).string();
}

int scan(const ScanOptions& options) { return Scanner(options).run(); }
