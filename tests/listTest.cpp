// `tolquin list`: real programs, JSON and results of the suite in all formats; wrong usage, bad input, interrupts.
#include <gtest/gtest.h>

#include <random>

#include "support.h"

namespace {

// A directory with `prog`, a program built by g++, `rows.jsonl`, variables with unusual values, and `vym`, a result of
// the suite.
class List : public testing::Test {
 protected:
  void SetUp() override {
    writeFile(directory / "prog.cpp", R"(namespace app {
struct Config { int a, b; };
Config config;
extern const double table[2][3];
const double table[2][3] = {{1}};
const char *const names[2] = {"a", "b"};
}
thread_local int depth = 1;
int *count() { static int calls = 2; return &calls; }
int main() { return depth + *count() + app::names[depth & 1][0] + (app::config.a != 0); }
)");
    writeFile(
        directory / "rows.jsonl",
        R"({"executable": "p", "name": "b", "type": "char [100]", "size": 100, "section": ".bss", "writable": true, "thread_local": false, "linkage": "external", "file": "x.c", "line": 3, "address": "0x10"}
{"executable": "p", "name": "n::a", "type": "T<int, 2>", "size": 8, "section": ".rodata", "writable": false, "thread_local": false, "linkage": "internal", "file": "h.h", "line": 1, "address": "0x100"}
{"executable": "p", "name": "n::a", "type": "T<int, 2>", "size": 8, "section": ".rodata", "writable": false, "thread_local": false, "linkage": "internal", "file": "h.h", "line": 1, "address": "0x108"}
{"executable": "p", "name": "n::f::m", "type": "int", "size": 4, "section": ".rodata", "writable": false, "thread_local": false, "linkage": "function", "file": "x.c", "line": 9, "address": "0x108"}
{"executable": "q", "name": "\u001b[31m\u202e\"ä,\t漢", "type": null, "size": null, "section": null, "writable": null, "thread_local": true, "linkage": null, "file": null, "line": null, "address": "0x0", "new": [{}]}
)");
    mkdir(directory / "vym");
    writeFile(directory / "vym/tGlobalVarDef.tbl",
              "1\tx\tstatic "
              "int\t4\t4\t<NULL>\t<NULL>\t/d/x.c\t7\t-1\n2\ty\xff\t<NULL>\t-1\t-1\t<NULL>\t<NULL>\t<NULL>\t0\t-1\n");
    const RunResult built = directory.run("g++ -g -fno-pie -no-pie prog.cpp -o prog");
    ASSERT_EQ(built.status, 0) << built.err;
  }

  static void mkdir(const std::string& path) { ::run("mkdir " + path); }

  // Standard output of `tolquin list` with these arguments.
  std::string list(const std::string& arguments) const {
    const RunResult result = directory.run("tolquin list " + arguments);
    EXPECT_EQ(result.status, 0) << arguments << result.err;
    return result.out;
  }

  const TempDir directory;
};

}  // namespace

TEST_F(List, FieldsOfAProgram) {
  EXPECT_EQ(list("prog --sort name --format tsv "
                 "--columns executable,name,type,size,section,writable,thread_local,linkage,file,line"),
            "executable\tname\ttype\tsize\tsection\twritable\tthread_local\tlinkage\tfile\tline\n"
            "prog\tapp::config\tapp::Config\t8\t.bss\ttrue\tfalse\texternal\tprog.cpp\t3\n"
            "prog\tapp::names\tconst char * const [2]\t16\t.rodata\tfalse\tfalse\tinternal\tprog.cpp\t6\n"
            "prog\tapp::table\tconst double [2][3]\t48\t.rodata\tfalse\tfalse\texternal\tprog.cpp\t5\n"
            "prog\tcount::calls\tint\t4\t.data\ttrue\tfalse\tfunction\tprog.cpp\t9\n"
            "prog\tdepth\tint\t4\t.tdata\ttrue\ttrue\texternal\tprog.cpp\t8\n");
  EXPECT_EQ(
      directory
          .run(
              R"(tolquin list prog --where 'thread_local = false' --sort address --format tsv --columns address | tail -n +2 >ours
nm -n prog | sed -nE 's/^0*([0-9a-f]+) . _?(_ZN?(L5table|3app)|_ZZ5count).*/0x\1/p' | diff - ours)")
          .out,
      "");
}

