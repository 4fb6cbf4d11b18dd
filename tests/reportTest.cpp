// `tolquin report`: wrong usage, failing inputs, the file that is written. report_page.py tests the page itself.
#include <gtest/gtest.h>

#include "support.h"

namespace {

class Report : public testing::Test {
 protected:
  void SetUp() override {
    writeFile(directory / "rows.jsonl", R"({"executable": "p", "name": "a", "size": 4, "section": ".bss"})"
                                        "\n");
    writeFile(directory / "bad", "neither a program nor JSON");
  }

  RunResult report(const std::string& arguments) const { return directory.run("tolquin report " + arguments); }

  const TempDir directory;
};

}  // namespace

TEST_F(Report, SourceUrlNeedsAHostFollowedByAFile) {
  for (const char* url : {"https://example.org/{file}#L{line}", "http://h?q={file}", "vscode://file/{file}:{line}",
                          "https://h/{file}&{file}"}) {
    EXPECT_EQ(report("-o x.html rows.jsonl --source-url '" + std::string(url) + "'").status, 0) << url;
  }
  for (const char* url :
       {"javascript:alert(1)//{file}", "data:text/html,{file}", "file:///{file}", "//h/{file}", "https://{file}",
        "ftp://h/{file}", "https:///{file}", "https://h{file}/", "https://h/#L{line}", "https://h/{file}{column}",
        "https://h/ {file}", "https://h\\{file}", "https://h/{file}\n", "https://h/{file", "https://h/ü{file}", "x"}) {
    const RunResult refused = report("-o y.html rows.jsonl --source-url '" + std::string(url) + "'");
    EXPECT_EQ(refused.status, 2) << url;
    EXPECT_NE(refused.err.find("--source-url"), std::string::npos) << refused.err;
  }
  EXPECT_EQ(directory.run("ls y.html").out, "");
}

TEST_F(Report, FileIsWrittenCompletelyOrNotAtAll) {
  EXPECT_EQ(report("rows.jsonl").status, 2);
  EXPECT_EQ(report("-o x.html").status, 2);
  EXPECT_EQ(report("-o x.html --where 'size >' rows.jsonl").status, 2);
  EXPECT_EQ(report("-o . rows.jsonl").err, "tolquin: .: is not a regular file\n");
  EXPECT_EQ(report("-o /dev/full rows.jsonl").err, "tolquin: /dev/full: is not a regular file\n");
  EXPECT_EQ(report("-o no/where.html rows.jsonl").status, 1);
  EXPECT_EQ(report("-o '' rows.jsonl").status, 2);
  EXPECT_EQ(report("-o old.html --title old rows.jsonl").status, 0);
  const std::string old = readFile(directory / "old.html");
  EXPECT_EQ(report("-o old.html bad missing").status, 1);
  EXPECT_EQ(directory.run("ulimit -f 8; trap '' XFSZ; tolquin report -o old.html rows.jsonl").status, 1);
  EXPECT_EQ(readFile(directory / "old.html"), old);
  // An input, or any other file that is not a page, is not replaced.
  EXPECT_EQ(report("-o bad rows.jsonl").err, "tolquin: bad: is not a page of tolquin report, and is not replaced\n");
  EXPECT_EQ(report("-o rows.jsonl rows.jsonl").status, 1);
  EXPECT_EQ(readFile(directory / "bad"), "neither a program nor JSON");
  EXPECT_EQ(report("-o old.html --title old rows.jsonl >&-").status, 0);
  // If one of two inputs cannot be read, the page has the other.
  const RunResult half = report("-o half.html rows.jsonl bad");
  EXPECT_EQ(half.status, 1);
  EXPECT_NE(half.err.find("bad"), std::string::npos);
  EXPECT_EQ(report("-o none.html --where 'size > 5' rows.jsonl").err, "tolquin: no variables selected\n");
  EXPECT_EQ(directory.run("ls").out, "bad\nhalf.html\nnone.html\nold.html\nrows.jsonl\n");
}

// A page replaces the target of a symbolic link and keeps its permissions; its name may be long.
TEST_F(Report, ReplacedFile) {
  const RunResult result = directory.run(R"(mkdir d; : >d/page; chmod 620 d/page; ln -s d/page link; ln -s none dangling
umask 077; n=$(printf %0250d 0); for file in link link dangling "$n"; do tolquin report -o "$file" rows.jsonl; done
stat -c %A link d/page "$n"; ls -A . d | grep -c -e ^0 -e tolquin)");
  EXPECT_EQ(result.out, "lrwxrwxrwx\n-rw--w----\n-rw-------\n1\n");
  EXPECT_EQ(result.err, "tolquin: dangling: is not a regular file\n");
}

TEST_F(Report, SameInputMakesTheSamePage) {
  ASSERT_EQ(report("-o a.html --title '<&>' rows.jsonl").status, 0);
  ASSERT_EQ(report("-o b.html --title '<&>' rows.jsonl").status, 0);
  const std::string page = readFile(directory / "a.html");
  EXPECT_EQ(page, readFile(directory / "b.html"));
  EXPECT_NE(page.find("<title>&lt;&amp;&gt;</title>"), std::string::npos);
  EXPECT_EQ(page.find("http"), page.find("http-equiv"));  // the page contains no URL
}
