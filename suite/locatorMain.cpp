// The project's own program addr2line: like GNU addr2line for addresses of variables, but for the output of any
// compiler. Called by tolquin.exe as `addr2line -e <executable>`.
#include <cstdio>
#include <cstring>
#include <exception>

#include "src/processSetup.h"
#include "suite/locator.h"

int main(int argc, char** argv) {
  if (argc != 3 || std::strcmp(argv[1], "-e") != 0) {
    std::fprintf(stderr,
                 "usage: addr2line -e <executable>\n"
                 "Reads addresses of variables, one per line, and writes the file and line of each definition.\n");
    return 2;
  }
  setUpProcess();
  Inventory inventory;
  try {
    inventory = readInventory(argv[2], {});
  } catch (const std::exception& error) {
    // Every address still gets a reply, "??:0".
    std::fprintf(stderr, "addr2line: %s\n", error.what());
  }
  answerAddresses(Locator(inventory), stdin, stdout);
  return 0;
}
