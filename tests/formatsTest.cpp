// The rules for input texts: which lines give which records, index entries, types and locations. Each case is a text
// and its result; "-": none.
#include <gtest/gtest.h>

#include <climits>
#include <cstdio>
#include <cstring>

#include "a2lControl.h"
#include "objRead.h"
#include "support.h"
#include "textTables.h"

TEST(Formats, VariableList) {
  const std::string cases[][2] = {
      {"08049f40 0000000c buffer\n", "08049f40 12 buffer\n"},
      {"  08049f40   0000000c   buffer extra words\n", "08049f40 12 buffer"},
      {"08049f40 <NULL> buffer", "08049f40 -1 buffer"},
      {"08049f40 zz b\ttab", "08049f40 0 b\ttab"},
      {"08049f40 80000000 big", "08049f40 2147483647 big"},
      {"08049f40 -80000001 big", "08049f40 0 big"},
      {"08049f40 " + std::string(3000, 'f') + " huge", "08049f40 2147483647 huge"},
      {"08049f40 00000004\n", "-"},
      {"08049f40", "-"},
      {"   ", "-"},
  };
  for (const auto& [line, expected] : cases) {
    std::string words = line;
    sobjdump1 record{};
    const bool good = populate_sobjdump1(&record, words.data()) == 0;
    const std::string size = std::to_string(record.DataSize);
    EXPECT_EQ(good ? std::string(record.Address) + " " + size + " " + record.VariableName : "-", expected) << line;
  }
  int value = 0;
  EXPECT_EQ(hex2dec(&value, "-80000001"), -1);
  EXPECT_EQ(value, INT_MIN);
  char blanks[] = "\t \n";
  EXPECT_STREQ(str_r_trim(blanks), "");
  EXPECT_EQ(str_r_trim(nullptr), nullptr);
}

TEST(Formats, SizesOfTypes) {
  std::string table =
      "no tab\n\tempty type\nint\t4\tmore\ninteger\t8\nchar\t1\nnegative\t-4\nbad\tfour\nhuge\t99999999999\n" +
      std::string(9000, 'x') + "\t7\nlast\t3";
  FILE* sizes = fmemopen(table.data(), table.size(), "r");
  const std::pair<const char*, int> cases[] = {
      {"int", 4},   {"char *", 1}, {"static int", 4}, {"static  int", -1}, {"static", -1},
      {"long", -1}, {"in", 4},     {"integ", 8},      {"bad", 0},          {"negative", -1},
      {"", 0},      {"*", 0},      {" last **", 3},   {"int", 4},          {"huge", INT_MAX}};
  for (const auto& [type, expected] : cases) {
    int size = 77;
    char buffer[RecordSize];
    get_Dsize(sizes, &size, buffer, type);
    EXPECT_EQ(size, expected) << '"' << type << '"';
  }
  std::fclose(sizes);
}

// An endless line is cut at the limit, and the rest of it is dropped.
TEST(Formats, EndlessLine) {
  LineBuffer buffer(10);
  for (int i = 0; i < 10; ++i) {
    buffer.append(std::string(11, 'x'));
    EXPECT_EQ(buffer.next().value_or("-"), i == 0 ? std::string(10, 'x') : "-");
    EXPECT_EQ(buffer.text(), "");
  }
}

