// Measures the lower bound for a run, in which the program only asks addr2line for one address at a time, and the cost
// of starting and ending each session. Called by bench/run.sh.
//
// usage: exchangeBench exchange <program> < addresses   prints the seconds of the exchange
//        exchangeBench sessions <program>               prints the seconds of a session with addr2line, and with gdb
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <functional>
#include <string>

#include "a2lControl.h"
#include "gdbControl.h"

namespace {

double secondsOf(const std::function<void()>& work) {
  const Deadline start = Clock::now();
  work();
  return std::chrono::duration<double>(Clock::now() - start).count();
}

void bareExchange(const char* program) {
  int request[2];
  int answer[2];
  if (pipe(request) != 0 || pipe(answer) != 0) return;
  if (fork() == 0) {
    dup2(request[0], 0);
    dup2(answer[1], 1);
    for (const int end : {request[0], request[1], answer[0], answer[1]}) close(end);
    execlp("addr2line", "addr2line", "-e", program, nullptr);
    _exit(255);
  }
  char line[4096];
  while (std::fgets(line, sizeof line, stdin) != nullptr) {
    if (write(request[1], line, std::strlen(line)) < 0) return;
    ssize_t count = 0;
    do count = read(answer[0], line, sizeof line);
    while (count > 0 && line[count - 1] != '\n');
  }
  close(request[1]);
  wait(nullptr);
}

void sessions(const char* program) {
  A2LControl locator(program);
  const double locatorSeconds = secondsOf([&] { locator.startA2L(), locator.endA2L(); });
  GDBControl debugger(program);
  debugger.startGDB();  // finds out which options this gdb supports
  debugger.endGDB();
  const double debuggerSeconds = secondsOf([&] { debugger.startGDB(), debugger.endGDB(); });
  std::printf("%.4f %.4f\n", locatorSeconds, debuggerSeconds);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  if (std::strcmp(argv[1], "sessions") == 0) {
    sessions(argv[2]);
  } else {
    std::printf("%.3f\n", secondsOf([&] { bareExchange(argv[2]); }));
  }
}
