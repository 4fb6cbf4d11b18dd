// `tolquin export`: the contents of the database, also after repeated, interrupted and failed exports; the queries of
// docs/database.md.
#include <gtest/gtest.h>

#include "support.h"

namespace {

// A line of JSON that describes a variable.
std::string variable(const std::string& executable, const std::string& name, const std::string& rest) {
  return R"({"executable": ")" + executable + R"(", "name": ")" + name + R"(", )" + rest + "}\n";
}

// A directory with `prog`, a program built by g++, `rows.jsonl`, the variables of two programs, and `odd.jsonl`, values
// that a database could stumble over.
class Export : public testing::Test {
 protected:
  void SetUp() override {
    build("int");
    const std::string bss = R"(, "section": ".bss", "writable": true, "linkage": "external")";
    const std::string constant = R"(, "section": ".rodata", "writable": false, "linkage": "internal", "file": "h.h")";
    writeFile(directory / "rows.jsonl",
              variable("/p", "b", R"("type": "char [100]", "size": 100, "file": "src/x.c", "address": "0x10")" + bss) +
                  variable("/p", "a", R"("type": "T<int>", "size": 8, "line": 1, "address": "0x100")" + constant) +
                  variable("/p", "a", R"("type": "T<int>", "size": 8, "line": 1, "address": "0x104")" + constant) +
                  variable("/q", "b", R"("type": "long", "size": 8, "file": "src/y.c", "address": "0x0")" + bss) +
                  variable("/q", "c", R"("file": "main.c", "address": "0x8")" + bss));
    writeFile(directory / "odd.jsonl",
              variable("odd", R"(\u001b[31m\u202e\"'ä,\t漢)", R"("size": 18446744073709551615, "line": null)") +
                  variable("odd", R"(a\u0000b)", R"("type": "\ud83d\ude00", "address": "0xffffffff81000000")"));
  }

  // Builds `prog` with a variable of this type.
  void build(const std::string& type) const {
    writeFile(directory / "prog.cpp",
              "namespace app { struct Config { int a, b; }; Config config; }\nthread_local int depth = 1;\n"
              "const char *const names[2] = {\"a\", \"b\"};\nstatic union { long whole; char part; };\n" +
                  type + " *count() { static " + type +
                  " calls = 2; return &calls; }\n"
                  "int main() { return depth + *count() + names[depth & 1][0] + app::config.a + (whole = depth); }\n");
    const RunResult built = directory.run("g++ -g prog.cpp -o prog");
    ASSERT_EQ(built.status, 0) << built.err;
  }

  // Exports into `all.db`.
  void exportAll(const std::string& arguments) const {
    const RunResult result = directory.run("tolquin export --sqlite all.db " + arguments);
    EXPECT_EQ(result.status, 0) << arguments << result.err;
    EXPECT_EQ(result.out + result.err, "");
  }

  // A checksum of the contents of a database and of its integrity.
  std::string state(const std::string& database) const {
    return directory.run("sqlite3 " + database + " 'PRAGMA integrity_check' .dump 2>&1 | md5sum").out;
  }

  // The answer of sqlite3.
  std::string ask(const std::string& question, const std::string& database = "all.db") const {
    writeFile(directory / "question", question);
    const RunResult answer = directory.run("sqlite3 -separator ' ' -nullvalue NULL " + database + " <question");
    EXPECT_EQ(answer.err, "") << question;
    return answer.out;
  }

  const TempDir directory;
};

}  // namespace