// What `list` writes gives the same list when it is read, also through a pipe and together with other inputs.
TEST_F(List, OutputAsInput) {
  for (const std::string format : {"json", "jsonl"}) {
    const RunResult result = directory.run("format=" + format + R"(
t() { tolquin list "$@"; }; for f in json jsonl csv; do t --format $f prog >a.$f; done
t --sort name --format $format prog | t --format csv /dev/stdin | diff a.csv -
t a.$format --format jsonl | diff a.jsonl -; cp a.$format b
t b prog a.json --where 'name ~ table' --format tsv --columns executable,name)");
    EXPECT_EQ(result.out, "executable\tname\nprog\tapp::table\nprog\tapp::table\nprog\tapp::table\n")
        << format << result.err;
  }
}

// The footer shows the sizes of sections as `size` does, also of those in which no variable was found.
TEST_F(List, Footer) {
  const RunResult result = directory.run(R"(echo 'thread_local bool only; int main() { return only; }' >bare.cpp
g++ -g bare.cpp -o bare; tolquin list bare --format json >bare.json; tolquin bare >whole; tolquin bare.json | diff whole -
sed -nE 's/^  ([^ ]+) .* of ([0-9,]+),.*/\1 \2/p' whole | tr -d , | sort >ours
size -A bare | awk '/^\.t?(data|bss) / && $2 > 0 { print $1, $2 }' | sort | diff ours -
tolquin bare --columns writable,name | head -n 2)");
  EXPECT_EQ(result.out, "Writable  Name\ntrue      only\n") << result.err;
}

TEST_F(List, Formats) {
  const std::string odd = "--where 'name ~ ä' --columns name,size,type rows.jsonl --format ";
  EXPECT_EQ(list(odd + "csv"), "name,size,type\r\n\"\x1b[31m\u202e\"\"ä,\t漢\",,\r\n");
  EXPECT_EQ(list(odd + "tsv"), "name\tsize\ttype\n\x1b[31m\u202e\"ä,\\t漢\t\t\n");
  EXPECT_EQ(list(odd + "jsonl"), "{\"name\": \"\\u001b[31m\\u202e\\\"ä,\\u0009漢\", \"size\": null, \"type\": null}\n");
  EXPECT_EQ(
      list("--columns name,type,line vym --format jsonl"),
      "{\"name\": \"x\", \"type\": \"int\", \"line\": 7}\n{\"name\": \"y\ufffd\", \"type\": null, \"line\": null}\n");
  EXPECT_EQ(list("rows.jsonl"),
            "Executable  Size  Section  Name                     Type        Place\n"
            "p            100  .bss     b                        char [100]  x.c:3\n"
            "p              8  .rodata  n::a                     T<int, 2>   h.h:1\n"
            "p              8  .rodata  n::a                     T<int, 2>   h.h:1\n"
            "p              4  .rodata  n::f::m                  int         x.c:9\n"
            "q              ?  ?        \\x1b[31m\\u202e\"ä,\\x09漢  ?           ?\n"
            "\n5 variables, 116 bytes and 1 of unknown size\n  .bss 100\n  .rodata 16\n  unknown section 0\n");
  EXPECT_EQ(
      directory.run("COLUMNS=36 tolquin vym --columns name,file,line; COLUMNS=45 tolquin prog -n 1").out,
      "Name   File    Line\nx      /d/x.c     7\ny\\xff  ?          ?\n\n2 variables, 4 bytes and 1 of unknown size\n"
      "  unknown section 4\n"
      "Size  Section  Name      Type       Place\n  48  .rodata  app::ta…  const do…  …og.cpp:5\n\n"
      "5 variables, 80 bytes; 1 of 5 rows shown\n" +
          directory.run("tolquin prog | sed '1,/ variables/d'").out);
  // No control character reaches a terminal, whatever the format.
  for (const std::string format : {"table", "csv", "tsv", "json", "jsonl"}) {
    const RunResult shown =
        directory.run("NO_COLOR=1 script -qec 'tolquin rows.jsonl --format " + format + "' /dev/null");
    EXPECT_NE(shown.out.find("b"), std::string::npos);
    EXPECT_EQ(shown.out.find('\x1b'), std::string::npos) << format;
    EXPECT_EQ(shown.out.find("\u202e"), std::string::npos) << format;
    EXPECT_EQ(shown.out.find(R"(\\)"), std::string::npos) << format;
  }
}

