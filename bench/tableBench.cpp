// Measures the disk table and the index build with 100,000 items, and their lower bounds. Called by bench/run.sh. Files
// are created in the directory that the environment variable BENCH_DIRECTORY names (default: the working directory).
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <malloc.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "io.h"
#include "objRead.h"

namespace {

constexpr int items = 100000;
constexpr std::size_t recordSize = sizeof(NodeType<ItemType>);

std::string directory() {
  const char* chosen = std::getenv("BENCH_DIRECTORY");
  return chosen != nullptr ? chosen : ".";
}

std::string tablePath() { return directory() + "/vifa.dat"; }

int address(int number) { return 0x400000 + 16 * number; }

ItemType item(int number) {
  ItemType made;
  std::snprintf(made.KeyField, sizeof made.KeyField, "%-50x", static_cast<unsigned>(address(number)));
  made.DataField.setDataType("static unsigned int *");
  made.DataField.setVarName(("variable_" + std::to_string(number)).c_str());
  return made;
}

// Private memory of this process, in KiB.
double privateMemory() {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with("RssAnon:")) return std::atof(line.c_str() + 8);
  }
  return -1;
}

void insertAll(IndexTable& table) {
  for (int i = 0; i < items; ++i) table.Insert(item(i));
}

void inserts(benchmark::State& state) {
  state.counters["KiB"] = 0;  // the CSV output needs the same counters in all benchmarks
  for (auto _ : state) {
    IndexTable table('w', tablePath().c_str());
    insertAll(table);
  }
  std::filesystem::remove(tablePath());
}

void insertsAndLookups(benchmark::State& state) {
  for (auto _ : state) {
    malloc_trim(0);  // or memory freed by an earlier table would be reused
    const double before = privateMemory();
    IndexTable table('w', tablePath().c_str());
    insertAll(table);
    ItemType found;
    for (int i = 0; i < items; ++i) {
      if (!table.Retrieve(item(i).KeyField, found)) state.SkipWithError("an item is missing");
    }
    state.counters["KiB"] = privateMemory() - before;
  }
  std::filesystem::remove(tablePath());
}

// Writes each record of the table's file once.
void bareWrites(benchmark::State& state) {
  state.counters["KiB"] = 0;
  {
    IndexTable table('w', tablePath().c_str());
    insertAll(table);
  }
  const auto records = static_cast<off_t>(std::filesystem::file_size(tablePath()) / recordSize);
  const std::string record(recordSize, 'x');
  for (auto _ : state) {
    const UniqueFd file = openFile(tablePath().c_str(), O_RDWR | O_CREAT | O_TRUNC);
    for (off_t i = 0; i < records; ++i)
      writeAt(file.get(), record.data(), recordSize, i * static_cast<off_t>(recordSize));
  }
  std::filesystem::remove(tablePath());
}

void indexBuild(benchmark::State& state) {
  state.counters["KiB"] = 0;
  {
    std::ofstream list(directory() + "/objdump.1");
    std::ofstream text(directory() + "/objdump.txt");
    list << std::hex;
    for (int i = 0; i < items; ++i) {
      list << address(i) << " 8 variable\n";
      text << "static unsigned int *variable_" << std::dec << i << " /* 0x" << std::hex << address(i) << " */;\n";
    }
  }
  for (auto _ : state) {
    IndexTable table('w', tablePath().c_str());
    fillIndex(directory(), table);
  }
  std::filesystem::remove(tablePath());
}

}  // namespace

BENCHMARK(bareWrites)->UseRealTime()->Unit(benchmark::kSecond)->Iterations(1);
BENCHMARK(insertsAndLookups)->UseRealTime()->Unit(benchmark::kSecond)->Iterations(1);
BENCHMARK(inserts)->UseRealTime()->Unit(benchmark::kSecond)->Iterations(1);
BENCHMARK(indexBuild)->UseRealTime()->Unit(benchmark::kSecond)->Iterations(1);

BENCHMARK_MAIN();