// The view `variables` has the columns and values of list; the sums are the same.
TEST_F(Export, SameAsList) {
  writeFile(directory / "compare.py", R"(
import json, os, sqlite3, sys
connection = sqlite3.connect("all.db")
connection.row_factory = sqlite3.Row
ours = [dict(row) for row in connection.execute("SELECT * FROM variables")]
theirs = [json.loads(line) for line in sys.stdin]
for row in theirs:
    row["executable"] = os.path.abspath(row["executable"])
    row["name"] = row["name"].replace("\0", "\ufffd")
    if row["size"] and row["size"] >= 1 << 63: row["size"] = float(row["size"])
key = lambda row: (row["executable"], row["name"], row["address"] or "")
assert sorted(ours, key=key) == sorted(theirs, key=key), (ours, theirs)
assert list(ours[0]) == list(theirs[0])
)");
  const std::string inputs = "prog rows.jsonl odd.jsonl";
  exportAll(inputs);
  const RunResult compared = directory.run("tolquin list --format jsonl " + inputs + " | /usr/bin/python3 compare.py");
  EXPECT_EQ(compared.status, 0) << compared.err;
  EXPECT_EQ(
      ask("SELECT * FROM executable WHERE id < 3"),
      directory.run("echo 1 $PWD/prog $(readelf -n prog | sed -n 's/.*Build ID: //p') $PWD $(stat -c %Y prog)").out +
          "2 /p NULL NULL NULL\n");
  ::run("rm " + directory / "all.db");
  exportAll("prog rows.jsonl");
  for (const std::string group : {"file", "type"}) {
    EXPECT_EQ(ask("SELECT * FROM bytes_by_" + group + " ORDER BY 1 NULLS LAST"),
              directory
                  .run("tolquin list prog rows.jsonl --format tsv --sort " + group + " --by " + group +
                       " | tail -n +2 | sed 's/^\\t/NULL\\t/; s/\\t/ /g'")
                  .out);
  }
}

// A program replaces the one with the same path, however it was named; nothing is left of the earlier export.
TEST_F(Export, Repeated) {
  const std::string unused =
      "SELECT count(*) FROM file WHERE id NOT IN (SELECT file FROM variable WHERE file IS NOT NULL) UNION ALL "
      "SELECT count(*) FROM type WHERE id NOT IN (SELECT type FROM variable WHERE type IS NOT NULL)";
  exportAll("rows.jsonl prog odd.jsonl");
  const std::string before = ask(".dump");
  ask("DROP VIEW bytes_by_type");
  exportAll("prog rows.jsonl ./prog");
  directory.run("mkdir -p deep/er; ln -s deep/er link");
  exportAll("$PWD/../$(basename $PWD)/./link/../../prog");
  EXPECT_EQ(ask(".dump"), before);
  build("short");
  exportAll("prog");
  EXPECT_EQ(ask("SELECT type FROM variables WHERE name = 'count::calls'"), "short\n");
  EXPECT_EQ(ask(unused), "0\n0\n");
  exportAll("prog --where 'name ~ app' --mutable");
  EXPECT_EQ(ask("SELECT name FROM variables WHERE executable LIKE '%prog'"), "app::config\n");
  EXPECT_EQ(ask(unused), "0\n0\n");
  EXPECT_EQ(ask("SELECT count(*) FROM executable"), "4\n");
  // A program that cannot be read keeps its earlier variables; the others are exported.
  writeFile(directory / "prog", "no program");
  const RunResult failed = directory.run("tolquin export --sqlite all.db prog rows.jsonl --where 'name = b'");
  EXPECT_EQ(failed.status, 1);
  EXPECT_NE(failed.err.find("prog: is neither an ELF file nor JSON"), std::string::npos);
  EXPECT_EQ(ask("SELECT name FROM variable ORDER BY id LIMIT 3"), "b\nb\napp::config\n");
}

// One insertion takes 64 variables.
TEST_F(Export, AnyNumberOfVariables) {
  for (const std::string count : {"1", "63", "64", "65", "200", "64"}) {
    directory.run("seq " + count + R"( | sed 's|.*|{"executable": "/n", "name": "v&", "size": &}|' >n.jsonl)");
    exportAll("n.jsonl");
    EXPECT_EQ(
        ask("SELECT count(DISTINCT name), max(size) FROM variables WHERE executable = '/n' AND name = 'v' || size"),
        count + " " + count + "\n");
  }
}

