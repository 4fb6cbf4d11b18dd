// Faults at every point of a run of tolquin.exe on a real program with the real tools: whatever fails, each row of the
// table is as in a run without faults, or lacks only its location or the size of its type; a run that loses rows
// reports it by its exit status or on standard error.
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/wait.h>

#include <csignal>
#include <random>
#include <regex>
#include <set>

#include "objRead.h"
#include "support.h"

namespace {

class Fault : public testing::Test {
 protected:
  void SetUp() override {
    const RunResult made = directory.run(R"(set -e; make -s -C $SOURCE/examples/inventory PROGRAM=$PWD/program
tolquin tables program -o vym --quiet; sed -i '/ busy /d' vym/objdump.txt; mkdir none; cp vym/objdump.1 none)");
    ASSERT_EQ(made.status, 0) << made.err;
    // If the index fails, gdb answers, so its rows are allowed too.
    for (const std::string& index : {vym, directory / "none"}) {
      ASSERT_EQ(run("DB=" + index + " EXEFILE=" + program + " " + core).status, 0);
      for (const std::string& row : rows()) {
        allowed.insert(row);
        // Without the location, or without the size of the type.
        allowed.insert(std::regex_replace(row, std::regex(R"([^\t]+\t\d+\t-1$)"), "<NULL>\t0\t-1"));
        allowed.insert(std::regex_replace(row, std::regex(R"(\t-?\d+\t<NULL>\t<NULL>)"), "\t-1\t<NULL>\t<NULL>"));
      }
    }
  }

  // The rows of the table without their keys.
  std::vector<std::string> rows() const {
    std::vector<std::string> found = splitAt(readFile(vym + "/tGlobalVarDef.tbl"), '\n');
    for (std::string& row : found) row.erase(0, row.find('\t') + 1);
    return found;
  }

  // `partial`: the run ended early, so the last row may be incomplete.
  void expectCorrectRows(const std::string& about, bool partial) const {
    std::vector<std::string> found = rows();
    if (partial && !found.empty()) found.pop_back();
    for (const std::string& row : found) EXPECT_TRUE(allowed.contains(row)) << about << ": " << row;
    EXPECT_TRUE(partial || found.size() == 43) << about << ": " << found.size() << " rows";
  }

  const TempDir directory;
  const std::string program = directory / "program";
  const std::string vym = directory / "vym";
  // LeakSanitizer does not work under strace.
  const std::string command = "ASAN_OPTIONS=detect_leaks=0 DB=" + vym + " EXEFILE=" + program + " timeout 100 ";
  const std::string core = "tolquin.exe " + vym + " " + program;
  std::set<std::string> allowed;
};

}  // namespace

TEST_F(Fault, EachSystemCallFailsOnceAndDescriptorsRunOut) {
  const std::set<int> statuses{0, 1, 114, 120, 126, 132, 146, 151, 156};
  const auto expectReported = [&](const std::string& about, const RunResult& result) {
    // A failure in the dynamic loader is not the program's.
    if (result.err.find("loading shared libraries") != std::string::npos || result.status > 156) return;
    EXPECT_TRUE(statuses.contains(result.status)) << about << ": " << result.status << result.err;
    if (result.status != 126) expectCorrectRows(about, result.status != 0 || !result.err.empty());
  };
  for (int limit = 3; limit < 20; ++limit) {
    const RunResult result = run("ulimit -n " + std::to_string(limit) + "; " + command + core);
    expectReported("descriptors " + std::to_string(limit), result);
    EXPECT_EQ(result.err.find("unable to fork"), std::string::npos) << result.err;
  }
  if (run("strace -o /dev/null true").status != 0) GTEST_SKIP() << "strace does not work here";
  for (const std::string call :
       {"pipe2", "clone", "openat", "read", "write", "pread64", "pwrite64", "ppoll", "wait4"}) {
    for (int n = 1; n <= 70; n += n < 10 ? 1 : 12) {
      const std::string inject = "strace -qq -o /dev/null -e trace=" + call + " -e inject=" + call +
                                 ":error=EIO:when=" + std::to_string(n) + " ";
      expectReported(call + " " + std::to_string(n), run(command + inject + core));
    }
  }
}

