// The index build: which lines make which entries, and what it does about files that are missing or malformed.
#include <gtest/gtest.h>

#include "objRead.h"
#include "support.h"

namespace {

std::string key(const std::string& address) { return address + std::string(50 - address.size(), ' '); }

}  // namespace

TEST(Index, DeclarationLines) {
  const std::string longest(50, 'e');
  TMAP listed;
  for (const char* address : {"8049f40", "abc", "abcd", "8049f4a", "08049f50"}) listed[address] = 0;
  listed[longest] = 0;
  listed[longest + "e"] = 0;
  const struct {
    std::string line;
    const char *type, *name;  // null: no entry
    std::string address = "8049f40";
  } cases[] = {
      {"int counter /* 0x8049f40 */;", "int", "counter"},
      {"char *table /* 0x8049f40 */;", "char *", "table"},
      {"  static char *names[4] /* 0x08049f40 */;", "static char **", "names"},
      {"struct node *head /* 0x8049f40 */;", "struct node *", "head"},
      {"const char * const msg /* 0x8049f40 */;", "const char * const", "msg"},
      {"int /* total */ sum /* 0x8049f40 */;", "int", "sum"},
      {"unsigned\tint grid[16][4] /* 0x8049f40 */;", "unsigned int **", "grid"},
      {"int(*)(int) handler   /*   0x8049f40   */;", "int(*)(int)", "handler"},
      {"int x /* 0x000abcd */;", "int", "x", "abcd"},
      {"int x /* see 0x8049f40 */;", "int", "x"},
      {"*p /* 0x8049f40 */;", "*", "p"},
      {"::int x: 3 /* 0x8049f40 */;", "int", "x"},
      {"int x /* 0x" + longest + " */;", "int", "x", longest},
      {"int x /* 0x" + longest + "e */;", nullptr, nullptr},
      {"int counter /* 0x8049f40 */ ;", nullptr, nullptr},
      {"int counter /* 0x8049f40 */;\r", nullptr, nullptr},
      {"int counter /* 8049f40 */;", nullptr, nullptr},
      {"int counter 0x8049f40 */;", nullptr, nullptr},
      {"int tiny /* 0x0000abc */;", nullptr, nullptr},
      {"int x /* 0x8049F4A */;", nullptr, nullptr},
      {"int x /* 0x8049f50 */;", nullptr, nullptr},
      {"x /* 0x8049f40 */;", nullptr, nullptr},
      {"int ** /* 0x8049f40 */;", nullptr, nullptr},
      {"/* 0x8049f40 */;", nullptr, nullptr},
      {":/* 0x8049f40 */;", nullptr, nullptr},
      {"/*0xab*/;", nullptr, nullptr},
      {"0x0 /* 0x */;", nullptr, nullptr},
      {"*/;", nullptr, nullptr},
      {"", nullptr, nullptr},
  };
  for (const auto& c : cases) {
    ItemType item;
    ASSERT_EQ(itemFromDeclaration(c.line, listed, item), c.type != nullptr) << c.line;
    if (c.type == nullptr) continue;
    EXPECT_EQ(item.KeyField, key(c.address)) << c.line;
    EXPECT_STREQ(item.DataField.getDataType(), c.type) << c.line;
    EXPECT_STREQ(item.DataField.getVarName(), c.name) << c.line;
  }
}

TEST(Index, Files) {
  const std::string junk("\0\xff\n /*\0x*/;\n\n   \n", 17);
  const std::string line4999 = "int " + std::string(4999 - 4 - 18, 'n') + " /* 0x8049f40 */;";
  const struct {
    std::string obj1, objtxt;
    std::string found;   // type of 8049f40, "-" when it is not in the index
    std::string second;  // type of 8049f44
  } cases[] = {
      {"08049f40 4 a\n08049f44 4 b", "int a /* 0x8049f40 */;\nlong b /* 0x8049f44 */;", "int", "long"},
      {"8049f40\n\n   \n08049f44", "int a /* 0x8049f40 */;\nchar a /* 0x8049f40 */;\n", "int", "-"},
      {"008049f40\n\t8049f44\n", "int a /* 0x8049f40 */;\nlong b /* 0x8049f44 */;\n", "-", "-"},
      {"8049f40\n" + std::string(5000, 'x') + "\n8049f44\n", "int a /* 0x8049f40 */;\nlong b /* 0x8049f44 */;\n", "int",
       "-"},
      {"8049f40\n8049f44\n", std::string(5000, ' ') + "\nint a /* 0x8049f40 */;\n", "-", "-"},
      {"8049f40\n8049f44\n", line4999 + "\nlong b /* 0x8049f44 */;\n", "int", "long"},
      {junk + "8049f40\n", junk + "int a /* 0x8049f40 */;\n", "int", "-"},
      {"8049f40\n", "int a /* 0x8049f40 */;\r\n", "-", "-"},
      {"8049f40\n", std::string(2000, 't') + " a /* 0x8049f40 */;\n", "", "-"},
      {"", "", "-", "-"},
  };
  for (const auto& c : cases) {
    const TempDir directory;
    writeFile(directory / "objdump.1", c.obj1);
    writeFile(directory / "objdump.txt", c.objtxt);
    IndexTable table('w', (directory / "vifa.dat").c_str());
    EXPECT_EQ(fillIndex(directory.path(), table), "");
    EXPECT_TRUE(table.Check());
    for (const auto& [address, type] : {std::pair("8049f40", c.found), std::pair("8049f44", c.second)}) {
      KeyFieldType wanted;
      std::strcpy(wanted, key(address).c_str());
      ItemType item;
      EXPECT_EQ(table.Retrieve(wanted, item) ? item.DataField.getDataType() : "-", type) << c.obj1 << c.objtxt;
    }
  }
}
