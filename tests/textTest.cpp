// The pure parsers: texts in, values out.
#include <gtest/gtest.h>

#include <climits>
#include <cstring>

#include "a2lControl.h"
#include "objRead.h"
#include "support.h"
#include "tolquin.h"

TEST(Text, Trimming) {
  const struct {
    const char *text, *left, *right, *both;
  } cases[] = {{"  abc \n", "abc \n", "  abc", "abc"},
               {"a b", "a b", "a b", "a b"},
               {"\t \n", "", "", ""},
               {"", "", "", ""},
               {"\xa0 x", "\xa0 x", "\xa0 x", "\xa0 x"}};
  for (const auto& c : cases) {
    char buffer[3][20];
    for (auto& copy : buffer) std::strcpy(copy, c.text);
    EXPECT_STREQ(str_l_trim(buffer[0]), c.left);
    EXPECT_STREQ(str_r_trim(buffer[1]), c.right);
    EXPECT_STREQ(str_trim(buffer[2]), c.both);
  }
  EXPECT_EQ(str_r_trim(nullptr), nullptr);
}

TEST(Text, VariableListRecords) {
  const std::string longSize(3000, 'f');
  const struct {
    std::string line;
    int result;
    const char* address;
    int size;
    const char* name;
  } cases[] = {{"08049f40 0000000c buffer\n", 0, "08049f40", 12, "buffer\n"},
               {"  08049f40   0000000c   buffer extra words\n", 0, "08049f40", 12, "buffer"},
               {"08049f40 <NULL> buffer", 0, "08049f40", -1, "buffer"},
               {"08049f40 zz b\ttab", 0, "08049f40", 0, "b\ttab"},
               {"08049f40 80000000 big", 0, "08049f40", INT_MAX, "big"},
               {"08049f40 " + longSize + " huge", 0, "08049f40", INT_MAX, "huge"},
               {"08049f40 00000004\n", 0, "08049f40", 4, nullptr},
               {"08049f40", -1, nullptr, 0, nullptr},
               {"\n", -1, nullptr, 0, nullptr},
               {"   ", -1, nullptr, 0, nullptr}};
  for (const auto& c : cases) {
    std::string line = c.line;
    sobjdump1 record{};
    const int expected = c.name == nullptr ? -1 : c.result;
    ASSERT_EQ(populate_sobjdump1(&record, line.data()), expected) << c.line;
    if (expected != 0) continue;
    EXPECT_STREQ(record.Address, c.address);
    EXPECT_EQ(record.DataSize, c.size) << c.line;
    EXPECT_STREQ(record.VariableName, c.name);
  }
  int value = 0;
  EXPECT_EQ(hex2dec(&value, "-80000001"), -1);
  EXPECT_EQ(value, INT_MIN);
  EXPECT_EQ(hex2dec(&value, "0x1fz"), 0);
  EXPECT_EQ(value, 0x1f);
}

TEST(Text, SizesOfTypes) {
  const TempDir directory;
  writeFile(directory / "sizes.tbl",
            "no tab\n\tempty type\nint\t4\tmore\ninteger\t8\nchar\t1\nnegative\t-4\nbad\tfour\n"
            "huge\t99999999999\n" +
                std::string(9000, 'x') + "\t7\nlast\t3");
  FILE* sizes = std::fopen((directory / "sizes.tbl").c_str(), "r");
  ASSERT_NE(sizes, nullptr);
  const struct {
    const char* type;
    int size;
  } cases[] = {{"int", 4},   {"char *", 1}, {"static int", 4}, {"static  int", -1}, {"static", -1},
               {"long", -1}, {"in", 4},     {"integ", 8},      {"negative", -1},    {"bad", 0},
               {"", 0},      {"*", 0},      {" last **", 3},   {"int", 4},          {"huge", INT_MAX}};
  for (const auto& c : cases) {
    int size = 77;
    char buffer[RecordSize];
    get_Dsize(sizes, &size, buffer, c.type);
    EXPECT_EQ(size, c.size) << '"' << c.type << '"';
  }
  std::fclose(sizes);
}

