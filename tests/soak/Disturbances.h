// The faults of a soak: one at a time, in an order that a seed decides.
#pragma once

#include "tests/integration/LocalService.h"
#include "tests/soak/Traffic.h"

#include <chrono>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace kvltest {

class Disturbances {
 public:
  struct Options {
    std::uint64_t seed = 1;
    // How long what is gone stays away, about.
    std::chrono::milliseconds span{3000};
    // Of certificates, in seconds.
    int lifetime = 10;
    std::string source;  // of the event stream
  };
  struct Record {
    int times = 0;
    double longest = 0;  // in seconds, from the end of the fault until the service answers again
    double all = 0;
  };

  // Starts service and notary. The processes end with the thread that uses this.
  Disturbances(World& world, Options options);

  // Needed before the first fault.
  void setSender(Sender sender) { sender_ = std::move(sender); }

  // One fault, from its beginning until the service answers again. False when it does not.
  [[nodiscard]] bool next();
  [[nodiscard]] bool waitUntilServed();
  [[nodiscard]] const char* lastName() const noexcept { return last_; }
  [[nodiscard]] const std::map<std::string, Record>& records() const noexcept { return records_; }

 private:
  friend struct Faults;

  const Options options_;
  World& world_;
  ChildProcess notary_;
  Sender sender_;
  Random random_;
  std::vector<std::size_t> deck_;
  const char* last_ = "";
  std::map<std::string, Record> records_;
};

}  // namespace kvltest
