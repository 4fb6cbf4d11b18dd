// tolquin.exe: on the example, built by real compilers and with the real tools, compared with what these report in
// batch mode; and with fake tools and faults, where messages, exit statuses and rows are compared exactly.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <map>
#include <regex>
#include <set>

#include "support.h"

namespace {

using Columns = std::vector<std::string>;

std::vector<Columns> table(const std::string& path, char separator = '\t') {
  std::vector<Columns> rows;
  for (const std::string& line : splitAt(readFile(path), '\n')) rows.push_back(splitAt(line, separator));
  return rows;
}

// A type without blanks and scopes: the index names C++ types without their scopes.
std::string bare(const std::string& type) {
  return std::regex_replace(type, std::regex(R"(\(anonymous namespace\)::|\w+::(?!\*)| )"), "");
}

const std::string gnu = "/usr/bin";
const std::string ours = "$LOCATOR";

// Compares a row with the line of objdump.1, with the location from addr2line in batch mode, and with witness.py's
// table.
void expectCorrect(const Columns& row, const Columns& listed, const std::string& location, const Columns& witness) {
  const std::string about = listed[2] + " at " + listed[0];
  EXPECT_EQ(bare(row[2]), bare(witness[2])) << about;
  EXPECT_EQ(std::stol(row[3]), std::stol(listed[1], nullptr, 16)) << about;
  EXPECT_EQ(row[3], witness[3]) << about;
  EXPECT_EQ(row[4], row[4] == "-1" ? "-1" : witness[4]) << about;
  const bool known = !location.starts_with("??");
  const std::size_t colon = location.rfind(':');
  EXPECT_EQ(row[7], known ? location.substr(0, colon) : "<NULL>") << about;
  EXPECT_EQ(std::stol(row[8]), known ? std::atol(&location[colon + 1]) : 0) << about;
  // gdb 13 cannot name the file of a variable in a unit of link-time optimization.
  const std::string file = witness[5].ends_with("/<artificial>") ? row[7] : witness[5];
  EXPECT_EQ(row[7] + row[8], known ? file + witness[6] : "<NULL>0") << about;
}

// Compares a result table with addr2line and gdb. Returns the names of the variables that gdb knows and the table
// lacks.
std::set<std::string> compare(const std::string& directory, const std::string& program, const std::string& tool) {
  std::map<std::string, Columns> witness;
  for (const Columns& row : table(directory + "/witness.tbl")) witness[row[0]] = row;
  const RunResult batch = run("cut -d' ' -f1 " + directory + "/objdump.1 | " + tool + "/addr2line -e " + program);
  const Columns locations = splitAt(batch.out, '\n');
  const std::vector<Columns> rows = table(directory + "/tGlobalVarDef.tbl");
  std::size_t at = 0;
  std::size_t number = 0;
  for (const Columns& listed : table(directory + "/objdump.1", ' ')) {
    const std::string& location = locations.at(number++);
    if (at == rows.size() || rows[at][1] != listed[2]) continue;
    const Columns& row = rows[at++];
    EXPECT_EQ(row[0], std::to_string(at));
    const auto known = witness.find(listed[0]);
    if (known == witness.end()) continue;
    EXPECT_TRUE(tool == gnu || !location.starts_with("?")) << listed[2];
    expectCorrect(row, listed, location, known->second);
    witness.erase(known);
  }
  EXPECT_EQ(at, rows.size()) << "a row for a variable that is not listed";
  std::set<std::string> missing;
  for (const auto& [address, row] : witness) missing.insert(row[1]);
  return missing;
}

// A build of the example: the two compilers, their flags and, after a ';', what is done with the program.
class Example : public testing::TestWithParam<std::string> {};

// Writes tables for runs with fake tools: three variables, two of which are in the index.
void writeSmallTables(const std::string& directory) {
  writeFile(directory + "/objdump.1",
            "08049f40 00000004 counter\n08049f44 00000010 table\n08049f50 <NULL> ns::unknown\n");
  writeFile(directory + "/objdump.txt", "int counter /* 0x8049f40 */;\nchar *table /* 0x8049f44 */;\n");
  writeFile(directory + "/sizes.tbl", "int\t4\nchar\t1\n");
}

constexpr const char* echoingTool = "while read a; do echo $a.c:7; done";

}  // namespace

