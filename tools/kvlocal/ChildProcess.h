// A program that this one has started.
#pragma once

#include "tools/kvlocal/Rendezvous.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace kvlocal {

// What to start.
struct ProgramStart {
  std::vector<std::string> words;      // the first is a path or is looked for in PATH
  std::vector<std::string> variables;  // "NAME=VALUE", in the place of those with the same names
  // Called with each line that it writes, on a thread of its own; the program then has no input,
  // and a terminal's signals do not reach it. Without it, it has input, output and terminal of this
  // one.
  std::function<void(std::string_view line)> onLine;
};

// It ends with this object, and is killed when this process dies, unless it runs as another user
// (set-uid): the kernel forgets that then. What it has started itself is its own to end.
class ChildProcess {
 public:
  // `rendezvous` learns of the end. When the program cannot be started, null and the error's
  // number. Of the main thread: the program is killed when the thread that started it ends.
  [[nodiscard]] static std::unique_ptr<ChildProcess> start(const ProgramStart& start,
                                                           std::shared_ptr<Rendezvous> rendezvous,
                                                           int& error);
  // Ends it, by force if it takes seconds, and waits for its end.
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  void signal(int number) const;

  // As a shell has it: the exit status, or 128 and the signal's number. Absent while it runs. With
  // the rendezvous' lock held, as in its conditions.
  [[nodiscard]] std::optional<int> status() const { return status_; }

 private:
  ChildProcess(int process, int output, std::function<void(std::string_view line)> onLine,
               std::shared_ptr<Rendezvous> rendezvous);
  void watch();
  void readOutput();

  const int process_;  // a descriptor, so that no other process is ever meant
  int output_;
  const std::function<void(std::string_view line)> onLine_;
  const std::shared_ptr<Rendezvous> rendezvous_;
  std::string line_;
  std::optional<int> status_;
  std::thread thread_;
};

}  // namespace kvlocal