// Messages and exit statuses for calls that hardly ever fail.
TEST_F(Fault, MessagesOfRareFailures) {
  if (run("strace -o /dev/null true").status != 0) GTEST_SKIP() << "strace does not work here";
  const struct {
    std::string inject;
    int status;
    std::string err;
  } cases[] = {
      {"pipe2:error=EMFILE:when=1", 0, "ERROR: unable to open pipe to A2L: Too many open files.\n"},
      {"pipe2:error=EMFILE:when=2", 0, "ERROR: unable to open pipe from A2L: Too many open files.\n"},
      {"clone:error=EAGAIN:when=1", 0, "ERROR: unable to fork process: Resource temporarily unavailable.\n"},
      {"pipe2:error=EMFILE:when=4", 0, "ERROR: unable to open pipe to GDB: Too many open files.\n"},
      {"pipe2:error=EMFILE:when=5", 0, "ERROR: unable to open pipe from GDB: Too many open files.\n"},
      {"clone:error=EAGAIN:when=2", 0, "ERROR: unable to fork process: Resource temporarily unavailable.\n"},
      {"dup2:error=EMFILE:when=1 -f", 0, "ERROR: unable to dup to stdin: Too many open files.\n"},
      {"dup2:error=EMFILE:when=2 -f", 0, "ERROR: unable to dup to stdout: Too many open files.\n"},
      {"dup2:error=EMFILE:when=3 -f", 0, "ERROR: unable to dup to stderr: Too many open files.\n"},
      {"ppoll:error=EIO:when=1+", 0, "Error communicating with A2L!\n"},
      {"close:error=EIO -P " + vym + "/objdump.txt", 146, "tolquin: 146 - Unable to close file 5\n"},
      {"close:error=EIO -P " + vym + "/objdump.1", 151, "tolquin: 151 - Unable to close file 5\n"},
      {"close:error=EIO -P " + vym + "/tGlobalVarDef.tbl", 156, "tolquin: 156 - Unable to close file 5\n"},
      {"write:error=ENOSPC -P " + vym + "/tGlobalVarDef.tbl", 156, "tolquin: 156 - Unable to close file 28\n"},
      {"write:error=ENOSPC:when=1 -P " + vym + "/tGlobalVarDef.tbl", 156, "tolquin: 156 - Unable to close file 28\n"},
      {"read:error=ENODATA -P " + vym + "/objdump.1", 151, "tolquin: 151 - Unable to close file 61\n"},
      // A call that a signal interrupted is repeated.
      {"pwrite64:error=EINTR:when=2", 0, ""},
      {"pwrite64:error=ENOSPC:when=2", 1, vym + "/vifa.dat: node 1: cannot be written: No space left on device\n"},
  };
  for (const auto& c : cases) {
    const std::string call = c.inject.substr(0, c.inject.find(':'));
    const RunResult result = run("export DEBUG_ERR=22; " + command + "strace -qq -o /dev/null -e trace=" + call +
                                 " -e inject=" + c.inject + " " + core);
    EXPECT_EQ(result.status, c.status) << c.inject;
    // At this debug level, missing variables are reported as well.
    EXPECT_NE(result.err.find(c.err), std::string::npos) << c.inject << ": " << result.err;
    if (c.status != 156) expectCorrectRows(c.inject, true);
  }
}