// Entries of the index: "type|name", and the address if it is not 8049f40.
TEST(Formats, Declarations) {
  const std::string longest(50, 'e');
  const TMAP listed{{"8049f40", 0}, {"8049f40e", 0}, {"abc", 0}, {"abcd", 0}, {longest, 0}, {longest + "e", 0}};
  const std::string cases[][2] = {
      {"int counter /* 0x8049f40 */;", "int|counter"},
      {"  static char *names[4] /* 0x08049f40 */;", "static char **|names"},
      {"int /* 0xabcd */ sum /* 0x8049f40 */;", "int|sum"},
      {"unsigned\tint grid[16][4] /* 0x8049f40 */;", "unsigned int **|grid"},
      {"int(*)(int) handler   /*   0x8049f40   */;", "int(*)(int)|handler"},
      {"int x /* 0x000abcd */;", "int|x|abcd"},
      {"int x /* see 0x8049f40 */;", "int|x"},
      {"*p /* 0x8049f40 */;", "*|p"},
      {"int [4] /* 0x8049f40 */;", "int *|"},
      {"::int x: 3 /* 0x8049f40 */;", "int|x"},
      {"int x /* 0x" + longest + " */;", "int|x|" + longest},
      {"int x /* 0x" + longest + "e */;", "-"},
      {"int counter /* 0x8049f40 */ ;", "-"},
      {"int counter /* 0x8049f40 */;\r", "-"},
      {"int counter /* 8049f40 */;", "-"},
      {"int counter 0x8049f40 */;", "-"},
      {"int tiny /* 0x0000abc */;", "-"},
      {"int x /* 0x8049F40E */;", "-"},
      {"int x /* 0x8049f50 */;", "-"},
      {"x /* 0x8049f40 */;", "-"},
      {"int ** /* 0x8049f40 */;", "-"},
      {":/* 0x8049f40 */;", "-"},
      {"/*0xab*/;", "-"},
      {"*/;", "-"},
  };
  for (const auto& [line, expected] : cases) {
    ItemType item;
    std::string made = "-";
    if (itemFromDeclaration(line, listed, item)) {
      made = std::string(item.DataField.getDataType()) + "|" + item.DataField.getVarName();
      const std::string address(item.KeyField, std::strcspn(item.KeyField, " "));
      if (address != "8049f40") made += "|" + address;
    }
    EXPECT_EQ(made, expected) << line;
  }
}

// A caller that fills the records itself.
TEST(Formats, Records) {
  sGlobalVarDef_tbl row;
  char buffer[4096];
  std::string table = "int\t4\n";
  FILE* sizes = fmemopen(table.data(), table.size(), "r");
  std::strcpy(row.DataType, " int ");
  get_Dsize(sizes, &row.DRefDataSize, buffer, str_trim(row.DataType));
  std::fclose(sizes);
  setText(row.SourceFile, std::string(5000, 'f'));
  const std::string expected = "0\t<NULL>\tint\t-1\t4\t<NULL>\t<NULL>\t" + std::string(4095, 'f') + "\t0\t-1\n";
  EXPECT_EQ(formatGlobalVarDef(row), expected);
}

TEST(Formats, TypeThatDoesNotFit) {
  DataFieldType data;
  EXPECT_TRUE(data.setDataType(std::string(1999, 't').c_str()));
  EXPECT_FALSE(data.setDataType(std::string(2000, 't').c_str()));
  EXPECT_STREQ(data.getDataType(), "");
}

// The index built from two files: the types that it has for 8049f40 and 8049f44.
TEST(Formats, IndexOfFiles) {
  const std::string junk("\0\xff\n /*\0x*/;\n\n   \n", 17);
  const std::string usual = "int a /* 0x8049f40 */;\nlong b /* 0x8049f44 */;\n";
  const std::string line4999 = "int " + std::string(4999 - 4 - 17, 'n') + " /* 0x8049f40 */;";
  const std::string cases[][3] = {
      {"08049f40 4 a\n08049f44 4 b", "int a /* 0x8049f40 */;\nlong b /* 0x8049f44 */;", "int long"},
      {"8049f40\n\n   \n08049f44", "int a /* 0x8049f40 */;\nchar a /* 0x8049f40 */;\n", "int -"},
      {"008049f40\n\t8049f44\n", usual, "- -"},
      {"8049f40\n" + std::string(5000, 'x') + "\n8049f44\n", usual, "int -"},
      {"8049f40\n8049f44\n", std::string(5000, ' ') + "\n" + usual, "- -"},
      {"8049f40\n8049f44\n", line4999 + "\nlong b /* 0x8049f44 */;\n", "int long"},
      {junk + "8049f40\n", junk + usual, "int -"},
      {"", "", "- -"},
  };
  for (const auto& [obj1, objtxt, expected] : cases) {
    const TempDir directory;
    writeFile(directory / "objdump.1", obj1);
    writeFile(directory / "objdump.txt", objtxt);
    IndexTable table('w', (directory / "vifa.dat").c_str());
    fillIndex(directory.path(), table);
    EXPECT_TRUE(table.Check());
    std::string types;
    for (const char* address : {"8049f40", "8049f44"}) {
      KeyFieldType wanted;
      std::snprintf(wanted, sizeof wanted, "%-50s", address);
      ItemType item;
      types +=
          (types.empty() ? "" : " ") + std::string(table.Retrieve(wanted, item) ? item.DataField.getDataType() : "-");
    }
    EXPECT_EQ(types, expected) << obj1 << objtxt;
  }
}

