// The disk B-tree: its file byte for byte, its lookups compared with a map, damaged files and full disks.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <map>
#include <numeric>
#include <random>

#include "objRead.h"
#include "support.h"

namespace {

constexpr std::size_t recordSize = 28116;

ItemType item(int number) {
  ItemType made;
  std::snprintf(made.KeyField, sizeof made.KeyField, "%-50x", number);
  made.DataField.setDataType(("type " + std::to_string(number)).c_str());
  made.DataField.setVarName(("name " + std::to_string(number)).c_str());
  return made;
}

bool holds(IndexTable& table, int number) {
  ItemType found = item(-1);
  const bool present = table.Retrieve(item(number).KeyField, found);
  const ItemType expected = item(present ? number : -1);
  EXPECT_EQ(std::memcmp(&found, &expected, sizeof found), 0) << number;
  return present;
}

std::vector<int> ascending(int count) {
  std::vector<int> numbers(static_cast<std::size_t>(count));
  std::iota(numbers.begin(), numbers.end(), 1000);
  return numbers;
}

// A record of the file: the number of items, the items, three bytes, the branches. All other bytes are zero.
std::string record(const std::vector<int>& numbers, const std::vector<std::int32_t>& branches) {
  std::string bytes(recordSize, '\0');
  bytes[0] = static_cast<char>(numbers.size());
  for (std::size_t i = 0; i < numbers.size(); ++i) {
    const ItemType one = item(numbers[i]);
    std::memcpy(&bytes[4 + 2551 * i], one.KeyField, 51);
    std::strcpy(&bytes[4 + 2551 * i + 51], one.DataField.getDataType());
    std::strcpy(&bytes[4 + 2551 * i + 51 + 2000], one.DataField.getVarName());
  }
  std::memcpy(&bytes[28068], branches.data(), 4 * branches.size());
  return bytes;
}

std::string leaf(const std::vector<int>& numbers) {
  return record(numbers, std::vector<std::int32_t>(numbers.size() + 1, -1));
}

// The file after the items 1 to 12 were inserted in this order.
const std::string twelve =
    record({}, {12, 3, 3}) + leaf({1, 2, 3, 4, 5}) + leaf({7, 8, 9, 10, 11, 12}) + record({6}, {1, 2});

}  // namespace

TEST(Table, FileLayoutStepByStep) {
  const TempDir directory;
  const std::string path = directory / "vifa.dat";
  {
    const std::string unfinished = record({}, {0, 0, -1});
    IndexTable table('w', path.c_str());
    EXPECT_FALSE(holds(table, 1));
    EXPECT_TRUE(readFile(path) == unfinished);
    for (int number = 1; number <= 11; ++number) EXPECT_TRUE(table.Insert(item(number)));
    table.Flush();
    EXPECT_TRUE(readFile(path) == unfinished + leaf({1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11}));
    EXPECT_TRUE(table.Insert(item(12)));
    table.Flush();
    EXPECT_TRUE(readFile(path).starts_with(unfinished)) << "the header is completed only at the end";
  }
  EXPECT_TRUE(readFile(path) == twelve);
  IndexTable table('r', path.c_str());
  EXPECT_TRUE(table.Check());
  testing::internal::CaptureStderr();
  table.Dump();
  EXPECT_EQ(splitAt(testing::internal::GetCapturedStderr(), '\n').size(), 12u);
}

TEST(Table, AnswersLikeAMapInEveryOrder) {
  const TempDir directory;
  std::mt19937 random(1);
  std::vector<std::vector<int>> orders(4, ascending(1500));
  std::reverse(orders[1].begin(), orders[1].end());
  for (std::size_t i = 2; i < orders.size(); ++i) std::shuffle(orders[i].begin(), orders[i].end(), random);
  for (const std::vector<int>& order : orders) {
    std::map<int, bool> present;
    {
      IndexTable table('w', (directory / "t").c_str());
      for (std::size_t i = 0; i < order.size(); ++i) {
        const int number = i % 7 == 6 ? order[i / 2] : order[i];
        EXPECT_EQ(table.Insert(item(number)), !present[number]);
        present[number] = true;
        ASSERT_TRUE(i % 97 != 0 || table.Check());
        EXPECT_EQ(holds(table, order[i / 3]), present[order[i / 3]]);
      }
    }
    IndexTable table('r', (directory / "t").c_str());
    ASSERT_TRUE(table.Check());
    for (const int number : order) EXPECT_EQ(holds(table, number), present[number]);
  }
}

TEST(Table, EmptyKeyIsTheFirst) {
  const TempDir directory;
  IndexTable table('w', (directory / "t").c_str());
  EXPECT_TRUE(table.Insert({}) && table.Insert(item(1)));
  EXPECT_TRUE(table.Check());
}

TEST(Table, FilesThatCannotBeUsed) {
  const TempDir directory;
  EXPECT_EXIT(IndexTable('x', "t"), testing::ExitedWithCode(1), "Incorrect mode given to BTTableClass constructor");
  EXPECT_EXIT(IndexTable('r', "/none"), testing::ExitedWithCode(1), "File cannot be opened");
  writeFile(directory / "short", std::string(recordSize - 1, '\0'));
  EXPECT_TRUE(IndexTable('r', (directory / "short").c_str()).Empty());

  const auto fillUpTo = [&](rlim_t records) {
    signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{records * recordSize + 5, RLIM_INFINITY};
    setrlimit(RLIMIT_FSIZE, &limit);
    static IndexTable table('w', (directory / "limited").c_str());  // destroyed when the process exits
    for (const int number : ascending(1000)) table.Insert(item(number));
  };
  EXPECT_EXIT(fillUpTo(30), testing::ExitedWithCode(1), "limited: node 3[0-9]: cannot be written: File too large");
  EXPECT_TRUE(IndexTable('r', (directory / "limited").c_str()).Empty()) << "a table that failed must not look complete";
}

// A table whose branches lead back to its root, one with an unterminated text, and a truncated one: the lookup ends
// with a message that names the file and the node. (The fuzzer covers random damage.)
TEST(Table, DamageIsReported) {
  const TempDir directory;
  const std::string path = directory / "t";
  const std::string cyclic = twelve.substr(0, 3 * recordSize) + record({6}, {3, 3});
  std::string endless = twelve;
  std::memset(&endless[3 * recordSize + 4 + 51], 'x', 2000);
  for (const std::string& bytes : {cyclic, endless, twelve.substr(0, 3 * recordSize + 100)}) {
    writeFile(path, bytes);
    ItemType found;
    EXPECT_EXIT(IndexTable('r', path.c_str()).Retrieve(item(5).KeyField, found), testing::ExitedWithCode(1),
                "t: node [0-9]+: (damaged|unexpected end of file)");
    testing::internal::CaptureStderr();
    EXPECT_FALSE(IndexTable('r', path.c_str()).Check());
    EXPECT_TRUE(testing::internal::GetCapturedStderr().starts_with(path + ": node "));
  }
}
