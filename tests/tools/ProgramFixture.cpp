#include "tests/tools/ProgramFixture.h"

#include "tests/support/WaitUntil.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <iterator>
#include <utility>

namespace kvltest {
namespace {

constexpr auto kOutputFile = "output";
constexpr auto kErrorsFile = "errors";

int exitCodeOf(int status) {
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

}  // namespace

RunningProgram::RunningProgram(const std::function<ChildProcess(int output)>& start) {
  std::array<int, 2> ends{-1, -1};
  EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
  output_ = ends[0];
  process_ = start(ends[1]);
  close(ends[1]);
}

RunningProgram::~RunningProgram() {
  closeOutput();
}

bool RunningProgram::receive() {
  std::array<char, 65536> buffer{};
  const ssize_t count = read(output_, buffer.data(), buffer.size());
  if (count <= 0) return false;
  received_.append(buffer.data(), static_cast<std::size_t>(count));
  return true;
}

std::string RunningProgram::readUntil(const std::string& text) {
  std::size_t searched = 0;
  std::size_t found = received_.find(text);
  while (found == std::string::npos) {
    searched = received_.size() - std::min(received_.size(), text.size());
    if (!receive()) return std::exchange(received_, {});
    found = received_.find(text, searched);
  }
  std::string result = received_.substr(0, found + text.size());
  received_.erase(0, result.size());
  return result;
}

std::string RunningProgram::readLine() {
  std::string line = readUntil("\n");
  if (!line.empty() && line.back() == '\n') line.pop_back();
  return line;
}

std::string RunningProgram::readAll() {
  while (receive()) {
  }
  return std::exchange(received_, {});
}

bool RunningProgram::waitUntilBlocked() const {
  // Another writing end, open only now, so that the program's own end is seen otherwise.
  const int input =
      open(("/proc/self/fd/" + std::to_string(output_)).c_str(), O_WRONLY | O_CLOEXEC);
  EXPECT_GE(input, 0);
  const bool blocked = waitUntil([input] {
    pollfd room{input, POLLOUT, 0};
    return poll(&room, 1, 0) == 0;
  });
  close(input);
  return blocked;
}

void RunningProgram::closeOutput() {
  if (output_ >= 0) close(std::exchange(output_, -1));
}

bool RunningProgram::hasEnded() const {
  siginfo_t ended{};
  return waitid(P_PID, static_cast<id_t>(process_.id()), &ended, WEXITED | WNOHANG | WNOWAIT) ==
             0 &&
         ended.si_pid != 0;
}

int RunningProgram::wait() {
  return exitCodeOf(process_.wait());
}

std::int64_t memoryOf(const ChildProcess& process, const std::string& name) {
  std::ifstream file("/proc/" + std::to_string(process.id()) + "/status");
  for (std::string line; std::getline(file, line);)
    if (line.starts_with(name + ":")) return std::stoll(line.substr(name.size() + 1)) * 1024;
  ADD_FAILURE() << "no " << name;
  return 0;
}

void ProgramTest::useBus(const std::string& address) {
  environment.front() = "DBUS_SESSION_BUS_ADDRESS=" + address;
}

void ProgramTest::useLocale(const std::string& locale, const std::string& zone) {
  std::erase_if(environment, [](const std::string& variable) {
    return variable.starts_with("LC_ALL=") || variable.starts_with("LANGUAGE=") ||
           variable.starts_with("TZ=");
  });
  environment.insert(environment.end(), {"LC_ALL=" + locale, "LANGUAGE=", "TZ=" + zone});
}

Outcome ProgramTest::run(const Arguments& arguments) {
  Outcome outcome = runInto(directory.path() / kOutputFile, arguments);
  outcome.output = fileText(kOutputFile);
  return outcome;
}

Outcome ProgramTest::runInto(const std::string& path, const Arguments& arguments) {
  const int output = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  EXPECT_GE(output, 0);
  ChildProcess program = start(arguments, output);
  close(output);
  return {exitCodeOf(program.wait()), {}, errors()};
}

Outcome ProgramTest::runOn(PseudoTerminal& terminal, const Arguments& arguments) {
  ChildProcess program = start(arguments, terminal.end());
  const std::string output = terminal.readAll();
  return {exitCodeOf(program.wait()), output, errors()};
}

Outcome ProgramTest::runInShell(const std::string& script) {
  ChildProcess shell({"sh", "-c", script, KVLOCAL_PROGRAM}, environmentWith(environment),
                     directory.path() / kErrorsFile);
  return {exitCodeOf(shell.wait()), {}, errors()};
}

Outcome ProgramTest::runUntil(const std::string& text, const Arguments& arguments, int signal) {
  RunningProgram program = launch(arguments);
  std::string output = program.readUntil(text);
  program.process().signal(signal);
  output += program.readAll();
  return {program.wait(), output, errors()};
}

RunningProgram ProgramTest::launch(const Arguments& arguments) {
  return RunningProgram([&](int output) { return start(arguments, output); });
}

RunningProgram ProgramTest::launchInShell(const std::string& script) {
  return RunningProgram([&](int output) {
    return ChildProcess({"sh", "-c", script, KVLOCAL_PROGRAM}, environmentWith(environment),
                        directory.path() / kErrorsFile, output);
  });
}

std::string ProgramTest::errors() const {
  return fileText(kErrorsFile);
}

ChildProcess ProgramTest::start(const Arguments& arguments, int output) const {
  std::filesystem::remove(directory.path() / kErrorsFile);
  Arguments command{KVLOCAL_PROGRAM};
  command.insert(command.end(), arguments.begin(), arguments.end());
  return {command, environmentWith(environment), directory.path() / kErrorsFile, output};
}

std::string ProgramTest::fileText(const std::string& name) const {
  std::ifstream file(directory.path() / name, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

}  // namespace kvltest
