#include "tools/kvlocal/ChildProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <utility>

namespace kvlocal {
namespace {

constexpr int kPatienceMilliseconds = 5000;

using Pipe = std::array<int, 2>;

void closeIfOpen(int descriptor) {
  if (descriptor >= 0) close(descriptor);
}

std::string_view nameOf(std::string_view variable) {
  return variable.substr(0, variable.find('='));
}

// This process's environment with other values for some variables.
std::vector<char*> environmentWith(const std::vector<std::string>& variables) {
  std::vector<char*> result;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const auto isSame = [entry](const std::string& other) {
      return nameOf(other) == nameOf(*entry);
    };
    if (std::ranges::none_of(variables, isSame)) result.push_back(*entry);
  }
  for (const std::string& variable : variables)
    result.push_back(const_cast<char*>(variable.c_str()));
  result.push_back(nullptr);
  return result;
}

std::vector<char*> pointersTo(const std::vector<std::string>& words) {
  std::vector<char*> pointers;
  pointers.reserve(words.size() + 1);
  for (const std::string& word : words) pointers.push_back(const_cast<char*>(word.c_str()));
  pointers.push_back(nullptr);
  return pointers;
}

// What the new process needs, made before there is one: after a fork hardly anything may be called.
struct Preparation {
  std::vector<char*> words;
  std::vector<char*> environment;
  int input = -1;
  int output = -1;
  int fault = -1;  // takes the number of the error with which starting failed
  pid_t parent = 0;
};

void takeSignalsBack() {
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  ::signal(SIGPIPE, SIG_DFL);
}

[[noreturn]] void becomeProgram(const Preparation& preparation) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (getppid() != preparation.parent) _exit(EXIT_FAILURE);  // it has died already
  takeSignalsBack();
  if (preparation.output >= 0) {
    setpgid(0, 0);
    dup2(preparation.input, STDIN_FILENO);
    dup2(preparation.output, STDOUT_FILENO);
    dup2(preparation.output, STDERR_FILENO);
  }
  execvpe(preparation.words.front(), preparation.words.data(), preparation.environment.data());
  const int error = errno;
  (void)!write(preparation.fault, &error, sizeof error);
  _exit(EXIT_FAILURE);
}

// Nothing comes when the program has begun: the pipe ends with that.
int errorFrom(int fault) {
  int error = 0;
  ssize_t count = 0;
  do {
    count = read(fault, &error, sizeof error);
  } while (count < 0 && errno == EINTR);
  return count == sizeof error ? error : 0;
}

// The C library's declaration is one of C++ functions, which it does not have.
int descriptorOf(pid_t process) {
  return static_cast<int>(syscall(SYS_pidfd_open, process, 0));
}

// A descriptor of the new process, or -1 and the error's number.
int forked(Preparation& preparation, int& error) {
  Pipe fault{-1, -1};
  if (pipe2(fault.data(), O_CLOEXEC) != 0) {
    error = errno;
    return -1;
  }
  preparation.fault = fault[1];
  preparation.parent = getpid();
  const pid_t process = fork();
  if (process == 0) becomeProgram(preparation);
  error = process < 0 ? errno : 0;
  close(fault[1]);
  if (process > 0) error = errorFrom(fault[0]);
  close(fault[0]);
  const int descriptor = error == 0 ? descriptorOf(process) : -1;
  if (error == 0 && descriptor < 0) {
    error = errno;
    kill(process, SIGKILL);
  }
  if (descriptor < 0 && process > 0) waitpid(process, nullptr, 0);
  return descriptor;
}

bool waitForEnd(int process, int milliseconds) {
  pollfd ended{process, POLLIN, 0};
  int count = 0;
  do {
    count = poll(&ended, 1, milliseconds);
  } while (count < 0 && errno == EINTR);
  return count > 0;
}

int statusOf(const siginfo_t& end) {
  return end.si_code == CLD_EXITED ? end.si_status : 128 + end.si_status;
}

}  // namespace

std::unique_ptr<ChildProcess> ChildProcess::start(const ProgramStart& start,
                                                  std::shared_ptr<Rendezvous> rendezvous,
                                                  int& error) {
  Preparation preparation;
  preparation.words = pointersTo(start.words);
  preparation.environment = environmentWith(start.variables);
  Pipe output{-1, -1};
  if (start.onLine) {
    preparation.input = open("/dev/null", O_RDONLY | O_CLOEXEC);
    if (preparation.input < 0 || pipe2(output.data(), O_CLOEXEC) != 0) {
      error = errno;
      closeIfOpen(preparation.input);
      return nullptr;
    }
    fcntl(output[0], F_SETFL, O_NONBLOCK);
    preparation.output = output[1];
  }
  const int process = forked(preparation, error);
  closeIfOpen(preparation.input);
  closeIfOpen(output[1]);
  if (process < 0) {
    closeIfOpen(output[0]);
    return nullptr;
  }
  return std::unique_ptr<ChildProcess>(
      new ChildProcess(process, output[0], start.onLine, std::move(rendezvous)));
}

ChildProcess::ChildProcess(int process, int output,
                           std::function<void(std::string_view line)> onLine,
                           std::shared_ptr<Rendezvous> rendezvous)
    : process_(process),
      output_(output),
      onLine_(std::move(onLine)),
      rendezvous_(std::move(rendezvous)),
      thread_([this] { watch(); }) {}

ChildProcess::~ChildProcess() {
  signal(SIGTERM);
  if (!waitForEnd(process_, kPatienceMilliseconds)) signal(SIGKILL);
  thread_.join();
  closeIfOpen(output_);
  close(process_);
}

void ChildProcess::signal(int number) const {
  syscall(SYS_pidfd_send_signal, process_, number, nullptr, 0);
}

// A process of its own may hold the output open for longer, so its end is not the end.
void ChildProcess::watch() {
  std::array<pollfd, 2> events{pollfd{process_, POLLIN, 0}, pollfd{output_, POLLIN, 0}};
  while (events[0].revents == 0) {
    if (poll(events.data(), events.size(), -1) < 0) continue;
    if (events[1].revents != 0) readOutput();
    events[1].fd = output_;
  }
  if (output_ >= 0) readOutput();
  siginfo_t end{};
  waitid(P_PIDFD, static_cast<id_t>(process_), &end, WEXITED);
  rendezvous_->change([&] { status_ = statusOf(end); });
}

void ChildProcess::readOutput() {
  std::array<char, 4096> block{};
  ssize_t count = 0;
  while ((count = read(output_, block.data(), block.size())) > 0) {
    line_.append(block.data(), static_cast<std::size_t>(count));
    for (auto end = line_.find('\n'); end != std::string::npos; end = line_.find('\n')) {
      onLine_(std::string_view(line_).substr(0, end));
      line_.erase(0, end + 1);
    }
  }
  if (count == 0) close(std::exchange(output_, -1));  // else poll would tell of its end for ever
}

}  // namespace kvlocal
