// Stands in for addr2line or gdb on the search path. It carries out the script in the environment variable
// FAKE_<NAME IT WAS CALLED BY>, one command a line; at the end of the script it exits with status 0:
//   read            wait for one line of input (its text is $ in what is said later); exit when there is none
//   say TEXT        write TEXT to standard output; \n, \t, \0 and \\ are escapes, $ is the last line read
//   err TEXT        the same to standard error
//   times N TEXT    the same N times to standard output
//   pause           let a moment pass that ends a piece of text
//   fds | args      write the numbers of the open descriptors, or the arguments, as a line
//   refuse OPTION   with OPTION among the arguments: complain like a program that does not know it, and exit
//   until TEXT      exit when the last line read is TEXT
//   exists FILE     exit when there is such a file
//   heir            leave a process behind that holds the pipes until its input ends, and go on
//   log FILE        append $ to FILE
//   close           close standard output and standard error
//   hang            never do anything again
//   die             end by SIGKILL
//   chaos SEED      answer each line by "line.c:7", or in pieces, late, with noise, several lines, or with "??:0", by a
//                   random sequence
//   repeat          go on from the first command after the last `loop`
//   loop            mark for `repeat`
#include <dirent.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace {

std::string lastLine;

void write(int fd, const std::string& text) {
  for (std::size_t done = 0; done < text.size();) {
    const ssize_t count = ::write(fd, text.data() + done, text.size() - done);
    if (count <= 0) std::_Exit(3);
    done += static_cast<std::size_t>(count);
  }
}

std::string expanded(const std::string& text) {
  std::string result;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '$') {
      result += lastLine;
    } else if (text[i] == '\\' && i + 1 < text.size()) {
      const char escaped = text[++i];
      result += escaped == 'n' ? '\n' : escaped == 't' ? '\t' : escaped == '0' ? '\0' : escaped;
    } else {
      result += text[i];
    }
  }
  return result;
}

void readLine() {
  lastLine.clear();
  for (char c = 0; c != '\n';) {
    if (::read(STDIN_FILENO, &c, 1) != 1) std::_Exit(0);
    if (c != '\n') lastLine += c;
  }
}

std::string openDescriptors() {
  std::vector<int> numbers;
  DIR* directory = opendir("/proc/self/fd");
  while (const dirent* entry = readdir(directory)) {
    const int number = std::atoi(entry->d_name);
    if (entry->d_name[0] != '.' && number != dirfd(directory)) numbers.push_back(number);
  }
  closedir(directory);
  std::sort(numbers.begin(), numbers.end());
  std::string text;
  for (const int number : numbers) text += std::to_string(number) + " ";
  return text + "\n";
}

void leaveHeir() {
  if (fork() != 0) return;
  pollfd input{STDIN_FILENO, 0, 0};
  poll(&input, 1, -1);
  std::_Exit(0);
}

[[noreturn]] void makeChaos(unsigned seed) {
  std::mt19937 random(seed);
  while (true) {
    readLine();
    const std::string answer = lastLine + ".c:7\n";
    const std::size_t middle = random() % answer.size();
    switch (random() % 2000) {
      case 0:
        usleep(3000);
        break;
      case 1:
        write(STDOUT_FILENO, answer.substr(0, middle)), usleep(500), write(STDOUT_FILENO, answer.substr(middle));
        continue;
      case 2:
        write(STDERR_FILENO, "addr2line: trouble: 7\n");
        break;
      case 3:
        write(STDERR_FILENO, "BFD: part"), write(STDERR_FILENO, "ly: 8\n");
        break;
      case 4:
        write(STDOUT_FILENO, answer + "other.c:9\n");
        continue;
      case 5:
        write(STDOUT_FILENO, "??:0\n");
        continue;
      case 6:
        write(STDOUT_FILENO, ":?\n");
        continue;
      case 7:
        write(STDOUT_FILENO, std::string(20000, 'n') + "\n");
        break;
      default:
        break;
    }
    write(STDOUT_FILENO, answer);
  }
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> arguments(argv + 1, argv + argc);
  const char* slash = std::strrchr(argv[0], '/');
  const char* script = std::getenv((std::string("FAKE_") + (slash != nullptr ? slash + 1 : argv[0])).c_str());
  std::istringstream lines(script != nullptr ? script : "");
  std::vector<std::string> commands;
  for (std::string line; std::getline(lines, line);) commands.push_back(line);

  std::size_t at = 0;
  std::size_t loopStart = 0;
  std::string rest;
  const std::map<std::string, std::function<void()>> verbs{
      {"read", readLine},
      {"say", [&] { write(STDOUT_FILENO, expanded(rest)); }},
      {"err", [&] { write(STDERR_FILENO, expanded(rest)); }},
      {"times",
       [&] {
         const std::string text = expanded(rest.substr(rest.find(' ') + 1));
         for (int n = std::atoi(rest.c_str()); n > 0; --n) write(STDOUT_FILENO, text);
       }},
      {"pause", [] { usleep(5000); }},
      {"fds", [] { write(STDOUT_FILENO, openDescriptors()); }},
      {"args",
       [&] {
         std::string text;
         for (const std::string& argument : arguments) text += "[" + argument + "]";
         write(STDOUT_FILENO, text + "\n");
       }},
      {"refuse",
       [&] {
         if (std::find(arguments.begin(), arguments.end(), rest) == arguments.end()) return;
         write(STDERR_FILENO, "fake: unrecognized option '" + rest + "'\n");
         std::_Exit(1);
       }},
      {"until",
       [&] {
         if (lastLine == rest) std::_Exit(0);
       }},
      {"exists",
       [&] {
         if (access(rest.c_str(), F_OK) == 0) std::_Exit(0);
       }},
      {"heir", leaveHeir},
      {"log", [&] { std::ofstream(rest, std::ios::app) << lastLine << std::endl; }},
      {"close", [] { close(STDOUT_FILENO), close(STDERR_FILENO); }},
      {"hang",
       [] {
         while (true) pause();
       }},
      {"die", [] { raise(SIGKILL); }},
      {"chaos", [&] { makeChaos(static_cast<unsigned>(std::atoi(rest.c_str()))); }},
      {"repeat", [&] { at = loopStart; }},
      {"loop", [&] { loopStart = at; }}};
  while (at < commands.size()) {
    const std::string& command = commands[at++];
    const std::size_t blank = command.find(' ');
    rest = blank == std::string::npos ? "" : command.substr(blank + 1);
    const auto verb = verbs.find(command.substr(0, blank));
    if (verb == verbs.end()) return 4;
    verb->second();
  }
  return 0;
}
