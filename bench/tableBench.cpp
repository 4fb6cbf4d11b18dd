// Times the disk table and the index build against their bare limits.
// usage: tableBench <items> <directory>
// Prints, tab-separated: measurement, seconds, seconds of the bare limit, ratio.
#include <fcntl.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>

#include "childProcess.h"
#include "io.h"
#include "objRead.h"

namespace {

constexpr std::size_t recordSize = sizeof(NodeType<ItemType>);

double secondsOf(const std::function<void()>& work) {
  const Deadline start = Clock::now();
  work();
  return std::chrono::duration<double>(Clock::now() - start).count();
}

void print(const char* what, double seconds, double bare) {
  std::printf("%s\t%.3f\t%.3f\t%.2f\n", what, seconds, bare, seconds / bare);
}

ItemType item(int number) {
  ItemType made;
  std::snprintf(made.KeyField, sizeof made.KeyField, "%-50x", 0x400000 + 16 * number);
  made.DataField.setDataType("static unsigned int *");
  made.DataField.setVarName(("variable_" + std::to_string(number)).c_str());
  return made;
}

// Memory that belongs to this process alone, in KiB.
long privateMemory() {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with("RssAnon:")) return std::atol(line.c_str() + 8);
  }
  return -1;
}

// One whole-record write for each insert and one whole-record read for each lookup, in a file that grows as the
// table's does: by one node for five items.
void bareInputOutput(int items, const std::string& path) {
  const UniqueFd file = openFile(path.c_str(), O_RDWR | O_CREAT | O_TRUNC);
  const std::string record(recordSize, 'x');
  std::string buffer(recordSize, '\0');
  const auto offset = [](int i) { return static_cast<off_t>(1 + i / 5) * static_cast<off_t>(recordSize); };
  for (int i = 0; i < items; ++i) writeAt(file.get(), record.data(), recordSize, offset(i));
  for (int i = 0; i < items; ++i) readAt(file.get(), buffer.data(), recordSize, offset(i));
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  const int items = std::atoi(argv[1]);
  const std::string directory = argv[2];
  const std::string path = directory + "/vifa.dat";
  const auto fill = [&](IndexTable& table) {
    for (int i = 0; i < items; ++i) table.Insert(item(i));
  };

  const double bare = secondsOf([&] { bareInputOutput(items, path); });
  std::filesystem::remove(path);
  double inserts = 0;
  const double both = secondsOf([&] {
    const long before = privateMemory();
    IndexTable table('w', path.c_str());
    inserts = secondsOf([&] { fill(table); });
    ItemType found;
    for (int i = 0; i < items; ++i) {
      if (!table.Retrieve(item(i).KeyField, found)) std::abort();
    }
    std::fprintf(stderr, "memory of the table: %ld KiB\n", privateMemory() - before);
  });
  print("inserts and lookups", both, bare);
  std::filesystem::remove(path);

  std::ofstream list(directory + "/objdump.1");
  std::ofstream text(directory + "/objdump.txt");
  for (int i = 0; i < items; ++i) {
    list << std::hex << 0x400000 + 16 * i << std::dec << " 8 variable_" << i << "\n";
    text << "static unsigned int *variable_" << i << " /* 0x" << std::hex << 0x400000 + 16 * i << std::dec << " */;\n";
  }
  list.close();
  text.close();
  const double build = secondsOf([&] {
    IndexTable table('w', path.c_str());
    fillIndex(directory, table);
  });
  print("index build", build, inserts);
  std::filesystem::remove(path);
}
