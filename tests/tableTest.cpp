// The disk B-tree: its file byte for byte, its answers against a map, and what it does about damage and full disks.
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
#include "tolquin.h"

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

std::int32_t word(const std::string& bytes, std::size_t record, std::size_t offset) {
  std::int32_t value = 0;
  std::memcpy(&value, bytes.data() + record * recordSize + offset, sizeof value);
  return value;
}

// Branch[j] of a record; in record 0: 0 number of items, 1 number of nodes, 2 root.
std::int32_t branch(const std::string& bytes, std::size_t record, std::size_t j) {
  return word(bytes, record, 28068 + 4 * j);
}

std::string keys(const std::string& bytes, std::size_t record) {
  std::string text;
  for (int i = 0; i < word(bytes, record, 0); ++i) {
    const char* at = bytes.data() + record * recordSize + 4 + 2551 * static_cast<std::size_t>(i);
    text += std::string(at, std::strcspn(at, " ")) + " ";
  }
  return text;
}

}  // namespace

TEST(Table, FileLayoutStepByStep) {
  const TempDir directory;
  const std::string path = directory / "vifa.dat";
  {
    IndexTable table('w', path.c_str());
    EXPECT_FALSE(holds(table, 1));
    EXPECT_EQ(readFile(path).size(), recordSize);
    for (int number = 1; number <= 11; ++number) EXPECT_TRUE(table.Insert(item(number)));
    std::string bytes = readFile(path);
    ASSERT_EQ(bytes.size(), 2 * recordSize);
    EXPECT_EQ(keys(bytes, 1), "1 2 3 4 5 6 7 8 9 a b ");
    EXPECT_EQ(branch(bytes, 1, 11), -1);
    EXPECT_TRUE(table.Insert(item(12)));
    EXPECT_EQ(branch(readFile(path), 0, 2), -1) << "the header is completed at the end only";
  }
  const std::string bytes = readFile(path);
  ASSERT_EQ(bytes.size(), 4 * recordSize);
  EXPECT_EQ(keys(bytes, 1), "1 2 3 4 5 ");
  EXPECT_EQ(keys(bytes, 2), "7 8 9 a b c ");
  EXPECT_EQ(keys(bytes, 3), "6 ");
  EXPECT_EQ(branch(bytes, 3, 0), 1);
  EXPECT_EQ(branch(bytes, 3, 1), 2);
  EXPECT_EQ(branch(bytes, 0, 0), 12);
  EXPECT_EQ(branch(bytes, 0, 1), 3);
  EXPECT_EQ(branch(bytes, 0, 2), 3);
  const std::size_t firstItem = recordSize + 4;
  EXPECT_EQ(std::memcmp(&bytes[firstItem], item(1).KeyField, 51), 0);
  EXPECT_STREQ(&bytes[firstItem + 51], "type 1");
  EXPECT_STREQ(&bytes[firstItem + 51 + 2000], "name 1");
  // What carries no information is zeros: the header but its numbers, unused items, unused branches, padding.
  const auto zeros = [&](std::size_t from, std::size_t to) { return bytes.find_first_not_of('\0', from) >= to; };
  EXPECT_TRUE(zeros(0, 28068) && zeros(28080, recordSize));
  EXPECT_TRUE(zeros(firstItem + 5 * 2551, recordSize + 28068) && zeros(recordSize + 28068 + 6 * 4, 2 * recordSize));
  IndexTable table('r', path.c_str());
  EXPECT_TRUE(table.Check());
  testing::internal::CaptureStderr();
  table.Dump();
  EXPECT_EQ(splitAt(testing::internal::GetCapturedStderr(), '\n').size(), 12u);
}

TEST(Table, AnswersLikeAMapForEveryOrder) {
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
    static IndexTable table('w', (directory / "limited").c_str());  // whose end belongs to that of the process
    for (const int number : ascending(1000)) table.Insert(item(number));
  };
  EXPECT_EXIT(fillUpTo(30), testing::ExitedWithCode(1), "limited: node 30: cannot be written: File too large");
  EXPECT_TRUE(IndexTable('r', (directory / "limited").c_str()).Empty()) << "a table that failed must not look finished";
}

// A table whose branches lead back to its root, one with a text without an end, and one cut short: the lookup ends,
// with a message that names file and node. (Random damage is the fuzzer's.)
TEST(Table, DamageIsReported) {
  const TempDir directory;
  const std::string path = directory / "t";
  {
    IndexTable table('w', path.c_str());
    for (const int number : ascending(300)) table.Insert(item(number));
  }
  const std::string good = readFile(path);
  std::string circle = good;
  const std::size_t root = static_cast<std::size_t>(branch(good, 0, 2));
  for (std::size_t j = 0; j < 12; ++j) std::memcpy(&circle[root * recordSize + 28068 + 4 * j], &good[28076], 4);
  std::string endless = good;
  for (std::size_t record = 1; record < good.size() / recordSize; ++record) {
    std::memset(&endless[record * recordSize + 4 + 51], 'x', 2000);
  }
  for (const std::string& bytes : {circle, endless, good.substr(0, root * recordSize + 100)}) {
    writeFile(path, bytes);
    ItemType found;
    EXPECT_EXIT(IndexTable('r', path.c_str()).Retrieve(item(5).KeyField, found), testing::ExitedWithCode(1),
                "t: node [0-9]+: (damaged|cannot be read whole)");
    testing::internal::CaptureStderr();
    EXPECT_FALSE(IndexTable('r', path.c_str()).Check());
    EXPECT_TRUE(testing::internal::GetCapturedStderr().starts_with(path + ": node "));
  }
}
