// `tolquin list --check`: which files a pattern matches; what is counted and shown; wrong usage.
#include <gtest/gtest.h>

#include "frontend/pathPattern.h"
#include "support.h"

// As in .gitignore, except for absolute paths.
TEST(PathPattern, Matches) {
  const struct {
    std::string pattern, matched, unmatched;
  } cases[] = {
      {"*", "a.c src/a.c /usr/a.h", ""},
      {"**", "a.c src/a.c /usr/a.h", ""},
      {"*.c", "a.c src/net/a.c /x/a.c .c", "a.h a.cc a.c.h"},
      {"net", "net net/a.c src/net/x/a.c /net/a.c", "nets/a.c src/xnet/a.c"},
      {"net/", "net/a.c src/net/x/a.c", "net src/net nets/a.c"},
      {"/net", "net/a.c /net/a.c net", "src/net/a.c"},
      {"src/net", "src/net/a.c src/net", "x/src/net/a.c src/network/a.c /src/net/a.c"},
      {"src/net/", "src/net/a.c", "src/net"},
      {"src/net/**", "src/net/a.c src/net/x/a.c", "src/net src/a.c"},
      {"src/**/", "src/net/a.c src/net/x/a.c", "src src/a.c"},
      {"**/", "src/a.c src/net/a.c /x/a.c", "a.c"},
      {"src/*/a.c", "src/x/a.c", "src/a.c src/x/y/a.c"},
      {"src/**/a.c", "src/a.c src/x/a.c src/x/y/a.c", "a.c src/xa.c src/x/y/a.h"},
      {"**/net/*.c", "net/a.c x/y/net/a.c /x/net/a.c", "net/x/a.c net/a.h"},
      {"a/**/b/**/c", "a/b/c a/x/b/y/z/c a/b/b/c/c a/b/x/b/c", "a/c a/b a/x/c"},
      {"/usr/include/", "/usr/include/x.h usr/include/x.h", "/usr/includes/x.h src/usr/include/x.h"},
      {"src/n?t/[a-c]*.[ch]", "src/net/axx.c src/nut/b.h", "src/nt/a.c src/net/d.c src/net/a.o"},
      {"[!a-c].c", "d.c src/x.c", "a.c dd.c"},
      {"s**c/a.c", "src/a.c sc/a.c", "s/c/a.c"},
      {"//src//net", "src/net/a.c", "net/a.c"},
      {"ä*.c", "äö.c src/ä.c", "a.c"},
      {"\xff*.c", "\xff.c \xff\xfe.c", "x.c"},
  };
  for (const auto& [text, matched, unmatched] : cases) {
    const PathPattern pattern(text);
    for (const std::string& path : splitAt(matched, ' ')) EXPECT_TRUE(pattern.matches(path)) << text << ": " << path;
    for (const std::string& path : splitAt(unmatched, ' ')) EXPECT_FALSE(pattern.matches(path)) << text << ": " << path;
  }
  EXPECT_TRUE(PathPattern("\\!x\\ [[]\\*").matches("src/!x [*"));
  EXPECT_TRUE(PathPattern("a**/a**/a**/a**/b").matches("aa/aa/aa/aa/b"));
}

namespace {

// A directory with `rows.jsonl`, the variables of two programs, `net` and `ui`, and `budget`, a file of budgets.
class Check : public testing::Test {
 protected:
  void SetUp() override {
    const std::string bss = R"("section": ".bss", "writable": true, )";
    const std::string data = R"("section": ".data", "writable": true, )";
    writeFile(directory / "rows.jsonl", R"({"executable": "net", "name": "a", "size": 100, )" + bss +
                                            R"("file": "src/net/a.c", "address": "0x10"}
{"executable": "net", "name": "b", "size": 100, )" +
                                            bss + R"("file": "src/net/b.c", "address": "0x42"}
{"executable": "net", "name": "c", "size": null, )" +
                                            bss + R"("file": "src/net/b.c", "address": "0xff"}
{"executable": "net", "name": "d", "size": 7, )" +
                                            data + R"("file": null, "address": "0x200"}
{"executable": "net", "name": "e", "size": 9, "section": ".rodata", "writable": false, "file": "src/e.c", "address": "0x300"}
{"executable": "net", "name": "f", "size": 3, "thread_local": true, "file": "src/e.c", "address": "0x0"}
{"executable": "ui", "name": "a", "size": 1024, )" +
                                            bss + R"("file": "src/ui/a.c", "address": "0x10"}
)");
  }

  // Runs `tolquin list` with these budgets.
  RunResult check(const std::string& budgets, const std::string& arguments = "rows.jsonl") const {
    writeFile(directory / "budget", budgets);
    return directory.run("tolquin list --check budget " + arguments);
  }

  const TempDir directory;
};

}  // namespace

