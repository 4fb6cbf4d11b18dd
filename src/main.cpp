// The entry point of tolquin.exe: checks the command line and calls the main loop.
#include <sys/prctl.h>

#include <cstdlib>
#include <string>

#include "processSetup.h"
#include "tolquin.h"

int main(int argc, char** argv) {
  setUpProcess();
  // Timeouts are as short as 100 microseconds; the default timer slack would make them half as long again.
  prctl(PR_SET_TIMERSLACK, 1UL);
  if (argc != 3 || argv[1][0] == '\0') {
    tolquin_usage();
    err_exit(880, "Improper number of arguments");
  }
  const char* level = std::getenv("DEBUG_ERR");
  debug_err = level != nullptr ? std::atoi(level) : 0;
  std::string dirname = argv[1];
  if (dirname.back() != '/') dirname += '/';
  process_objdump1(dirname.c_str(), argv[2]);
  return 0;
}
