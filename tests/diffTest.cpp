// `tolquin diff`: which variables are matched and how they have changed, on two releases of Lua, on tables of cases and
// on random inventories; all formats, limits, wrong usage; the workflow of docs/continuous-integration.md.
#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <map>
#include <random>

#include "frontend/comparison.h"
#include "frontend/matching.h"
#include "support.h"

namespace {

// Makes programs from a text of words: "name|type|size|section|file" is a variable, with "?" for an unknown value;
// "program:" or "program@directory:" begins a program. Addresses are multiples of 256.
std::deque<Inventory> programsOf(const std::string& text) {
  std::deque<Inventory> programs;
  const auto add = [&programs](const std::string& path) {
    const std::vector<std::string> parts = splitAt(path, '@');
    programs.emplace_back().executable = parts[0];
    if (parts.size() > 1) programs.back().directory = parts[1];
  };
  for (const std::string& word : splitAt(text, ' ')) {
    if (word.ends_with(':')) add(word.substr(0, word.size() - 1));
    if (word.empty() || word.ends_with(':')) continue;
    if (programs.empty()) add("p");
    std::vector<std::string> parts = splitAt(word, '|');
    Inventory& program = programs.back();
    const auto known = [&](std::size_t i) { return program.texts.keep(parts[i] == "?" ? "" : parts[i]); };
    Variable& variable = program.variables.emplace_back();
    variable.name = known(0);
    variable.type = known(1);
    if (parts[2] != "?") variable.size = std::stoul(parts[2]);
    variable.section = known(3);
    variable.file = known(4);
    if (parts[3] != "?") variable.writable = parts[3] != ".rodata";
    variable.address = 256 * program.variables.size();
  }
  return programs;
}

Comparison compare(const std::deque<Inventory>& before, const std::deque<Inventory>& after) {
  std::vector<const Inventory*> programs[2];
  for (const Inventory& program : before) programs[0].push_back(&program);
  for (const Inventory& program : after) programs[1].push_back(&program);
  return compare(programs[0], programs[1], {});
}

std::string deltaText(const std::optional<Delta>& delta, bool mirrored = false) {
  if (!delta) return "?";
  const bool negative = delta->bytes > 0 && delta->negative != mirrored;
  return (negative ? "-" : "+") + std::to_string(delta->bytes);
}

std::string addressOf(const std::optional<Row>& row) {
  return row ? row->program->executable + std::to_string(*row->variable->address) : "-";
}

// Each change as a text; if mirrored, as in the comparison of new with old.
std::vector<std::string> changesOf(const Comparison& comparison, bool mirrored) {
  const std::map<std::string_view, std::string> mirror{
      {"added", "removed"}, {"removed", "added"}, {"grown", "shrunk"}, {"shrunk", "grown"}};
  std::vector<std::string> texts;
  for (const Change& change : comparison.changes) {
    std::string name(change.className());
    if (mirrored && mirror.contains(name)) name = mirror.at(name);
    const auto& [from, to] = mirrored ? std::tie(change.after, change.before) : std::tie(change.before, change.after);
    texts.push_back(name + deltaText(change.delta, mirrored) + " " + addressOf(from) + " " + addressOf(to));
  }
  std::sort(texts.begin(), texts.end());
  return texts;
}

std::string randomVariables(std::mt19937& random, std::size_t most) {
  const auto one = [&random](const std::vector<std::string>& texts) { return texts[random() % texts.size()]; };
  std::string text;
  for (const std::string program : {"a/p:", "a/q:"}) {
    text += program;
    for (std::size_t i = random() % most; i > 0; --i) {
      text += " " + one({"x", "y", "f::z"}) + "|" + one({"int", "char[2]", "char[3]", "T<char[3]>", "?"}) + "|" +
              one({"4", "8", "12", "?"}) + "|" + one({".data", ".bss", ".rodata", "?"}) + "|" +
              one({"a.c", "b.c", "?"});
    }
    text += " ";
  }
  return text;
}

class Diff : public testing::Test {
 protected:
  // Runs `tolquin diff` with these arguments in the directory.
  RunResult diff(const std::string& arguments) const { return directory.run("tolquin diff " + arguments); }