TEST_P(Example, EveryRowIsRight) {
  const TempDir directory;
  const std::string& build = GetParam();
  const std::size_t end = std::min(build.find(';'), build.size());
  // gdb is asked before the debugging information is moved, which sometimes confuses gdb 13.
  const RunResult built = directory.run("set -e; set -- " + build.substr(0, end) + R"(
      c=$1; cxx=$2; shift 2; mkdir 'a b'; cp $SOURCE/examples/inventory/*.* 'a b'; cd 'a b'
      $c -w $* -c parts.c; $cxx -w $* -c main.cpp; $cxx -w $* main.o parts.o -o ../program
      cd ..; /usr/bin/python3 $SOURCE/tests/witness.py --table program >witness.tbl)" +
                                        build.substr(end) + R"(
tolquin tables program -o vym --quiet; mv witness.tbl vym)");
  ASSERT_EQ(built.status, 0) << built.err;
  const std::string vym = directory / "vym";
  const auto expectAllBut = [&](const std::set<std::string>& unknown, const std::string& tool) {
    const RunResult result = directory.run("PATH=" + tool + ":$PATH DB=vym EXEFILE=program tolquin.exe vym program");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out + result.err, "");
    for (const std::string& name : compare(vym, directory / "program", tool))
      EXPECT_TRUE(unknown.contains(name)) << name;
  };
  expectAllBut({}, gnu);
  // Without declarations, gdb must answer for every variable. It cannot for static variables of functions, nor if the
  // name is inside the type. The project's own addr2line knows all locations.
  writeFile(vym + "/objdump.txt", "");
  expectAllBut({"calls", "inner", "message", "next_slot", "compare_codes", "hooks"}, ours);
}

INSTANTIATE_TEST_SUITE_P(
    Builds, Example,
    testing::Values(
        "gcc g++ -O0 -gdwarf-5 -pie", "gcc g++ -O0 -gdwarf-4 -no-pie", "gcc g++ -O2 -gdwarf-5 -no-pie",
        "gcc g++ -O2 -gdwarf-4 -pie -fPIE", "gcc g++ -O0 -gdwarf-4 -gz -fdebug-types-section", "gcc g++ -O2 -g -flto",
        "gcc g++ -O0 -g -gsplit-dwarf",
        "gcc g++ -O2 -g -ffunction-sections -fdata-sections -Wl,--gc-sections; objcopy --only-keep-debug program "
        "p.debug; strip -g program; objcopy --add-gnu-debuglink=p.debug program",
        "gcc g++ -O0 -g; cp program p2; dwz -m shared program p2", "clang clang++ -O0 -g",
        "clang clang++ -O2 -gdwarf-4", "clang clang++ -O1 -g -gsplit-dwarf"));

TEST(Program, ExactRowsTracesAndRequests) {
  const TempDir directory;
  FakeTools fake;
  writeSmallTables(directory.path());
  fake.addr2line(std::string("read a; echo $a.c:12; read a; echo ??:0\n") + echoingTool);
  fake.gdb("printf '(gdb) '; read a; echo $a >question; printf '3:\\tint unknown;\\n(gdb) '; read a");
  const RunResult result = directory.run("DEBUG_ERR=22 VYMDEBUG=yes GDB_VERSION=5 EXEFILE=x tolquin.exe . x");
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err,
            "input line <08049f40 00000004 counter\n>\nlooking for size of(int)\nfound size of(int) = 4\n"
            "input line <08049f44 00000010 table\n>\nlooking for size of(char)\nfound size of(char) = 1\n"
            "input line <08049f50 <NULL> ns::unknown\n>\nlooking for size of(int)\nfound size of(int) = 4\n");
  EXPECT_EQ(readFile(directory / "tGlobalVarDef.tbl"),
            "1\tcounter\tint\t4\t4\t<NULL>\t<NULL>\t08049f40.c\t12\t-1\n"
            "2\ttable\tchar *\t16\t1\t<NULL>\t<NULL>\t<NULL>\t0\t-1\n"
            "3\tns::unknown\tint\t-1\t4\t<NULL>\t<NULL>\t08049f50.c\t7\t-1\n");
  EXPECT_EQ(readFile(directory / "question"), "info var unknown\n");
}

// Unusual replies of addr2line, and the files and lines in the three rows.
TEST(Program, OddReplies) {
  if (readFile("/proc/self/syscall").empty()) GTEST_SKIP() << "the system does not show whether a tool is busy";
  const struct {
    std::string tool;
    std::string locations;
  } cases[] = {
      {"while read a; do printf \"$a.c:7\\r\\n\"; done", "08049f40.c 7|08049f44.c 7|08049f50.c 7"},
      {"read a; echo a.c:1; read a; echo nonsense; read a; echo c.c:3; read a", "a.c 1|<NULL> 0|c.c 3"},
      {"read a; echo a.c:1; /bin/sleep 0.001; /bin/echo x.c:9; read a; echo b.c:2; read a; echo c.c: 3x; read a",
       "a.c 1|b.c 2|c.c 3"},
      {"echo hello; read a; echo C:/a.c:1; read a; echo b.c:; read a; echo c.c:x; read a", "C 0|<NULL> 0|c.c 0"},
      {"read a", "<NULL> 0|<NULL> 0|<NULL> 0"},
  };
  for (const auto& c : cases) {
    const TempDir directory;
    FakeTools fake;
    writeSmallTables(directory.path());
    fake.addr2line(c.tool);
    fake.gdb("while printf '(gdb) ' && read a && [ \"$a\" != quit ]; do echo 'int unknown;'; done");
    // Repeated, because a tool that is preempted between two lines is too late with the second.
    RunResult result;
    for (int tries = 0; tries < 5 && result.out != c.locations + "|"; ++tries)
      result = directory.run(R"(EXEFILE=x tolquin.exe . x; cut -f8,9 tGlobalVarDef.tbl | tr '\t\n' ' |')");
    EXPECT_EQ(result.out, c.locations + "|") << c.tool;
    EXPECT_EQ(result.err, "") << c.tool;
  }
}

// A gdb that ends between two questions, or instead of answering, is restarted each time.
TEST(Program, DebuggerThatEnds) {
  for (const std::string after :
       {"", "printf '(gdb) '; read a; [ -e again ] && rm again || { touch again; exit; }; "}) {
    const TempDir directory;
    FakeTools fake;
    writeSmallTables(directory.path());
    writeFile(directory / "objdump.txt", "");
    fake.addr2line(echoingTool);
    fake.gdb(after.empty() ? "printf '(gdb) '; read a b name; printf \"int $name;\\n(gdb) \""
                           : after + "echo \"long ${a##* };\"; printf '(gdb) '");
    const RunResult result = directory.run("EXEFILE=x tolquin.exe . x; cut -f2,3 tGlobalVarDef.tbl");
    const std::string type = after.empty() ? "int" : "long";
    EXPECT_EQ(result.out, "counter\t" + type + "\ntable\t" + type + "\nns::unknown\t" + type + "\n");
    EXPECT_EQ(result.err, "");
  }
}

// Repeated, because the tool has only 0.2 seconds to end by itself.
TEST(Program, UnusedToolSeesItsInputClose) {
  FakeTools fake;
  fake.addr2line("echo >started; read a; echo >ended");
  const TempDir directory;
  writeSmallTables(directory.path());
  writeFile(directory / "objdump.1", "");
  RunResult result;
  for (int tries = 0; tries < 20 && result.out != "ended\nstarted\n"; ++tries)
    result = directory.run("rm -f *ed; tolquin.exe . x; ls | grep ed$");
  EXPECT_EQ(result.out, "ended\nstarted\n");
}

// A run empties the index only when no other run has it locked; it does not wait if the index is not a regular file.
TEST(Program, IndexLockedByAnotherRun) {
  if (readFile("/proc/self/syscall").empty()) GTEST_SKIP() << "the system does not show what a process waits for";
  const TempDir directory;
  FakeTools fake;
  fake.addr2line(echoingTool);
  writeSmallTables(directory.path());
  writeFile(directory / "vifa.dat", "of another run");
  int lock = open((directory / "vifa.dat").c_str(), O_RDONLY | O_CLOEXEC);
  ASSERT_EQ(flock(lock, LOCK_EX), 0);
  const pid_t pid = startTolquin(directory.path(), "x");
  const std::string sleeping = std::to_string(SYS_clock_nanosleep) + " ";
  const std::string state = "/proc/" + std::to_string(pid) + "/syscall";
  EXPECT_TRUE(becomesTrue([&] { return readFile(state).starts_with(sleeping); }));
  EXPECT_EQ(readFile(directory / "vifa.dat"), "of another run");
  close(lock);
  int status = 0;
  EXPECT_EQ(waitpid(pid, &status, 0), pid);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(table(directory / "tGlobalVarDef.tbl").size(), 2u);

  lock = open("/dev/null", O_RDONLY | O_CLOEXEC);
  ASSERT_EQ(flock(lock, LOCK_EX), 0);
  const RunResult result = directory.run("ln -sf /dev/null vifa.dat; timeout 100 tolquin.exe . x");
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(table(directory / "tGlobalVarDef.tbl").size(), 2u);
  close(lock);
}

// Two simultaneous runs both write complete tables.
TEST(Program, RunsThatShareAnIndex) {
  const TempDir directory;
  FakeTools fake;
  fake.addr2line(echoingTool);
  directory.run("mkdir a b");
  writeSmallTables(directory / "a");
  writeSmallTables(directory / "b");
  for (int i = 0; i < 20; ++i) {
    const RunResult result = directory.run(
        R"(rm -f */tGlobalVarDef.tbl; DB=a tolquin.exe a x & DB=a tolquin.exe b x; echo $?; wait $!; echo $?
wc -l <a/tGlobalVarDef.tbl; wc -l <b/tGlobalVarDef.tbl)");
    EXPECT_EQ(result.out, "0\n0\n2\n2\n");
  }
}

