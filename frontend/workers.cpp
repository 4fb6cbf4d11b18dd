#include "frontend/workers.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <list>
#include <new>

#include "frontend/inputs.h"
#include "frontend/output.h"
#include "frontend/packed.h"
#include "src/forkedProcess.h"
#include "src/io.h"
#include "src/userError.h"

namespace {

// A worker's answer: one of these marks, the size of the content, and the content: inventories or an error message.
constexpr char resultMark = 'R';
constexpr char errorMark = 'E';
constexpr std::size_t headerSize = 1 + sizeof(std::uint64_t);

struct Answer {
  char mark;
  std::string content;
};

Answer answerFor(const std::string& path, const ReadOptions& options) try {
  return {resultMark, packInventories(readInput(path, options))};
} catch (const std::bad_alloc&) {
  return {errorMark, path + ": not enough memory to read it"};
} catch (const UserError& error) {
  return {errorMark, error.what()};
} catch (const std::exception& error) {
  return {errorMark, path + ": " + error.what()};
}

// Runs in the worker. Returns its exit status.
int work(const std::string& path, const ReadOptions& options, UniqueFd out) {
  const Answer answer = answerFor(path, options);
  const std::uint64_t size = answer.content.size();
  std::string header(1, answer.mark);
  header.append(reinterpret_cast<const char*>(&size), sizeof size);
  return writeAll(out.get(), header) && writeAll(out.get(), answer.content) ? 0 : 1;
}

// The size in bytes to reserve for the answer that starts with `begin`.
std::size_t answerSize(std::string_view begin) {
  constexpr std::uint64_t most = std::uint64_t{1} << 30;  // in case a failing worker sends a wrong size
  std::uint64_t size = 0;
  if (begin.size() >= headerSize) std::memcpy(&size, begin.data() + 1, sizeof size);
  return headerSize + std::min(size, most);
}

// Why a worker failed, by its wait status.
std::string reasonOf(int status) {
  if (!WIFSIGNALED(status)) return "the process reading it exited with status " + std::to_string(WEXITSTATUS(status));
  const int number = WTERMSIG(status);
  std::string reason =
      "the process reading it was killed by signal " + std::to_string(number) + " (" + strsignal(number) + ")";
  if (number == SIGKILL) return reason + "; there may not be enough memory";
  return reason + "; the debugging information may be damaged";
}

// The result in the complete answer of a worker.
InputResult resultOf(const std::string& path, std::string answer) try {
  InputResult result;
  if (answer.size() < headerSize) {
    result.error = path + ": the result of reading it is incomplete";
  } else if (answer[0] == errorMark) {
    result.error = answer.substr(headerSize);
  } else {
    result.bytes = std::make_unique<const std::string>(std::move(answer));
    result.programs = unpackInventories(std::string_view(*result.bytes).substr(headerSize));
  }
  return result;
} catch (const UserError& error) {
  return {{}, path + ": " + error.what(), nullptr};
}

void printMessages(const InputResult& result) {
  if (!result.error.empty()) printMessage(result.error);
  for (const Inventory& program : result.programs) {
    for (const std::string& warning : program.warnings) {
      printMessage(program.executable + ": warning: " + warning);
    }
  }
}

// A process that reads an input, and the part of its answer received so far.
struct Worker {
  std::size_t number;  // of the input
  UniqueFd from;
  ForkedProcess process;
  std::string answer;
};

// Starts a worker for each input, as many at a time as allowed, and collects their results.
class Workers {
 public:
  Workers(const std::vector<std::string>& paths, const ReadOptions& options) : paths_(paths), options_(options) {
    const std::size_t jobs = std::max(1u, options.jobs);
    maxRunning_ = std::min(jobs, paths.size());
    if (maxRunning_ > 0) options_.jobs = static_cast<unsigned>(std::max<std::size_t>(1, jobs / maxRunning_));
    results_.inputs.resize(paths.size());
    finished_.resize(paths.size());
  }

  InputResults run() {
    while (started_ < paths_.size() || !running_.empty()) {
      while (started_ < paths_.size() && running_.size() < maxRunning_ && startNext()) continue;
      receive();
    }
    return std::move(results_);
  }

 private:
  // False when no process can be started now, but others are running, so that it can be tried again.
  bool startNext() {
    const std::size_t number = started_;
    Pipe pipe;
    ForkedProcess process;
    if (makePipe(pipe)) {
      // A larger pipe saves context switches, as results are large. If it cannot be enlarged, the usual size will do.
      constexpr int pipeSize = 1 << 20;
      fcntl(pipe.readEnd.get(), F_SETPIPE_SZ, pipeSize);
      process = ForkedProcess::start([&] {
        for (Worker& other : running_) other.from.reset();
        return work(paths_[number], options_, std::move(pipe.writeEnd));
      });
    }
    if (!process && !running_.empty()) return false;
    ++started_;
    if (process) {
      running_.push_back({number, std::move(pipe.readEnd), std::move(process), {}});
    } else {
      finish(number, {{}, paths_[number] + ": cannot start a process to read it: " + std::strerror(errno), nullptr});
    }
    return true;
  }

  // Waits until workers send something and receives it; finishes those that have sent everything.
  void receive() {
    if (running_.empty()) return;
    std::vector<pollfd> watched;
    for (const Worker& worker : running_) watched.push_back({worker.from.get(), POLLIN, 0});
    if (poll(watched.data(), watched.size(), -1) < 0) return;  // interrupted
    auto worker = running_.begin();
    for (const pollfd& descriptor : watched) {
      const auto current = worker++;
      if (descriptor.revents == 0 || receiveFrom(*current)) continue;
      const std::string& path = paths_[current->number];
      // Done before waiting, because the worker needs some time to exit.
      InputResult result = resultOf(path, std::move(current->answer));
      if (const int status = current->process.await(); status != 0) result = {{}, path + ": " + reasonOf(status), {}};
      finish(current->number, std::move(result));
      running_.erase(current);
    }
  }

  // False at the end of the answer.
  bool receiveFrom(Worker& worker) {
    const ssize_t count = readRetrying(worker.from.get(), block_.data(), block_.size());
    const bool isFirst = worker.answer.empty();
    if (count > 0) worker.answer.append(block_.data(), static_cast<std::size_t>(count));
    if (isFirst) worker.answer.reserve(answerSize(worker.answer));
    return count > 0;
  }

  // Prints messages in the order of the inputs, as soon as those of all earlier inputs have been printed.
  void finish(std::size_t number, InputResult result) {
    results_.inputs[number] = std::move(result);
    finished_[number] = true;
    for (; reported_ < finished_.size() && finished_[reported_]; ++reported_) printMessages(results_.inputs[reported_]);
  }

  const std::vector<std::string>& paths_;
  ReadOptions options_;
  std::size_t maxRunning_ = 1;
  std::size_t started_ = 0;
  std::list<Worker> running_;
  std::vector<char> block_ = std::vector<char>(std::size_t{256} * 1024);
  std::vector<bool> finished_;
  std::size_t reported_ = 0;
  InputResults results_;
};

}  // namespace

std::vector<const Inventory*> InputResults::programs() const {
  std::vector<const Inventory*> programs;
  for (const InputResult& input : inputs) {
    for (const Inventory& program : input.programs) programs.push_back(&program);
  }
  return programs;
}

bool InputResults::failed() const {
  return std::any_of(inputs.begin(), inputs.end(), [](const InputResult& input) { return !input.error.empty(); });
}

InputResults readInputs(const std::vector<std::string>& paths, const ReadOptions& options) {
  return Workers(paths, options).run();
}