TEST_F(List, Selection) {
  const std::string cases[][2] = {
      {"--where 'size >= 8, writable=false'", "n::a n::a"},
      {"--where 'size > 0x63,size<=1K'", "b"},
      {"--where 'size != 8'", "b n::f::m"},
      {"--where 'size = null, thread_local = true' --columns address", "0x0"},
      {"--where 'file != null, line < 9 , name~\"^n::(a|b)$\"'", "n::a n::a"},
      {"--where 'type = \"T<int, 2>\"' -n 1", "n::a"},
      {"--where 'name ~ \"\\\"\"' --columns thread_local", "true"},
      {"--where 'file=\"null\"'", ""},
      {"--where 'address >= 0x101, linkage = function'", "n::f::m"},
      {"--mutable --columns executable", "p q"},
      {"--duplicates", "n::a n::a"},
      {"--sort name --columns line -n 4", "null 3 1 1"},
      {"--sort line,-address --columns address", "0x108 0x100 0x10 0x108 0x0"},
      {"--sort -line --columns line", "9 3 1 1 null"},
      {"--sort -writable,size --columns size", "100 4 8 8 null"},
      {"-n 0", ""},
  };
  for (const auto& [options, expected] : cases) {
    const std::string columns = options.find("--columns") == std::string::npos ? " --columns name " : " ";
    const RunResult shown = directory.run("tolquin list rows.jsonl --format jsonl " + options + columns +
                                          R"(2>note | sed -E 's/^[^:]*: "?|"?}$//g' | paste -sd' ')");
    EXPECT_EQ(shown.out, expected + "\n") << options;
    const bool noted = readFile(directory / "note") == "tolquin: no variables selected\n";
    EXPECT_EQ(noted, expected.empty() && options != "-n 0") << options;
  }
  EXPECT_NE(
      list("rows.jsonl --duplicates")
          .find("1 name with the same type, file and line at several addresses; one variable each would save 8 bytes"),
      std::string::npos);
}

// Bytes that several variables share count once.
TEST_F(List, Sums) {
  // Two variables share bytes; between them are one of another section and a thread-local one.
  writeFile(directory / "shared.jsonl",
            R"({"name": "a", "size": 100, "section": ".data", "file": "a.c", "address": "0x1000"}
{"name": "b", "size": 4, "section": ".bss", "file": "a.c", "address": "0x1010"}
{"name": "c", "size": 8, "section": ".data", "file": "a.c", "address": "0x1020"}
{"name": "d", "size": 8, "section": ".data", "file": "a.c", "address": "0x1020", "thread_local": true})");
  const std::string cases[][2] = {
      {"namespace rows.jsonl", "(global)\t2\t100\t1\nn\t3\t16\t0\n"},
      {"section rows.jsonl", ".bss\t1\t100\t0\n.rodata\t3\t16\t0\n\t1\t0\t1\n"},
      {"executable rows.jsonl rows.jsonl --sort -executable -n 1", "q\t2\t0\t2\n"},
      {"file shared.jsonl", "a.c\t4\t112\t0\n"},
      {"file rows.jsonl --where size!=null --sort bytes", "h.h\t2\t16\t0\nx.c\t2\t104\t0\n"},
  };
  for (const auto& [arguments, rows] : cases) {
    const std::string out = list("--format tsv --by " + arguments);
    EXPECT_EQ(out.substr(out.find('\n') + 1), rows) << arguments;
  }
  directory.run(R"(g++ -g -x c++ - -o spaces <<'END'
namespace a { namespace { struct C { static int s; bool operator<(int) { static int n; return ++n; } }; } int C::s; }
struct G { static int m; }; int G::m; int main() { return a::C() < a::C::s; }
END
)");
  EXPECT_EQ(list("--by namespace --format tsv spaces"),
            "namespace\tvariables\tbytes\tunsized\na::(anonymous namespace)\t2\t8\t0\n(global)\t1\t4\t0\n");
  EXPECT_EQ(
      list("--by file vym --format json"),
      "{\"schema\": 1, \"executables\": [\n{\"path\": \"vym\", \"build_id\": null, \"directory\": null, \"sections\": "
      "[]}\n], \"sums\": [\n{\"file\": \"/d/x.c\", \"variables\": 1, \"bytes\": 4, \"unsized\": 0},\n"
      "{\"file\": null, \"variables\": 1, \"bytes\": 0, \"unsized\": 1}\n]}\n");
}

