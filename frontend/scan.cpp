#include "scan.h"

#include <fcntl.h>
#include <sys/prctl.h>
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

namespace {

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
  for (const ResultRow& row : readResultTable(directory)) {
    ++counts.typed;
    if (row[4] != "-1") ++counts.sized;
    if (row[7] != "<NULL>") ++counts.located;
  }
  return counts;
}

// The two steps for one executable.
enum class Step { Tables, Result };

struct Job {
  std::string executable;
  std::string directory;
  Step step = Step::Tables;
  Deadline start = Clock::now();
};

class Scanner {
 public:
  explicit Scanner(const ScanOptions& options)
      : options_(options), core_((fs::path(options.self).parent_path() / "tolquin.exe").string()) {}

  int run() {
    if (options_.useDebugger)
      expectTool("gdb", "variables that the tables lack will have no type; --no-gdb says you know");
    if (options_.gnuLocator || locatorDirectory().empty()) expectTool("addr2line", "no place will be known");
    std::set<std::string> directories;
    for (const std::string& executable : options_.executables) {
      const std::string directory = tableDirectory(executable, options_.outputDirectory);
      if (directories.insert(fs::absolute(directory).lexically_normal()).second) {
        waiting_.push_back({executable, directory});
      } else {
        fail(executable, "its results would go to " + directory + ", as those of an executable named before");
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
    job.start = Clock::now();
    start(std::move(job));
  }

  void start(Job job) {
    std::vector<std::string> command;
    if (job.step == Step::Tables) {
      command = {options_.self, "tables", "--output=" + job.directory, "--quiet"};
      if (options_.qualified) command.emplace_back("--qualified");
      command.insert(command.end(), {"--", job.executable});
    } else {
      command = {core_, job.directory, absolute(job.executable)};
    }
    const pid_t parent = getpid();
    const pid_t pid = fork();
    if (pid == 0) runStep(command, job, parent);
    if (pid > 0) setpgid(pid, pid);  // here too, as nobody knows who comes first
    if (pid < 0) {
      fail(job.executable, std::string("no process can be started: ") + std::strerror(errno));
    } else {
      running_.emplace(pid, std::move(job));
    }
  }

  // An executable whose name begins with '-' must not be taken for an option by the tools.
  static std::string absolute(const std::string& path) { return fs::absolute(path).string(); }

  [[noreturn]] void runStep(const std::vector<std::string>& command, const Job& job, pid_t parent) const {
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (getppid() != parent) _exit(255);
    setpgid(0, 0);
    signals_.restore();
    setenv("DB", job.directory.c_str(), 1);
    if (options_.useDebugger) {
      setenv("EXEFILE", absolute(job.executable).c_str(), 1);
    } else {
      unsetenv("EXEFILE");
    }
    setenv("DEBUG_ERR", "0", 1);
    if (!options_.gnuLocator) putFirstOnPath(locatorDirectory());
    std::vector<char*> argv;
    argv.reserve(command.size() + 1);
    for (const std::string& word : command) argv.push_back(const_cast<char*>(word.c_str()));
    argv.push_back(nullptr);
    execv(argv[0], argv.data());
    std::fprintf(stderr, "tolquin: %s cannot be run: %s\n", argv[0], std::strerror(errno));
    _exit(255);
  }

  // Where the locator lies: in the build beside this program, installed apart from it.
  std::string locatorDirectory() const {
    const fs::path here = fs::path(options_.self).parent_path();
    for (const fs::path& directory : {here / "libexec/tolquin", here / "../libexec/tolquin"}) {
      if (fs::exists(directory / "addr2line")) return fs::absolute(directory);
    }
    return "";
  }

  static void putFirstOnPath(const std::string& directory) {
    const char* path = std::getenv("PATH");
    if (!directory.empty()) setenv("PATH", (directory + ":" + (path != nullptr ? path : "/usr/bin:/bin")).c_str(), 1);
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
      fail(job.executable, reason(job.step, status));
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
    if (step == Step::Tables) return code == 1 ? "" : program + " ended with status " + std::to_string(code);
    return program + " ended with status " + std::to_string(code) + "; its manual page tells what that means";
  }

  void fail(const std::string& executable, const std::string& why) {
    clearProgress();
    ++failed_;
    ++done_;
    // The maker of the tables has said itself what was wrong.
    if (!why.empty()) std::fprintf(stderr, "tolquin: %s: %s\n", executable.c_str(), why.c_str());
  }

  void report(const Job& job) {
    clearProgress();
    ++done_;
    const Counts counts = countResults(job.directory);
    const double seconds = std::chrono::duration<double>(Clock::now() - job.start).count();
    std::printf(
        "%s: %zu variables found, %zu typed, %zu sized, %zu located, %zu skipped, %.2f s: %s/tGlobalVarDef.tbl\n",
        job.executable.c_str(), counts.found, counts.typed, counts.sized, counts.located, counts.skipped(), seconds,
        job.directory.c_str());
    std::fflush(stdout);
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
  [[noreturn]] void endAll(int number) {
    for (const auto& [pid, job] : running_) ::kill(-pid, SIGTERM);
    while (waitpid(-1, nullptr, 0) > 0 || errno == EINTR) continue;
    // Half a result must not be taken for a whole one.
    for (const auto& [pid, job] : running_) {
      if (job.step == Step::Result) unlink((job.directory + "/tGlobalVarDef.tbl").c_str());
    }
    clearProgress();
    signals_.restore();
    signal(number, SIG_DFL);
    raise(number);
    _exit(1);
  }

  const AwaitedSignals signals_;
  const ScanOptions& options_;
  const std::string core_;
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