// "file line"; "?": a reply without a location; "-": not a reply; "d": a diagnostic.
TEST(Formats, RepliesOfAddr2line) {
  const std::string cases[][2] = {{"main.c:12", "main.c 12"},
                                  {"/src/a.c:17 (discriminator 2)", "/src/a.c 17"},
                                  {"main.c:?", "main.c 0"},
                                  {"a.c:12abc", "a.c 12"},
                                  {"a.c:abc", "a.c 0"},
                                  {"a.c:-3", "a.c -3"},
                                  {"a.c:99999999999", "a.c 1215752191"},
                                  {"a.c: 7", "a.c 7"},
                                  {"a.c:12\r", "a.c 12"},
                                  {"C:/src/a.c:17", "C 0"},
                                  {"x.c:5:9", "x.c 5"},
                                  {"warning: something:else", "warning 0"},
                                  {"??:0", "?"},
                                  {"??", "?"},
                                  {":12", "?"},
                                  {":?", "?"},
                                  {"main.c:", "?"},
                                  {"", "-"},
                                  {"garbage", "-"},
                                  {std::string("n\0ul:1", 6), "-"},
                                  {"addr2line: DWARF error: section 3:4 is too big", "d"},
                                  {"BFD: a.out:12", "d"},
                                  {"ERROR: Cannot exec a2l: 12", "d"}};
  for (const auto& [line, expected] : cases) {
    const LineKind kind = classifyReply(line);
    std::string found = kind == LineKind::Reply ? "?" : kind == LineKind::Diagnostic ? "d" : "-";
    if (const SourceLocation location = parseLocation(line); !location.file.empty() && kind == LineKind::Reply)
      found = location.file + " " + std::to_string(location.line);
    EXPECT_EQ(found, expected) << line;
  }
}

TEST(Formats, AnswersOfGdb) {
  const std::string cases[][3] = {
      {"names", "4:\tstatic char *names[20];", "static char **"},
      {"ptr", "class Foo *ptr;", "Foo *"},
      {"var", "int ns::var;", "int"},
      {"ns::var", "\tint var;", "int"},
      {"var", "int var", "-"},
      {"var", "var;", "-"},
      {"var", "File var;\nAll variables var;\n\nint other;", "-"},
      {"var", "Non-debugging symbols:\nint var;", "-"},
      {"var", "long var;\nshort var;", "long"},
      {"c", "57:\tstatic store::Counter (anonymous namespace)::c;", "static store::Counter"},
      {"p", "57:\tint *(anonymous namespace)::p[2];", "int **"},
      {"value", "Pair<int, char> Pair<int, char>::value;", "Pair<int, char>"},
      {"b>", "int v<a::b>;", "-"},
      {"a", "std::string ns[abi:x]::a[abi:cxx11][3];", "std::string *"},
      {"ri", "int *&ns::ri;", "int *&"},
      {"pm", "int ns::T::*ns::pm[2];", "int ns::T::**"},
      {"v", "int H<&ns::k>::v;", "int"},
      {"A::operator->::x", "int A::operator->::x;", "int"},
      {"cb", "void (*other)(int, cb);", "-"},
      {"b", "char a*b;", "-"},
      {"a*b", "char a*b;", "char"},
      {"pm", "int (anonymous namespace)::T::*pm;", "int (anonymous namespace)::T::*"},
      {"counter", "int counter;\r", "int"},
      {"f", "4:\tFile f;", "File"},
      {"b", "struct {\n\nint b;", "int"},
      {"b", "struct {\nFile b;\nlong b;", "long"},
      {"season", "22:\tstatic struct {\n    int year;\n    int season;\n} season[3];", "static struct {...} *"},
      {"b", "4:\tstruct {\n enum {\n A } e;\n} b;", "struct {...}"},
      {"b", "4:\tclass {\n int a;\n\n void f(void);\n} b;\n5:\tlong b;", "long"},
      {"year", "22:\tstruct {\n    int year;\n} season;\n9:\tlong year;", "long"},
  };
  for (const auto& [name, lines, expected] : cases) {
    std::string type;
    AnswerReader answer(name, type);
    for (const std::string& line : splitAt(lines, '\n')) answer(line);
    EXPECT_EQ(answer.found() ? type : "-" + type, expected) << lines;
  }
}