// Exceeded budgets, and the exit status: shared bytes count once; every budget applies to each program separately.
TEST_F(Check, Counting) {
  const std::string unknownFile =
      "tolquin: budget: 1 variable of unknown file (7 bytes): only the patterns * and ** match them\n";
  const struct {
    std::string budgets, over, notes;
  } cases[] = {
      {"src/net/ .bss 149", "net src/net/ .bss 150 149 1",
       "tolquin: budget:1: src/net/ .bss: 1 variable of unknown size counted as 0 bytes\n"},
      {"src/net/a.c .bss 100", "", ""},
      {"src/net/a.c .bss 99 # shared with b.c\r\n  # a comment\n\n\t*.c .rodata 0x8\n",
       "net src/net/a.c .bss 100 99 1, net *.c .rodata 9 8 1", ""},
      {"ui .bss 1K", "", ""},
      {"ui .bss 1023", "ui ui .bss 1024 1023 1", ""},
      {"* .data 6\n", "net * .data 7 6 1", ""},
      {"src/e.c * 2\n** .bss 0", "net src/e.c * 3 2 1, net ** .bss 150 0 150, ui ** .bss 1024 0 1024",
       "tolquin: budget:2: ** .bss: 1 variable of unknown size counted as 0 bytes\n" + unknownFile},
      {"*.h .bss 1\n*.c .data 0", "",
       "tolquin: budget:1: *.h .bss matches no variable\ntolquin: budget:2: *.c .data matches no variable\n" +
           unknownFile},
      {"a\\ b\\#[c] .bss 1", "", "tolquin: budget:1: a\\ b\\#[c] .bss matches no variable\n"},
      {" # nothing\n", "", "tolquin: budget: contains no budgets\n"},
  };
  for (const auto& [budgets, over, notes] : cases) {
    const RunResult result =
        check(budgets, "rows.jsonl --format tsv | tail -n +2 | tr '\\t' ' ' | paste -sd, | sed 's/,/, /g'");
    EXPECT_EQ(result.out, over + "\n") << budgets;
    EXPECT_EQ(result.err, notes) << budgets;
    EXPECT_EQ(check(budgets).status, over.empty() ? 0 : 3) << budgets;
  }
  // Files are also matched relative to the directory of the budget file.
  writeFile(directory / "a.jsonl",
            R"({"name": "a", "size": 1, "section": ".bss", "file": ")" + directory / "src/a.c" + "\"}");
  EXPECT_EQ(check("/src/*.c .bss 0", "a.jsonl").status, 3);
  EXPECT_EQ(check("src/*.h .bss 0", "a.jsonl").status, 0);
  // A pipe has no directory, so not even the root matches.
  EXPECT_EQ(directory.run(R"(echo "${PWD#/}/src/*.c .bss 0" | tolquin list --check /dev/stdin a.jsonl)").status, 0);
  EXPECT_EQ(check("src/ .bss 100", "rows.jsonl --where 'name = a, executable = net'").status, 0);
}

TEST_F(Check, Formats) {
  const std::string budgets = "src/** .bss 120\nsrc/ui .bss 1M\n* .data 8";
  EXPECT_EQ(check(budgets).out,
            "Executable  Pattern  Section  Bytes  Limit  Over by\n"
            "net         src/**   .bss       150    120       30\n"
            "ui          src/**   .bss     1,024    120      904\n"
            "\n3 budgets, 2 executables: 2 over the limit\n");
  EXPECT_EQ(check("* .bss 1M").out, "1 budget, 2 executables: none over the limit\n");
  EXPECT_EQ(check(budgets, "rows.jsonl --format csv").out,
            "executable,pattern,section,bytes,limit,over\r\n"
            "\"net\",\"src/**\",\".bss\",150,120,30\r\n\"ui\",\"src/**\",\".bss\",1024,120,904\r\n");
  const RunResult one = directory.run("grep ui rows.jsonl >ui.jsonl; tolquin list --check budget ui.jsonl | head -n 1");
  EXPECT_EQ(one.out, "Pattern  Section  Bytes  Limit  Over by\n");
  const RunResult described = directory.run(R"(tolquin list --check budget rows.jsonl --format json >check.json
/usr/bin/python3 -c 'import json, jsonschema, sys
jsonschema.validate(json.load(open("check.json")), json.load(sys.stdin))' <$SOURCE/docs/schema.json)");
  EXPECT_EQ(described.status, 0) << described.err;
  EXPECT_NE(directory.run("tolquin list check.json").err.find("contains the result of a check"), std::string::npos);
}

TEST_F(Check, WrongUsage) {
  const std::string cases[][3] = {
      {"\n* .bss", "", "budget:2: a budget consists of a file pattern, a section and a limit"},
      {"* .bss 1 2", "", "budget:1: a budget consists"},
      {"* .bss 1G", "", "budget:1: invalid limit \"1G\""},
      {"* .bss -1", "", "invalid limit"},
      {"* .bss 99999999999999999M", "", "invalid limit"},
      {"!a .bss 1", "", "budget:1: a pattern cannot start with !"},
      {"/ .bss 1", "", "invalid pattern \"/\": it matches no file"},
      {"* .bss 1\n" + std::string(6000, 'x'), "", "budget:2: line too long"},
      {"* .bss 1", "--by file", "--check and --by cannot be combined"},
      {"* .bss 1", "--columns name", "--check and --columns cannot"},
      {"* .bss 1", "--sort name", "--check and --sort cannot"},
      {"* .bss 1", "-n 0", "--check and -n cannot"},
      {"* .bss 1", "--duplicates", "--check and --duplicates cannot"},
      {"", "--check none", "--check"},
  };
  for (const auto& [budgets, arguments, message] : cases) {
    const RunResult result = check(budgets, "rows.jsonl " + arguments);
    EXPECT_EQ(result.status, 2) << budgets << arguments;
    EXPECT_EQ(result.out, "");
    EXPECT_NE(result.err.find(message), std::string::npos) << result.err;
  }
  EXPECT_EQ(directory.run("tolquin list rows.jsonl --check none").err,
            "tolquin: none: cannot open: No such file or directory\n");
  EXPECT_EQ(directory.run("tolquin list rows.jsonl --check .").status, 2);
  EXPECT_EQ(directory.run("tolquin list rows.jsonl --check ''").status, 2);
  // The status is that of the input that fails, not of the budget, because the check is incomplete.
  EXPECT_EQ(check("* .bss 1", "rows.jsonl none").status, 1);
}