  // Writes JSON lines for variables of a program p; `lines` has the other fields of each.
  void writeRows(const std::string& name, const std::string& lines) const {
    std::string text;
    for (const std::string& line : splitAt(lines, '\n')) text += "{\"executable\": \"p\", " + line + "}\n";
    writeFile(directory / name, text);
  }

  const TempDir directory;
};

constexpr const char* lua = SOURCE_DIRECTORY "/tests/lua/";

}  // namespace

// Lua 5.3.6 and 5.4.4, built by `make CC="gcc -std=gnu99 -g" lua`. The changes were checked against the sizes that nm
// shows, and by reading the sources.
TEST_F(Diff, ReleasesOfLua) {
  const std::string releases = std::string(lua) + "5.3.6.json " + lua + "5.4.4.json";
  const RunResult shown = diff(releases);
  EXPECT_EQ(shown.out, readFile(std::string(lua) + "changes.txt")) << shown.err;
  const RunResult same = diff(std::string(lua) + "5.4.4.json " + lua + "5.4.4.json --fail-on-growth 0 --all");
  EXPECT_EQ(same.status, 0);
  EXPECT_EQ(same.out, "No variables have changed\n5,711 → 5,711 bytes (0), writable or thread-local 16 → 16 (0)\n");
}

TEST_F(Diff, MatchingAndClasses) {
  const struct {
    const char* before;
    const char* after;
    std::string changes;
  } cases[] = {
      {"$_1::operator()::n|int|4|.data|x.c ._anon_1::f::k|int|4|.bss|x.c",
       "$_2::operator()::n|int|4|.data|x.c ._anon_12::f::k|int|4|.bss|x.c", ""},
      {"a|int|4|.data|x.c", "b|int|4|.data|x.c", "added+4 - p256, removed-4 p256 -"},
      {"a|int|4|.data|x.c b|int|4|.data|x.c", "b|int|4|.data|x.c a|int|4|.data|x.c", ""},
      {"a|int|4|.data|x.c", "a|long|8|.bss|x.c", "type+4 p256 p256"},
      {"a|int|4|.data|x.c", "a|float|4|.data|x.c", "type+0 p256 p256"},
      {"a|int[2]|8|.data|x.c", "a|int[4]|16|.data|x.c", "grown+8 p256 p256"},
      {"a|int[2][3]|24|.data|x.c", "a|int[3][2]|24|.data|x.c", "type+0 p256 p256"},
      {"a|int[2]|8|.data|x.c", "a|int[2][2]|16|.data|x.c", "type+8 p256 p256"},
      {"a|T<int[2]>|8|.data|x.c", "a|T<int[4]>|16|.data|x.c", "type+8 p256 p256"},
      {"a|S|8|.data|x.c", "a|S|4|.bss|x.c", "shrunk-4 p256 p256"},
      {"a|S|8|.data|x.c", "a|S|8|.rodata|x.c", "moved+0 p256 p256"},
      // In a renamed file, a variable may have grown; one with another type is another variable.
      {"a|S|8|.data|x.c", "a|S|12|.data|y.c", "grown+4 p256 p256"},
      {"a|int[2]|8|.data|x.c", "a|int[3]|12|.data|y.c", "grown+4 p256 p256"},
      {"a|S|8|.data|x.c", "a|T|8|.data|y.c", "added+8 - p256, removed-8 p256 -"},
      // Of several variables with one name, those that are most alike are matched, not the first ones.
      {"a|S|8|.data|x.c a|S|8|.data|y.c", "a|S|8|.data|y.c a|S|8|.data|z.c", ""},
      {"a|S|8|.data|x.c a|S|8|.bss|x.c", "a|S|8|.bss|x.c", "removed-8 p256 -"},
      {"a|S|8|.data|x.c a|S|4|.data|x.c", "a|S|4|.data|x.c a|S|4|.data|x.c", "shrunk-4 p256 p512"},
      {"a|S|1|.data|x.c a|S|2|.data|x.c", "a|S|3|.data|x.c a|S|4|.data|x.c", "grown+2 p256 p256, grown+2 p512 p512"},
      // An unknown value is not a change.
      {"a|?|?|?|?", "a|?|4|.data|?", ""},
      {"a|int|?|.data|x.c", "a|int|4|?|x.c", ""},
      {"a|int|?|.data|x.c", "a|long|4|.data|x.c", "type? p256 p256"},
      {"a|int|?|.data|x.c", "", "removed? p256 -"},
      // The directories that file names are relative to may differ: a unit was compiled elsewhere, each run of make has
      // a directory of its own, the sources are in several checkouts, or one input has no directory.
      {"q@/r: s|int|4|.bss|old/a.c s|int|4|.bss|old/b.c s|int|4|.bss|old/c.c l|int|4|.bss|lib/l.c",
       "q@/r: s|unsigned|4|.bss|new/a.c s|int|4|.bss|new/b.c s|int|4|.bss|new/c.c l|int|4|.bss|lib/l.c",
       "type+0 q256 q256"},
      {"q@/r/old/src: s|int|4|.bss|a.c s|int|4|.bss|b.c",
       "q@/r/new: s|int|4|.bss|sub/b.c s|unsigned|4|.bss|src/a.c s|int|4|.bss|src/b.c",
       "added+4 - q256, type+0 q256 q512"},
      {"q: s|int|4|.bss|/h/p1/a.c s|int|4|.bss|/h/p1/b.c s|int|4|.bss|/h/d1/a.c s|int|4|.bss|/h/d1/c.c",
       "q: s|int|4|.bss|/x/p2/b.c s|int|4|.bss|/y/d2/a.c s|long|8|.bss|/x/p2/a.c s|int|8|.bss|/y/d2/c.c",
       "grown+4 q1024 q1024, type+4 q256 q768"},
      {"q: s|int|4|.bss|src/a.c s|int|4|.bss|x/src/a.c", "q@/r: s|int|8|.bss|x/src/a.c s|int|4|.bss|src/a.c",
       "grown+4 q512 q256"},
      // A file was renamed and another removed.
      {"n|int|4|.bss|a.c n|int|4|.bss|b.c x|int|4|.bss|b.c", "n|int|4|.bss|z.c x|int|4|.bss|z.c", "removed-4 p256 -"},
      {"n|S|4|.bss|a.c n|S|4|.bss|b.c x|S|4|.bss|b.c", "x|S|4|.bss|z.c n|T|4|.bss|z.c",
       "removed-4 p256 -, type+0 p512 p512"},
      // Several programs are matched by their file names; the names of single ones may differ.
      {"old/p: a|int|4|.data|x.c", "new/q: a|int|8|.data|x.c", "grown+4 old/p256 new/q256"},
      {"p: a|S|4|.data|x.c q: a|S|8|.data|x.c", "q: a|S|8|.data|x.c", "removed-4 p256 -"},
      {"o/p: a|S|4|.data|x.c o/q: a|S|8|.data|x.c", "n/m/q: a|S|9|.data|x.c n/p: a|S|5|.data|x.c",
       "grown+1 o/p256 n/p256, grown+1 o/q256 n/m/q256"},
      {"o/1/t: a|S|4|.data|x.c o/2/t: a|S|8|.data|x.c", "n/2/t: a|S|9|.data|x.c n/1/t: a|S|5|.data|x.c",
       "grown+1 o/1/t256 n/1/t256, grown+1 o/2/t256 n/2/t256"},
  };
  for (const auto& [before, after, expected] : cases) {
    std::string found;
    const std::deque<Inventory> programs[] = {programsOf(before), programsOf(after)};
    for (const std::string& text : changesOf(compare(programs[0], programs[1]), false)) {
      found += (found.empty() ? "" : ", ") + text;
    }
    EXPECT_EQ(found, expected) << before << " / " << after;
  }
  EXPECT_EQ(withoutBounds("const T<a[2], B<b[3]>> (*[10])[4]"), "const T<a[2], B<b[3]>> (*[])[]");
}