TEST(Text, WordsAndNames) {
  std::vector<std::string> words{"kept"};
  split("  int   x ", " \t", words);
  split("", " ", words);
  split("::a::b", ":", words);
  split("whole text", "", words);
  EXPECT_EQ(words, (std::vector<std::string>{"kept", "int", "x", "a", "b", "whole text"}));

  const std::string declarators[][3] = {{"counter", "counter", ""},
                                        {"**argv", "argv", "**"},
                                        {"*tab[4][8]", "tab", "***"},
                                        {"a*b", "a*b", ""},
                                        {"[4]", "", "*"},
                                        {"***", "", "***"},
                                        {"", "", ""}};
  for (const auto& [before, after, stars] : declarators) {
    std::string name = before;
    EXPECT_EQ(stripStarsAndBrackets(name), stars) << before;
    EXPECT_EQ(name, after);
  }

  std::string deep = "x";
  for (int i = 0; i < 1000; ++i) deep = "n::" + deep;
  const std::string scoped[][2] = {{"counter", "counter"},
                                   {"ns::Klass::member", "member"},
                                   {"::g", "g"},
                                   {"map<ns::key, int>::size", "size"},
                                   {"pair<a::b, c::d>", "pair<a::b, c::d>"},
                                   {"a:::b", "b"},
                                   {"a::", ""},
                                   {"a>b::c", "a>b::c"},
                                   {"x", "x"},
                                   {"", ""},
                                   {deep, "x"}};
  for (const auto& [name, last] : scoped) EXPECT_EQ(remove_all_scopes(name), last) << name;
  std::string untouched = "as it was";
  EXPECT_FALSE(remove_one_scope("plain", untouched));
  EXPECT_EQ(untouched, "as it was");
}

TEST(Text, RepliesOfAddr2line) {
  const struct {
    const char* line;
    ReplyKind kind;
    const char* file;
    int number;
  } cases[] = {{"main.c:12", ReplyKind::Location, "main.c", 12},
               {"/src/a.c:17 (discriminator 2)", ReplyKind::Location, "/src/a.c", 17},
               {"main.c:?", ReplyKind::Location, "main.c", 0},
               {"/a:b c/x.c:5", ReplyKind::Location, "/a:b c/x.c", 5},
               {"/a:5b/x.c:7 (discriminator 1)", ReplyKind::Location, "/a:5b/x.c", 7},
               {"x.c:5:9", ReplyKind::Location, "x.c", 5},
               {"%s%n.c:3", ReplyKind::Location, "%s%n.c", 3},
               {"??:0", ReplyKind::Unknown, "", 0},
               {"??:?", ReplyKind::Unknown, "", 0},
               {"main.c:", ReplyKind::Noise, "", 0},
               {":12", ReplyKind::Unknown, "", 0},
               {":?", ReplyKind::Unknown, "", 0},
               {"", ReplyKind::Noise, "", 0},
               {"addr2line: DWARF error: section 3:4 is too big", ReplyKind::Noise, "", 0},
               {"BFD: a.out:12", ReplyKind::Noise, "", 0},
               {"ERROR: Cannot exec a2l: 12", ReplyKind::Noise, "", 0},
               {"warning: something:else", ReplyKind::Noise, "", 0}};
  for (const auto& c : cases) {
    SourceLocation location;
    EXPECT_EQ(parseReply(c.line, location), c.kind) << c.line;
    EXPECT_EQ(location.file, c.file) << c.line;
    EXPECT_EQ(location.line, c.number) << c.line;
  }
}

TEST(Text, AnswersOfGdb) {
  const struct {
    const char *name, *lines, *type;  // type null: not found
  } cases[] = {
      {"names", "4:\tstatic char *names[20];", "static char **"},
      {"counter", "int counter;", "int"},
      {"ptr", "class Foo *ptr;", "Foo *"},
      {"table", "unsigned long table[4][8];", "unsigned long **"},
      {"msg", "7:\tconst char * const msg;", "const char * const"},
      {"var", "int ns::var;", "int"},
      {"ns::var", "\tint var;", "int"},
      {"var", "int var", nullptr},
      {"var", "var;", nullptr},
      {"var", "File var;\nAll variables var;\n\nint other;", nullptr},
      {"var", "Non-debugging symbols:\nint var;", nullptr},
      {"var", "long var;\nshort var;", "long"},
      {"c", "57:\tstatic store::Counter (anonymous namespace)::c;", "static store::Counter"},
      {"p", "57:\tint *(anonymous namespace)::p[2];", "int **"},
      {"value", "Pair<int, char> Pair<int, char>::value;", "Pair<int, char>"},
      {"s", "1:\tstd::string s[abi:cxx11];", "std::string"},
      {"a", "std::string ns[abi:x]::a[abi:cxx11][3];", "std::string *"},
      {"ri", "int &ns::ri;", nullptr},
      {"pm", "int ns::T::*ns::pm;", nullptr},
      {"cb", "void (*other)(int, cb);", nullptr},
      {"season", "22:\tstatic struct {\n    int year;\n    int season;\n} season[3];", "static struct {...} *"},
      {"year", "22:\tstruct {\n    int year;\n} season;\n9:\tlong year;", "long"},
  };
  for (const auto& c : cases) {
    const std::string name = c.name;
    std::string type;
    AnswerReader answer(name, type);
    for (const std::string& line : splitAt(c.lines, '\n')) answer(line);
    EXPECT_EQ(answer.found(), c.type != nullptr) << c.lines;
    EXPECT_EQ(type, c.type != nullptr ? c.type : "") << c.lines;
  }
}