// What goes wrong, how the program reports it, and what is then in the table.
TEST(Program, Faults) {
  const std::string usage =
      "This program is intended only to read the files \ngenerated by the VYM, parse them into the desired \n"
      "parts, then determine global variable definition info. \nIt writes into the message file, and to stdout. \n"
      "Usage is...\ntolquin.exe  <directory-spec> <executable>\n";
  const std::string row = "1\tcounter\tint\t4\t4\t<NULL>\t<NULL>\t08049f40.c\t7\t-1\n";
  const std::string rows = row + "2\ttable\tchar *\t16\t1\t<NULL>\t<NULL>\t08049f44.c\t7\t-1\n";
  const std::string unlocated =
      "1\tcounter\tint\t4\t4\t<NULL>\t<NULL>\t<NULL>\t0\t-1\n"
      "2\ttable\tchar *\t16\t1\t<NULL>\t<NULL>\t<NULL>\t0\t-1\n";
  const std::string start = "DEBUG_ERR=22 VYMDEBUG=no DB=. tolquin.exe ";
  const std::string usual = start + ". x";
  const std::string notFound = "Var info from Address 8049f50 Not Found\n";
  const std::string longName(600, 'n');
  const struct {
    std::string command;
    int status;
    std::string out, err;
    std::string table;  // "-": does not exist
    std::string addr2line = echoingTool;
  } cases[] = {
      {start, 112, usage, "", "-"},
      {start + ". x y", 112, usage, "", "-"},
      {start + "'' x", 112, usage, "", "-"},
      {start + ".// x", 0, "", notFound, rows},
      {"DEBUG_ERR=021 DB=. tolquin.exe . x", 0, "", "", rows},
      {"rm objdump.txt; " + usual, 114, "", "tolquin: 114 - Unable to open input file: ./objdump.txt 2\n", "-"},
      {"rm objdump.1; " + usual, 120, "", "tolquin: 120 - Unable to open input file: ./objdump.1 2\n", "-"},
      {"rm objdump.1; DEBUG_ERR=21 DB=. tolquin.exe . x", 120, "", "", "-"},
      {"mkdir tGlobalVarDef.tbl; " + usual, 126, "",
       "tolquin: 126 - Unable to open input file: ./tGlobalVarDef.tbl 21\n", "-"},
      {"rm sizes.tbl; " + usual, 132, "", "tolquin: 132 - Unable to open input file: ./sizes.tbl 2\n", ""},
      {"ln -s /dev/full tGlobalVarDef.tbl; " + usual, 156, "", notFound + "tolquin: 156 - Unable to close file 28\n",
       "-"},
      {"echo 08049f48 4 >>objdump.1; " + usual, 223, "", notFound + "tolquin: 735 - Error parsing objdump.1 record\n",
       rows},
      {"echo >objdump.1; " + usual, 223, "", "tolquin: 735 - Error parsing objdump.1 record\n", ""},
      {R"(seq 100000 | tr '0\n' '\0x' >objdump.1; DB=. tolquin.exe . x)", 223, "", "", ""},
      {": >objdump.1; " + usual, 0, "", "", ""},
      {"DEBUG_ERR=22 DB=none tolquin.exe . x", 1, "", "File cannot be opened\n", ""},
      {"mkdir d; DB=d tolquin.exe . x", 0, "", "cannot open d/objdump.1to read\n", ""},
      {"mkdir d; cp objdump.1 d; DB=d tolquin.exe . x", 0, "", "cannot open d/objdump.txtto read\n", ""},
      {"ulimit -f 10; " + usual, 1, "", "./vifa.dat: node 0: cannot be written: File too large\n", ""},
      {usual, 0, "", "EOF reading from A2L!\n" + notFound, unlocated, "# ends at once"},
      {"PATH=$(dirname $(command -v tolquin.exe)); EXEFILE=x " + usual, 0, "", notFound, unlocated},
      {usual + " <&- >&- 2>&-", 0, "", "", rows},
      {"echo 08049f50 4 again >>objdump.1; EXEFILE=x " + usual, 0, "", notFound + notFound, rows},
      {"echo '1 4 c\\' >objdump.1; EXEFILE=x " + usual, 0, "", "Var info from Address 1 Not Found\n", ""},
      {"printf '%0120d 4 v\\n' 7 >objdump.1; " + usual, 0, "",
       "Var info from Address " + std::string(118, '0') + "7 Not Found\n", "", "read a; echo ??:0; echo ??:0; read a"},
      {"printf 'int %0500d /* 0x8049f40 */;\n%02000d t /* 0x8049f44 */;\n' 0 0 >objdump.txt; " + usual, 0, "",
       "name too lengthy..\ntype too lengthy..[" + std::string(2000, '0') + "]\n" + notFound,
       row + "2\ttable\t<NULL>\t16\t4\t<NULL>\t<NULL>\t08049f44.c\t7\t-1\n"},
      {"echo 08049f40 4 " + longName + " >objdump.1; " + usual, 0, "", "",
       "1\t" + longName + "\tint\t4\t4\t<NULL>\t<NULL>\t08049f40.c\t7\t-1\n"},
  };
  for (const auto& c : cases) {
    const TempDir directory;
    FakeTools fake;
    fake.addr2line(c.addr2line);
    writeSmallTables(directory.path());
    const RunResult result = directory.run(c.command);
    EXPECT_EQ(result.status, c.status) << c.command;
    EXPECT_EQ(result.out, c.out) << c.command;
    EXPECT_EQ(result.err, c.err) << c.command;
    EXPECT_EQ(directory.run("[ -f tGlobalVarDef.tbl ] && cat tGlobalVarDef.tbl || printf -").out, c.table) << c.command;
  }
}

// Whatever signal kills the program, its children end too, even those that do not read.
TEST(Program, KilledLeavesNoChild) {
  const TempDir directory;
  FakeTools fake;
  writeSmallTables(directory.path());
  fake.addr2line("for i in 1 2 3; do read a; echo a.c:1; done; exec sleep 100");
  fake.gdb("printf '(gdb) '; echo >" + directory / "ready" + "; exec sleep 100");
  prctl(PR_SET_CHILD_SUBREAPER, 1);
  for (const int signalNumber : {SIGKILL, SIGTERM, SIGINT}) {
    const pid_t pid = startTolquin(directory.path(), "x");
    EXPECT_TRUE(becomesTrue([&] { return !readFile(directory / "ready").empty(); }));
    kill(pid, signalNumber);
    // This process must reap all three; a child that survived would block it.
    int reaped = 0;
    while (waitpid(-1, nullptr, 0) > 0) ++reaped;
    EXPECT_EQ(reaped, 3) << signalNumber;
    writeFile(directory / "ready", "");
  }
  prctl(PR_SET_CHILD_SUBREAPER, 0);
}