// On random inventories with many variables of the same name: none has changed compared with itself, the changes from
// new to old are mirrored, the largest come first, and they add up to the difference of the totals.
TEST_F(Diff, Properties) {
  std::mt19937 random(11);
  for (int round = 0; round < 400; ++round) {
    const std::size_t most = round % 20 == 0 ? 300 : 12;
    const std::string texts[] = {randomVariables(random, most), randomVariables(random, most)};
    const std::deque<Inventory> programs[] = {programsOf(texts[0]), programsOf(texts[1])};
    const std::string failed = texts[0] + "/ " + texts[1];
    EXPECT_TRUE(compare(programs[0], programs[0]).changes.empty()) << texts[0];
    const Comparison there = compare(programs[0], programs[1]);
    const Comparison back = compare(programs[1], programs[0]);
    EXPECT_EQ(changesOf(there, false), changesOf(back, true)) << failed;
    std::int64_t sum = 0;
    std::uint64_t last = UINT64_MAX;
    for (const Change& change : there.changes) {
      const std::uint64_t bytes = change.delta ? change.delta->bytes : 0;
      EXPECT_LE(bytes, last) << failed;
      last = bytes;
      sum +=
          change.delta && change.delta->negative ? -static_cast<std::int64_t>(bytes) : static_cast<std::int64_t>(bytes);
    }
    EXPECT_EQ(static_cast<std::int64_t>(there.after.bytes - there.before.bytes), sum) << failed;
    std::map<std::string, int> unpaired;  // by program, name and type
    for (const Change& change : there.changes) {
      if (change.before && change.after) continue;
      const Row& row = change.before ? *change.before : *change.after;
      int& sides = unpaired[row.program->executable + std::string(row.variable->name).append(row.variable->type)];
      sides |= change.before ? 1 : 2;
      EXPECT_NE(sides, 3) << "both added and removed: " << row.variable->name << " in " << failed;
    }
    EXPECT_EQ(there.before.variables, programs[0][0].variables.size() + programs[0][1].variables.size());
    EXPECT_EQ(there.after.bytes, back.before.bytes) << failed;
    EXPECT_EQ(there.after.mutableBytes, back.before.mutableBytes) << failed;
  }
}

