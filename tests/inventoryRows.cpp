// Prints the inventory of a program for comparison with other tools: one variable per line, fields separated by tabs,
// "null" if unknown. Warnings go to standard error.
// usage: inventoryRows PROGRAM [--artificial] [-jN] [--share]
// --share: share even a small program among processes
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>

#include "debuginfo/inventory.h"

namespace {

std::string text(std::string_view value) { return value.empty() ? "null" : std::string(value); }
std::string text(std::optional<std::uint64_t> value) { return value ? std::to_string(*value) : "null"; }
std::string text(std::optional<bool> value) { return value ? *value ? "true" : "false" : "null"; }
std::string text(std::optional<Linkage> value) {
  constexpr const char* names[] = {"external", "internal", "function"};
  return value ? names[static_cast<int>(*value)] : "null";
}

std::string path(const Inventory& inventory, std::string_view file) {
  const bool within = !file.empty() && file.front() != '/' && !inventory.directory.empty();
  return text(within ? inventory.directory + "/" + std::string(file) : std::string(file));
}

void write(const Inventory& inventory) {
  for (const Variable& each : inventory.variables) {
    std::string row = text(each.name) + "\t" + text(each.type) + "\t" + text(each.size) + "\t" + text(each.section) +
                      "\t" + text(each.writable) + "\t" + text(each.threadLocal) + "\t" + text(each.linkage) + "\t" +
                      path(inventory, each.file) + "\t" + std::to_string(each.line) + "\t" + text(each.address) + "\t" +
                      (each.namedIncomplete ? "incomplete" : text(each.namedSize));
    std::puts(row.c_str());
  }
}

}  // namespace

int main(int argc, char** argv) {
  ReadOptions options;
  for (int i = 2; i < argc; ++i) {
    const std::string argument = argv[i];
    options.artificial = options.artificial || argument == "--artificial";
    if (argument == "--share") options.bytesOfProcess = 1;
    if (argument.starts_with("-j")) options.jobs = static_cast<unsigned>(std::atoi(&argument[2]));
  }
  try {
    const Inventory inventory = readInventory(argc > 1 ? argv[1] : "", options);
    write(inventory);
    for (const std::string& warning : inventory.warnings) std::fprintf(stderr, "warning: %s\n", warning.c_str());
  } catch (const std::exception& error) {
    std::fprintf(stderr, "error: %s\n", error.what());
    return 1;
  }
  return 0;
}