// Children and the program itself are killed at random moments: no process is left, the index is complete or describes
// an empty table, and the next run succeeds.
TEST_F(Fault, KilledAtRandomMoments) {
  prctl(PR_SET_CHILD_SUBREAPER, 1);
  std::mt19937 random(3);
  int killed = 0;
  for (int round = 0; round < 200; ++round) {
    const bool itself = round % 2 == 0;
    const pid_t pid = startTolquin(vym, program);
    usleep(static_cast<useconds_t>(random() % 60000));
    pid_t victim = pid;
    if (!itself) {
      const std::string id = std::to_string(pid);
      const std::vector<std::string> list = splitAt(readFile("/proc/" + id + "/task/" + id + "/children"), ' ');
      victim = list.empty() ? 0 : std::atoi(list[random() % list.size()].c_str());
    }
    if (victim > 0) kill(victim, SIGKILL);
    int status = 0;
    ASSERT_EQ(waitpid(pid, &status, 0), pid);
    if (WIFSIGNALED(status)) ++killed;
    while (waitpid(-1, nullptr, 0) > 0) continue;  // reaps orphans too; one that survived would block here
    if (!itself) {
      EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
      expectCorrectRows("child killed", true);
    } else if (access((vym + "/vifa.dat").c_str(), F_OK) == 0) {
      IndexTable index('r', (vym + "/vifa.dat").c_str());
      EXPECT_TRUE(index.Empty() || index.Check());
    }
  }
  prctl(PR_SET_CHILD_SUBREAPER, 0);
  EXPECT_GT(killed, 0) << "all runs had already ended";
  EXPECT_EQ(run(command + core).status, 0);
  expectCorrectRows("afterwards", false);
}

// 200,000 variables and an addr2line that misbehaves in a fixed pseudo-random sequence: every row is correct or has no
// location, and the memory of the program does not grow.
TEST(Soak, RowsAreCorrectOrWithoutLocation) {
  constexpr int variables = SANITIZED ? 40000 : 200000;
  const TempDir directory;
  FakeTools fake;
  fake.addr2line(R"(
    s=5
    while read a; do
      s=$(((s * 1103515245 + 12345) % 2147483648))
      case $((s / 65536 % 2000)) in
        0) sleep 0.003 ;;
        1) printf "${a%??}"; sleep 0.001; echo "${a#"${a%??}"}.c:7"; continue ;;
        2) echo 'addr2line: trouble: 7' >&2 ;;
        3) printf 'BFD: part' >&2; echo 'ly: 8' >&2 ;;
        4) echo "$a.c:7"; echo other.c:9; continue ;;
        5) echo '??:0'; continue ;;
        6) echo ':?'; continue ;;
        7) printf '%020000d\n' 0 ;;
        8) echo nonsense ;;
        9) printf "$a.c:7\r\n"; continue ;;
        10) [ $((s % 8)) = 0 ] || echo '??'; echo nonsense; continue ;;
      esac
      echo "$a.c:7"
    done)");
  std::string list;
  std::string text;
  for (int i = 0; i < variables; ++i) {
    const std::string address = std::to_string(100000 + i);
    list += address + " 4 v" + address + "\n";
    text += "int v" + address + " /* 0x" + address + " */;\n";
  }
  writeFile(directory / "objdump.1", list);
  writeFile(directory / "objdump.txt", text);
  writeFile(directory / "sizes.tbl", "int\t4\n");
  const RunResult result =
      run("DB=" + directory.path() + " tolquin.exe " + directory.path() + " x & pid=$!; peak=0; " +
          "while line=$(grep VmHWM /proc/$pid/status 2>/dev/null); do peak=$line; sleep 0.05; done; " +
          "wait $pid; echo $? $peak");
  const std::vector<std::string> words = splitAt(result.out, ' ');
  ASSERT_EQ(words.at(0), "0") << result.err;
  const std::vector<std::string> rows = splitAt(readFile(directory / "tGlobalVarDef.tbl"), '\n');
  ASSERT_EQ(rows.size(), static_cast<std::size_t>(variables));
  int located = 0;
  for (int i = 0; i < variables; ++i) {
    const std::vector<std::string> columns = splitAt(rows[static_cast<std::size_t>(i)], '\t');
    located += columns[7] != "<NULL>";
    ASSERT_TRUE(columns[7] == "<NULL>" || "v" + columns[7] == columns[1] + ".c") << rows[static_cast<std::size_t>(i)];
  }
  EXPECT_GT(located, variables / 2);
  EXPECT_LT(std::atoi(words.at(2).c_str()), SANITIZED ? 1000000 : 40000) << "KiB";
}