// Unusual values in every format.
TEST_F(Diff, Formats) {
  writeRows("old", R"("name": "same", "size": 4, "type": "int", "writable": true, "address": "0x10"
"name": "alias", "size": 4, "type": "int", "writable": true, "address": "0x10", "file": "src/a,b:c%.c"
"name": "gone", "size": 18446744073709551615, "type": "T", "section": ".bss", "writable": true, "file": "a.c", "line": 1
"name": "moved", "size": 1, "section": ".rodata", "writable": false)");
  writeRows("new", R"("name": "same", "size": 4, "type": "int", "writable": true, "address": "0x10"
"name": "alias", "size": 8, "type": "long", "writable": true, "address": "0x10", "file": "src/a,b:c%.c", "line": 7
"name": "moved", "size": 1, "section": ".data", "writable": true
"name": "x\u001b[31m\n::error::", "thread_local": true, "file": "/build/h.h")");
  EXPECT_EQ(
      diff("old new --moves -n 3").out,
      "Change                         Delta                        Size  Section          Name   Type        Place\n"
      "removed  -18,446,744,073,709,551,615  18,446,744,073,709,551,615  .bss             gone   T           a.c:1\n"
      "type                              +4                           8  ?                alias  int → long  "
      "src/a,b:c%.c:7\n"
      "moved                              0                           1  .rodata → .data  moved  ?           ?\n\n"
      "1 added, 1 removed, 1 with a different type, 1 moved; 3 of 4 rows shown\n"
      "18,446,744,073,709,551,615 → 9 bytes (-18,446,744,073,709,551,606), writable or thread-local "
      "18,446,744,073,709,551,615 → 9 (-18,446,744,073,709,551,606)\n"
      "Not counted because a size is unknown: 0 variables before, 1 variable now\n");
  EXPECT_EQ(diff("old new --where 'name = moved'").out,
            "No variables have changed\n1 → 1 bytes (0), writable or thread-local 0 → 1 (+1)\n"
            "1 variable moved to another section (`--moves` shows them)\n");
  EXPECT_EQ(directory.run("GITHUB_WORKSPACE=/build tolquin diff --format github -n 2 old new").out,
            "::warning file=src/a%2Cb%3Ac%25.c,line=7,title=Variable has grown::alias, int → long: 8 bytes, +4\n"
            "::warning file=h.h,title=Variable added::x\\x1b[31m\\x0a::error::: of unknown size\n");
  const RunResult checked = directory.run(R"(tolquin diff old new --moves --format json >diff.json
    /usr/bin/python3 -c '
import json, jsonschema, os
schema = json.load(open(os.environ["SOURCE"] + "/docs/schema.json"))
document = json.load(open("diff.json"))
jsonschema.validate(document, schema)
rows = [dict(json.loads(line)) for line in open("new")]
for change in document["changes"]:
    variable = change["new"] or change["old"]
    print(change["class"], change["delta"], variable["name"].encode("unicode_escape").decode())
total = document["total"]
print(total["old"]["variables"], total["new"]["unsized"], total["mutable_delta"], total["type"], total["grown"])
'; tolquin diff.json 2>&1)");
  EXPECT_EQ(checked.out,
            "removed -18446744073709551615 gone\ntype 4 alias\nmoved 0 moved\nadded None x\\x1b[31m\\n::error::\n"
            "4 1 -18446744073709551606 1 0\ntolquin: diff.json: contains changes, not variables\n")
      << checked.err;
}

// The workspace may be a symbolic link, and file names may contain `..`.
TEST_F(Diff, FileNamesRelativeToTheWorkspace) {
  writeFile(directory / "up", R"({"schema": 1, "executables": [{"path": "p", "directory": ")" + directory / "ws/sub" +
                                  R"("}], "variables": [{"executable": "p", "name": "u", "file": "../up/b.c"}]})");
  EXPECT_EQ(directory
                .run("mkdir ws; ln -s ws link; : >none.jsonl; for w in ws link link/ ws/up/. other; do "
                     "GITHUB_WORKSPACE=$PWD/$w tolquin diff --format github none.jsonl up 2>/dev/null; done | "
                     "sed \"s|$PWD||; s/,title.*//\"")
                .out,
            "::warning file=up/b.c\n::warning file=up/b.c\n::warning file=up/b.c\n::warning file=b.c\n"
            "::warning file=/ws/up/b.c\n");
}