// All JSON matches the schema; every option and column is in the manual page, and every option in the completions.
TEST_F(List, Descriptions) {
  const RunResult checked = directory.run(R"(set -e; docs=$SOURCE/docs
    tolquin list prog rows.jsonl vym --format json >variables.json; tolquin list rows.jsonl --by type --format json >sums.json
    tolquin list vym --columns name,line --format json >few.json; tolquin list prog rows.jsonl --format jsonl >lines.jsonl
    tolquin list --list-columns | cut -f1 >columns; tolquin list --help >help; tolquin export --help >>help
    grep -oE '^ +(-[a-z],)?--[a-z-]+' help | grep -oE '[-][-][a-z-]+' >options
    sed 's/\\-/-/g' $docs/tolquin.1 >manual
    for option in $(cat options); do
      for text in manual $SOURCE/completion/tolquin.*; do
        [ $option = --help ] || grep -qE -e "$option|-l ${option#--} " $text || echo $option is missing in $text
      done
    done
    for column in $(cat columns); do grep -qE "^\.BR? .*\b$column\b" manual || echo $column is missing in the manual; done
    /usr/bin/python3 -c '
import json, jsonschema, sys
schema = json.load(open(sys.argv[1]))
jsonschema.Draft202012Validator.check_schema(schema)
for name in "variables", "sums", "few":
    jsonschema.validate(json.load(open(name + ".json")), schema)
for line in open("lines.jsonl"):
    jsonschema.validate(json.loads(line), {"$ref": "#/$defs/variable", "$defs": schema["$defs"]})
columns = open("columns").read().split()
assert columns == list(schema["$defs"]["variable"]["properties"]) == list(json.loads(line)), columns
' $docs/schema.json)");
  EXPECT_EQ(checked.status, 0) << checked.err;
  EXPECT_EQ(checked.out, "");
}

TEST_F(List, WrongUsageAndBadInput) {
  directory.run(R"(strip -g -o stripped prog; gcc -c -g -x c /dev/null -o o.o; ar rc a.a o.o; head -c 5000 prog >short
mkdir d; printf '1\tx\n' >d/tGlobalVarDef.tbl; : >e.jsonl; echo '{"schema": 2}' >2.json; echo '{"size": 1}' >nameless.jsonl
echo '{"name": "a", "size": -1}' >size.jsonl; printf '{"name": "a"}\n{"name": ' >half.jsonl
echo '{"file": null, "variables": 1}' >sum.jsonl)");
  const struct {
    std::string arguments;
    int status;
    std::string message;  // contained in standard error
  } cases[] = {
      {"", 2, "no input given"},
      {"lst prog", 2, "no command or file called \"lst\"; did you mean list?"},
      {"lsx", 2, "the commands are list, "},  // two of three letters differ
      {"qqqlist", 2, "the commands are list, "},
      {"scan prog", 2, "`tolquin list EXECUTABLE...`"},
      {"show vym", 2, "`tolquin list DIR`"},
      {"list", 2, "no input given"},
      {"list --bogus prog", 2, "--bogus"},
      {"--sort siz prog", 2, "unknown column \"siz\"; did you mean size? The columns are executable, name"},
      {"--columns name, prog", 2, "unknown column \"\""},
      {"--columns '' prog", 2, "unknown column \"\""},
      {"--sort '' prog", 2, "unknown column \"\""},
      {"--by file --columns name prog", 2, "cannot be combined"},
      {"--by file --sort size prog", 2, "The columns are file, variables, bytes, unsized"},
      {"--format xml prog", 2, "{table,csv,tsv,json,jsonl}"},
      {"--where 'size ? 3' prog", 2, "expected one of = !="},
      {"--where 'size ~ 3' prog", 2, "~ applies to text columns only"},
      {"--where 'size > 99999999999999M' prog", 2, "a number"},
      {"--where 'name < null' prog", 2, "with = and != only"},
      {"--where 'name ~ (' prog", 2, "invalid regular expression"},
      {"--where 'name = \"a' prog", 2, "missing closing quotation mark"},
      {"--where 'size=4 line=3' prog", 2, "a number"},
      {"--where 'writable > true' prog", 2, "true, false and null"},
      {"none/x", 1, "none/x: cannot open: No such file or directory"},
      {"stripped", 1, "stripped: has no debugging information"},
      {"o.o", 1, "o.o: is an object file"},
      {"a.a", 1, "a.a: is an archive of object files"},
      {"prog.cpp", 1, "prog.cpp: is neither an ELF file nor JSON"},
      {"short", 1, "short: "},
      {".", 1, ".: is a directory without a tGlobalVarDef.tbl"},
      {"d", 1, "line 1 is malformed"},
      {"/dev/zero", 1, "is not a regular file, pipe or directory"},
      {"2.json", 1, "2.json: was written by a different version"},
      {"half.jsonl", 1, "half.jsonl: line 2 is not valid JSON"},
      {"size.jsonl", 1, "size.jsonl: line 1 has an invalid value for \"size\""},
      {"nameless.jsonl", 1, "a variable without a name"},
      {"sum.jsonl", 1, "contains sums, not variables"},
      {"e.jsonl", 0, "e.jsonl: warning: contains no variables"},
      {"prog >&-", 1, "standard output is closed"},
      {"prog >/dev/full", 1, "cannot write to standard output: No space left on device"},
      {"--help >/dev/full", 1, "No space left on device"},
  };
  for (const auto& [arguments, status, message] : cases) {
    const RunResult result = directory.run("tolquin " + arguments);
    EXPECT_EQ(result.status, status) << arguments << result.err;
    EXPECT_TRUE(result.err.starts_with("tolquin: ")) << arguments << result.err;
    EXPECT_NE(result.err.find(message), std::string::npos) << arguments << ": " << result.err;
    EXPECT_EQ(result.out.empty(), status != 0) << arguments;
  }
  EXPECT_EQ(directory.run("tolquin prog | head -n 1").err, "");
  EXPECT_EQ(directory.run(R"(printf '\033[31m' >name; tolquin ./$(cat name))").err,
            "tolquin: ./\\x1b[31m: cannot open: No such file or directory\n");
}

// A bad input does not affect the others, whatever happens to the process that reads it; messages come in the order of
// the inputs.
TEST_F(List, WorkersAreIndependent) {
  if (SANITIZED) GTEST_SKIP() << "the sanitizer's library must be loaded first";
  const std::string errors =
      "tolquin: none1: cannot open: No such file or directory\n"
      "tolquin: crash: the process reading it was killed by signal 11 (Segmentation fault); the debugging "
      "information may be damaged\n"
      "tolquin: none2: cannot open: No such file or directory\n";
  directory.run(R"(cp prog crash; gcc -shared -fPIC -w -x c - -o crash.so <<'END'
#define _GNU_SOURCE
#include <dlfcn.h>
#include <signal.h>
#include <string.h>
int open(const char *path, int flags, int mode) {
  if (strcmp(path, "crash") == 0) { usleep(200000); raise(SIGSEGV); }
  return ((int (*)(const char *, int, int))dlsym(RTLD_NEXT, "open"))(path, flags, mode);
}
END
)");
  for (const std::string jobs : {"1", "2", "50"}) {
    const RunResult result = directory.run("LD_PRELOAD=$PWD/crash.so tolquin list -j " + jobs +
                                           " prog none1 crash none2 rows.jsonl prog --format csv --columns executable");
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, errors) << jobs;
    EXPECT_EQ(splitAt(result.out, '\n').size(), 16u) << result.out;
  }
}