// Whatever interrupts an export, and whenever, the database is as before it or as after it. A new database is complete
// or does not exist, unless the export was killed; then the next one succeeds.
TEST_F(Export, Interrupted) {
  if (directory.run("strace -o /dev/null true").status != 0) GTEST_SKIP() << "strace does not work here";
  writeFile(directory / "many.awk", R"(BEGIN { for (i = 0; i < 6000; ++i)
    printf "{\"executable\": \"/m\", \"name\": \"v%d\", \"type\": \"T%d\", \"size\": %d}\n", i, i % 999, i * factor })");
  directory.run(R"(awk -v factor=1 -f many.awk >one.jsonl; awk -v factor=2 -f many.awk >two.jsonl
tolquin export --sqlite two.db two.jsonl)");
  exportAll("one.jsonl");
  const std::string before = state("all.db");
  const std::string after = state("two.db");
  ASSERT_NE(before, after);
  int undone = 0;
  for (const std::string call : {"pwrite64 1 2 9 60", "fdatasync 1 2 3", "unlink 1"}) {
    const std::vector<std::string> words = splitAt(call, ' ');
    for (std::size_t i = 1; i < words.size(); ++i) {
      for (const std::string event : {"signal=KILL", "signal=INT", "error=ENOSPC"}) {
        std::string about = words[0];
        about.append(" ").append(words[i]).append(" ").append(event);
        std::string command = "ASAN_OPTIONS=detect_leaks=0 strace -qq -o /dev/null -e trace=" + words[0];
        command.append(" -e inject=" + words[0] + ":" + event + ":when=" + words[i]);
        command.append(" tolquin export two.jsonl --sqlite ");
        const int status = directory.run(command + "all.db").status;
        const std::string now = state("all.db");
        EXPECT_TRUE(now == after || (now == before && status != 0)) << about;
        undone += now == before ? 1 : 0;
        if (now == after) exportAll("one.jsonl");
        const bool hasFailed = directory.run(command + "new.db").status != 0;
        const bool isThere = directory.run("ls new.db*").status == 0;
        EXPECT_TRUE(event != "signal=INT" || !isThere || state("new.db") == after) << about;
        EXPECT_TRUE(event.starts_with("signal") || isThere != hasFailed || words[0] == "unlink") << about;
        EXPECT_EQ(directory.run("tolquin export two.jsonl --sqlite new.db").status, 0) << about;
        EXPECT_EQ(state("new.db"), after) << about;
        directory.run("rm new.db");
      }
    }
  }
  EXPECT_GT(undone, 9);
  const RunResult full = directory.run(
      "ulimit -f 100; for d in all new; do tolquin export --sqlite $d.db two.jsonl; echo $?; done; ls *.db* | xargs");
  EXPECT_EQ(full.out, "1\n1\nall.db two.db\n") << full.err;
  EXPECT_TRUE(full.err.starts_with("tolquin: all.db: cannot be ")) << full.err;
  EXPECT_EQ(state("all.db"), before);
}

// Simultaneous exports wait for each other.
TEST_F(Export, Simultaneous) {
  const RunResult result = directory.run(R"(for i in 1 2 3 4 5 6 7 8; do sed s:/p:/$i: rows.jsonl >$i.jsonl
tolquin export --sqlite all.db $i.jsonl & done; wait)");
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(ask("SELECT count(*), count(DISTINCT executable) FROM variables"), "26 9\n");
}