// A property that one input lacks has not changed.
TEST_F(Diff, UnknownProperties) {
  writeRows("mute", R"("name": "same", "size": 4, "type": "int")");
  writeRows("new", R"("name": "same", "size": 4, "type": "int", "writable": true, "address": "0x10")");
  EXPECT_EQ(diff("mute new").out,
            "No variables have changed\n4 → 4 bytes (0), writable or thread-local ?\n"
            "Not known to be writable or constant: 1 variable before, 0 variables now\n");
  EXPECT_EQ(directory.run("tolquin diff mute new --format json | grep -o 'mutable_[a-z]*.: [^,]*' | paste -sd' '").out,
            "mutable_bytes\": null mutable_bytes\": null mutable_delta\": null\n");
}

// Whatever the names, the table has the names in its columns and no links, and it fits into a GitHub comment.
TEST_F(Diff, Markdown) {
  writeFile(directory / "make.py", R"(import json, random
random.seed(3)
odd = "|`\\@<>&*_[]()!#~$:/.-\n\r\t x1\u202e\u6f22\u0301"
names = ["a|b", "`", "``x`|`", "x\\", "x\\|", "\\", "@you", "@org/team", "http://x.y", "<b>", "&amp;", "*x*", "#1", " x "]
names += ["".join(random.choice(odd) for _ in range(random.randint(1, 30))) for _ in range(120)]
with open("odd", "w") as file:
    for name in names:
        print(json.dumps({"executable": "|p", "name": name, "type": name, "size": 1, "file": name}), file=file)
with open("long", "w") as file:
    for i in range(100):
        name = "\\|" * 300 + str(i)
        print(json.dumps({"executable": "p", "name": name, "type": name, "file": name, "section": name}), file=file)
)");
  writeFile(directory / "check.py", R"(import html.parser, json, subprocess, sys, unicodedata
class Cells(html.parser.HTMLParser):
    rows, tags, open = [], set(), False
    def handle_starttag(self, tag, attributes):
        self.tags.add(tag)
        if tag == "tr": self.rows.append([])
        if tag in ("td", "th"): self.rows[-1].append("")
        self.open = tag in ("td", "th") or self.open and tag == "code"
    def handle_data(self, data):
        if self.open and self.rows: self.rows[-1][-1] += data
cells = Cells()
cells.feed(subprocess.run(["cmark-gfm", "--unsafe", "-e", "table", "-e", "autolink"], stdin=open("odd.md"),
                          stdout=subprocess.PIPE, check=True).stdout.decode())
names = [json.loads(line)["name"] for line in open("odd")]
print(len(names) - len(cells.rows[1:]), cells.tags - {"h3", "p", "table", "thead", "tbody", "tr", "th", "td", "code"})
print({len(row) for row in cells.rows})
shown = sorted(row[4].strip() for row in cells.rows[1:])
def escaped(c):
    return f"\\x{ord(c):02x}" if c < " " else "\\u202e" if c == "\u202e" else c
print(shown == sorted("".join(map(escaped, name)).strip() for name in names))
)");
  const RunResult result = directory.run(
      R"(/usr/bin/python3 make.py; : >none.jsonl; t() { tolquin diff --format markdown none.jsonl $@ 2>/dev/null; }
t odd -n 1000 >odd.md; /usr/bin/python3 check.py; for n in 0 5 100; do t long -n $n >long.md; wc -c <long.md
tail -n 1 long.md; grep -c '^| add' long.md; done; t odd | grep -c '^| add')");
  const std::vector<std::string> lines = splitAt(result.out, '\n');
  ASSERT_EQ(lines.size(), 13u) << result.out << result.err;
  EXPECT_EQ(lines[0] + lines[1] + lines[2], "0 set(){7}True") << result.out << result.err;
  EXPECT_EQ(lines[4] + lines[5], "100 more changes.0");
  EXPECT_EQ(lines[7] + lines[8], "95 more changes.5");
  EXPECT_LT(std::stoi(lines[9]), 65'000);
  EXPECT_GT(std::stoi(lines[11]), 5);
  EXPECT_EQ(lines[12], "50");
}

TEST_F(Diff, LimitsAndWrongUsage) {
  writeRows("old", R"("name": "a", "size": 1000, "writable": true, "file": "a.c"
"name": "b", "size": 8, "writable": false
"name": "c", "size": 8, "writable": null
"name": "d", "size": 8, "writable": true)");
  writeRows("new", R"("name": "a", "size": 1024, "writable": true, "file": "a.c"
"name": "b", "size": 8, "writable": true, "line": 3
"name": "c", "size": 8, "writable": true
"name": "d", "size": null, "writable": true
"name": "e", "size": 100, "writable": false)");
  writeRows("mute", R"("name": "a", "size": 1000)");
  const struct {
    std::string arguments;
    int status;
    std::string message;  // contained in standard error; empty: no message
  } cases[] = {
      {"old new", 0, ""},
      {"old new --fail-on-growth 32 --mutable --where 'name != c'", 0, ""},
      {"old new --fail-on-growth 31 --where 'name != c'", 3,
       "limit exceeded: --fail-on-growth 31: writable and thread-local variables grew by 32 bytes, from 1,000 to "
       "1,032, "
       "1 more than allowed"},
      {"new old --fail-on-growth 0 --where 'name != c'", 0, ""},
      {"old new --fail-on-growth 3.2% --where 'name != c'", 0, ""},
      {"old new --fail-on-growth 3% --where 'name != c'", 3, "2 more than allowed"},
      {"old new --fail-on-growth 1K --all", 0, ""},
      {"old new --fail-on-growth 0 --all", 3, "all variables grew by 124 bytes, from 1,016 to 1,140, 124 more"},
      {"old new --fail-on-growth 100% --all -n 0", 0, ""},
      {"old new --fail-on-new-writable --where 'name != c'", 3,
       "limit exceeded: --fail-on-new-writable: 1 variable newly writable or thread-local: b"},
      {"old new --fail-on-new-writable --where 'name = c'", 1, "old: does not say which variables are writable"},
      {"mute new --fail-on-growth 99%", 1, "mute: does not say which variables are writable"},
      {"mute new --fail-on-growth 999% --all", 0, ""},
      {"old new --fail-on-growth 1M", 0, "old: warning: 1 variable not checked: unknown whether writable"},
      {"old new --fail-on-growth 32 --where 'name != d'", 0, "old: warning: 1 variable not checked"},
      {"old new --where 'name = z'", 0, "no variables selected"},
      {"old", 2, "NEW is required"},
      {"old new old", 2, "not expected: old"},
      {"old new --fail-on-growth -1", 2, "--fail-on-growth \"-1\": expected a number of bytes"},
      {"old new --fail-on-growth ''", 2, ""},
      {"old new --fail-on-growth %", 2, "a percentage"},
      {"old new --fail-on-growth 1e3%", 2, "a percentage"},
      {"old new --all", 2, "--all requires --fail-on-growth"},
      {"old new --format csv", 2, "{table,json,markdown,github}"},
      {"old new --where size", 2, "expected one of"},
      {"old none --fail-on-growth 0", 1, "none: cannot open: No such file or directory"},
      {"old new >/dev/full", 1, "No space left on device"},
  };
  for (const auto& [arguments, status, message] : cases) {
    const RunResult result = diff(arguments);
    EXPECT_EQ(result.status, status) << arguments << result.err;
    EXPECT_TRUE(status == 2 || message.empty() == result.err.empty()) << arguments << result.err;
    EXPECT_NE(result.err.find(message), std::string::npos) << arguments << ": " << result.err;
    EXPECT_EQ(result.out.empty(), status == 1 || status == 2) << arguments;
  }
}

// Every option is in the manual page and in the completions.
TEST_F(Diff, Descriptions) {
  const RunResult checked =
      directory.run(R"(tolquin diff --help | grep -oE '^ +(-[a-z],)?--[a-z-]+' | grep -oE '[-][-][a-z-]+' >options
    sed 's/\\-/-/g; 1,/^.SH OPTIONS OF DIFF/d; /^.SH OPTIONS OF TABLES/,$d' $SOURCE/docs/tolquin.1 >manual
    for option in $(grep -v -e --help options); do
      for text in manual $SOURCE/completion/tolquin.*; do
        grep -qE -e "$option|-l ${option#--} " $text || echo $option is missing in $text
      done
    done; wc -l <options)");
  EXPECT_EQ(checked.out, "10\n") << checked.err;
}

// The steps of the workflow, as the document has them, on a repository with a pull request. A script called gh prints
// what the workflow asks of GitHub.
TEST_F(Diff, Workflow) {
  writeFile(directory / "steps.py", R"(import os, re, yaml
text = open(os.environ["SOURCE"] + "/docs/continuous-integration.md").read()
workflow = yaml.safe_load(re.search("```yaml\n(.*?)```", text, re.S).group(1))
for step in workflow["jobs"]["variables"]["steps"]:
    open(step["name"].split()[0], "w").write(step["run"])
print("export BUILD=\"%s\"; export PROGRAM=%s" % (workflow["env"]["BUILD"], workflow["env"]["PROGRAM"]))
)");
  const RunResult result = directory.run(R"(set -e
    mkdir bin temp work; ln -s $(command -v tolquin) bin/tolquin
    cat >bin/gh <<'END'
#!/bin/sh
echo gh "$@" | sed "s|$RUNNER_TEMP|TEMP|g" >&2
[ "$2" != --paginate ] || cat ../earlier
END
    chmod +x bin/gh; : >earlier
    git init --quiet server; cd server; git config uploadpack.allowAnySHA1InWant true
    git config user.email a@b; git config user.name a
    mkdir src; echo 'int old; int main(void) { return old; }' >src/prog.c
    printf 'prog: src/prog.c\n\tcd src; gcc $(CFLAGS) -o ../$@ prog.c\n' >Makefile
    git add .; git commit --quiet -m 1; branch=$(git branch --show-current)
    git checkout --quiet -b topic; echo 'int fresh[3];' >>src/prog.c; git commit --quiet -a -m 2
    git checkout --quiet $branch; git merge --quiet --no-ff -m 3 topic; sha=$(git rev-parse HEAD); git reset --quiet --hard HEAD^
    cd ..; /usr/bin/python3 steps.py >environment; . ./environment
    export PATH=$PWD/bin:$PATH RUNNER_TEMP=$PWD/temp GITHUB_WORKSPACE=$PWD/work GITHUB_STEP_SUMMARY=$PWD/summary
    export GITHUB_SERVER_URL=file://$PWD GITHUB_REPOSITORY=server GITHUB_SHA=$sha NUMBER=7
    cd work; for step in Build Compare Comment; do bash -e ../$step; done
    echo 5 >../earlier; bash -e ../Comment
    status=0; bash -e ../Check || status=$?; echo $status; diff ../summary ../temp/comment.md; tail -n 2 ../summary)");
  EXPECT_EQ(result.out,
            "cd src; gcc -g -O2 -o ../prog prog.c\ncd src; gcc -g -O2 -o ../prog prog.c\n"
            "::warning file=src/prog.c,line=2,title=Variable added::fresh, int [3]: 12 bytes in .bss\n"
            "Change  Delta  Size  Section  Name   Type     Place\n"
            "added     +12    12  .bss     fresh  int [3]  prog.c:2\n\n"
            "1 added\n4 → 16 bytes (+12), writable or thread-local 4 → 16 (+12)\n3\n"
            "| --- | ---: | ---: | --- | --- | --- | --- |\n"
            "| added | +12 | 12 | `.bss` | `fresh` | `int [3]` | `prog.c:2` |\n");
  EXPECT_EQ(
      result.err,
      "gh api --paginate repos/server/issues/7/comments --jq .[] | select(.body | startswith(\"<!-- tolquin "
      "-->\")) | .id\n"
      "gh pr comment 7 --repo server --body-file TEMP/comment.md\n"
      "gh api --paginate repos/server/issues/7/comments --jq .[] | select(.body | startswith(\"<!-- tolquin "
      "-->\")) | .id\n"
      "gh api --silent --method PATCH repos/server/issues/comments/5 --field body=@TEMP/comment.md\n"
      "tolquin: limit exceeded: --fail-on-growth 1%: writable and thread-local variables grew by 12 bytes, from 4 to "
      "16, 12 more than allowed\n"
      "tolquin: limit exceeded: --fail-on-new-writable: 1 variable newly writable or thread-local: fresh (prog.c:2)\n");
}
