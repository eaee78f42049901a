// An nginx of the test's own.
#pragma once

#include "tests/support/PrivateBus.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>

namespace kvltest {

// One process, ended by its id. Everything it reads and writes lies in one folder, which is also
// what relative paths in its configuration start from.
class Nginx {
 public:
  // What stands inside `http { }` when the server is to listen on this port.
  using Configuration = std::function<std::string(std::uint16_t port)>;

  // Starts it and returns when it listens. nginx cannot say which port it got, so one that was free
  // a moment ago is tried, and another when it has been taken meanwhile.
  // Throws std::runtime_error with the error log when it does not start.
  Nginx(std::filesystem::path folder, const Configuration& configuration);

  [[nodiscard]] std::uint16_t port() const noexcept { return port_; }
  [[nodiscard]] ChildProcess& process() noexcept { return process_; }
  // Ends the process if it runs, and starts another one at the same port.
  // Throws std::runtime_error with the error log when it does not start.
  void startAgain(const Configuration& configuration);

 private:
  [[nodiscard]] bool start(const Configuration& configuration);
  [[nodiscard]] std::string errorLog() const;

  const std::filesystem::path folder_;
  std::uint16_t port_ = 0;
  ChildProcess process_;
};

}  // namespace kvltest