// With few descriptors, fewer inputs are read at a time.
TEST_F(List, FewDescriptors) {
  const RunResult few =
      directory.run("ulimit -n 12; tolquin list -j 30 $(yes prog | head -n 30) --format jsonl | wc -l");
  EXPECT_EQ(few.out + few.err, "150\n");
}

// Interrupted while an input waits for a pipe into which nothing is written, `list` leaves no process.
TEST_F(List, Interrupted) {
  const RunResult interrupted = directory.run(
      R"(mkfifo pipe; tolquin list prog pipe & pid=$!; until child=$(pgrep -P $pid) && [ $(echo $child | wc -w) = 1 ]; do sleep 0.01; done
kill -TERM $pid; wait $pid; echo $?; while [ -e /proc/$child/exe ]; do sleep 0.01; done)");
  EXPECT_EQ(interrupted.out, "143\n");
}

// Bytes changed at random, in programs and in results: a list, or a message and all rows of the other input; no crash.
TEST_F(List, DamagedInputs) {
  directory.run("tolquin list prog --format json >prog.json");
  std::mt19937 random(5);
  for (const std::string file : {"prog", "prog.json", "rows.jsonl", "vym/tGlobalVarDef.tbl"}) {
    const std::string good = readFile(directory / file);
    const std::size_t from = file == "prog" ? good.size() / 3 : 0;
    for (int round = 0; round < 60; ++round) {
      std::string bytes = good;
      for (int i = 0; i < (file == "prog" ? 30 : 2); ++i) {
        bytes[from + random() % (bytes.size() - from)] = static_cast<char>(random());
      }
      mkdir("-p " + directory / "bad");
      writeFile(directory / (file.starts_with("vym") ? "bad/tGlobalVarDef.tbl" : "bad/file"), bytes);
      const std::string input = file.starts_with("vym") ? "bad" : "bad/file";
      const RunResult result = directory.run("timeout 60 tolquin list --format tsv --columns name rows.jsonl " + input);
      ASSERT_LE(result.status, 1) << file << round << ": " << result.err;
      EXPECT_EQ(result.err.find("signal"), std::string::npos) << file << round << result.err;
      EXPECT_GE(splitAt(result.out, '\n').size(), 6u) << file << round;
      EXPECT_TRUE(result.status == 0 || result.err.starts_with("tolquin: bad")) << result.err;
    }
  }
}
