// Runs the command line client.
#pragma once

#include "tests/support/PrivateBus.h"
#include "tests/support/PseudoTerminal.h"

#include <gtest/gtest.h>
#include <signal.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace kvltest {

// How a run of the program ended.
struct Outcome {
  int exitCode = -1;  // or minus the number of the signal that ended it
  std::string output;
  std::string errors;
};

using Arguments = std::vector<std::string>;

// A program that runs, and what it writes to its standard output.
class RunningProgram {
 public:
  // `start` runs the program with its output going to the descriptor.
  explicit RunningProgram(const std::function<ChildProcess(int output)>& start);
  ~RunningProgram();
  RunningProgram(const RunningProgram&) = delete;
  RunningProgram& operator=(const RunningProgram&) = delete;

  // The next line, without its end; what there was when the output ends earlier.
  std::string readLine();
  // What has been read up to and including `text`, or to the end.
  std::string readUntil(const std::string& text);
  std::string readAll();
  // Waits until as much has been written as may without being read; false when that takes too long.
  [[nodiscard]] bool waitUntilBlocked() const;
  // Nobody reads any more.
  void closeOutput();

  [[nodiscard]] const ChildProcess& process() const { return process_; }
  [[nodiscard]] bool hasEnded() const;
  // Its exit code, or minus the number of the signal that ended it, once it has ended by itself.
  int wait();

 private:
  bool receive();

  int output_ = -1;
  ChildProcess process_;
  std::string received_;
};

// A line of /proc/PID/status in bytes: "VmRSS" is the memory that the program has now, "VmHWM" the
// most that it has had.
std::int64_t memoryOf(const ChildProcess& process, const std::string& name);

class ProgramTest : public testing::Test {
 protected:
  // Runs the program to its end.
  Outcome run(const Arguments& arguments);

  // Runs the program, sends it `signal` as soon as it has written `text`, and waits for its end.
  Outcome runUntil(const std::string& text, const Arguments& arguments, int signal = SIGINT);

  // Runs the program beside the test.
  RunningProgram launch(const Arguments& arguments);

  // Runs a shell's script, in which "$0" is the program, beside the test.
  RunningProgram launchInShell(const std::string& script);

  // Runs the program with its output going to the file `path`.
  Outcome runInto(const std::string& path, const Arguments& arguments);

  // Runs the program on a terminal; all of that is its output.
  Outcome runOn(PseudoTerminal& terminal, const Arguments& arguments);

  // Runs a shell's script, in which "$0" is the program. What it writes is among the errors.
  Outcome runInShell(const std::string& script);

  // From now on the program finds this session bus; there is none before.
  void useBus(const std::string& address);

  // From now on the program's user has this locale and this time zone.
  void useLocale(const std::string& locale, const std::string& zone);

  // What the program's environment has beyond the test's.
  Environment environment{"DBUS_SESSION_BUS_ADDRESS=unix:path=/nonexistent/bus",
                          "korvale_vandrel_notary", "korvale_vandrel_notary_minimum", "LC_ALL=C"};

  TemporaryDirectory directory;

  // What the program has written to its standard error.
  std::string errors() const;

  // What a file in `directory` holds.
  std::string fileText(const std::string& name) const;

 private:
  ChildProcess start(const Arguments& arguments, int output) const;
};

}  // namespace kvltest