TEST_F(Export, WrongUsageAndBadDatabases) {
  directory.run(
      R"(echo text >text; head -c 5000 /dev/urandom >noise; mkdir d; mkfifo pipe; : >empty.db; touch -- :memory:
sqlite3 other.db 'CREATE TABLE t (a)'; sqlite3 marked.db 'PRAGMA application_id = 7'
tolquin export --sqlite next.db prog; sqlite3 next.db 'PRAGMA user_version = 2'
tolquin export --sqlite short.db prog; truncate -s 9000 short.db; cp other.db locked.db
tolquin export --sqlite ro.db prog; chmod a=r ro.db; chmod a+rx .)");
  const struct {
    std::string arguments;
    int status;
    std::string message;
  } cases[] = {
      {"prog", 2, "--sqlite is required"},
      {"--sqlite '' prog", 2, "--sqlite is required"},
      {"--sqlite a.db", 2, "no input given"},
      {"--sqlite a.db --where size=x prog", 2, "must be a number"},
      {"--sqlite text prog", 1, "text: is not an SQLite database"},
      {"--sqlite noise prog", 1, "noise: is not an SQLite database"},
      {"--sqlite prog prog", 1, "prog: is not an SQLite database"},
      {"--sqlite d prog", 1, "d: is not a regular file"},
      {"--sqlite pipe prog", 1, "pipe: is not a regular file"},
      {"--sqlite /dev/null prog", 1, "/dev/null: is not a regular file"},
      {"--sqlite none/a.db prog", 1, "none/a.db: directory none does not exist"},
      {"--sqlite other.db prog", 1, "other.db: is the database of another program"},
      {"--sqlite marked.db prog", 1, "marked.db: is the database of another program"},
      {"--sqlite next.db prog", 1, "next.db: was created by a different version of tolquin (schema 2, not 1)"},
      {"--sqlite short.db prog", 1, "short.db: is damaged"},
      {"--sqlite a.db none", 1, "none: cannot open"},
      {"--sqlite empty.db prog", 0, ""},
      {"--sqlite empty.db prog >&-", 0, ""},
      {"--sqlite :memory: prog", 0, ""},
      {"--sqlite new.db prog --where size=3", 0, "no variables selected"},
  };
  for (const auto& [arguments, status, message] : cases) {
    const RunResult result = directory.run("tolquin export " + arguments);
    EXPECT_EQ(result.status, status) << arguments << result.err;
    EXPECT_NE(result.err.find(message), std::string::npos) << arguments << ": " << result.err;
    EXPECT_EQ(result.err.empty(), message.empty()) << result.err;
    EXPECT_EQ(result.out, "");
  }
  EXPECT_EQ(directory.run("ls a.db; stat -c %s :memory: | grep -c ...").out, "1\n");
  const RunResult locked = directory.run(
      R"(mkfifo in; sqlite3 locked.db <in >log & exec 3>in; echo 'BEGIN EXCLUSIVE; SELECT 1;' >&3
until [ -s log ]; do sleep 0.01; done; tolquin export --sqlite locked.db prog; exec 3>&-; wait)");
  EXPECT_EQ(locked.err, "tolquin: locked.db: is locked by another program\n");
  const std::string unprivileged = directory.run("id -u").out == "0\n" ? "setpriv --reuid=65534 --clear-groups " : "";
  EXPECT_EQ(directory.run(unprivileged + "tolquin export --sqlite ro.db prog").err, "tolquin: ro.db: is read-only\n");
}

// Every table and column is described, and every query in the document works.
TEST_F(Export, Document) {
  exportAll("rows.jsonl");
  const std::string text = readFile(SOURCE_DIRECTORY "/docs/database.md");
  const std::string columns =
      ask("SELECT m.name, c.name FROM sqlite_schema m, pragma_table_info(m.name) c WHERE m.type IN ('table', 'view')");
  for (const std::string& line : splitAt(columns, '\n')) {
    for (const std::string& word : splitAt(line, ' ')) {
      EXPECT_NE(text.find("`" + word + "`"), std::string::npos) << word;
    }
  }
  std::string answers;
  for (std::size_t at = text.find("```sql\n"); at != std::string::npos; at = text.find("```sql\n", at)) {
    at += 7;
    answers += ask(text.substr(at, text.find("```", at) - at)) + "--\n";
  }
  EXPECT_EQ(answers,
            "src/ 2 108\n./ 1 0\n--\nb 2 2 2\n--\nchar [100] 1 100\nT<int> 2 12\nlong 1 8\nNULL 1 0\n--\n"
            "/p NULL 3 100\n/q NULL 2 8\n--\nh.h 1 a 2 8\n--\n");
  // Names of unknown linkage do not count as shared.
  writeFile(directory / "unlinked.jsonl", variable("/r", "b", R"("size": 8)") + variable("/s", "d", R"("size": 8)") +
                                              variable("/t", "d", R"("size": 8)"));
  exportAll("unlinked.jsonl");
  EXPECT_EQ(ask("SELECT * FROM shared_names"), "b 2 2 2\n");
}
