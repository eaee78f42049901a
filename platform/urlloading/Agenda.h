// When each of many things is to be looked at.
#pragma once

#include <chrono>
#include <cstdint>
#include <set>
#include <unordered_map>
#include <utility>
#include <vector>

namespace kvl::urlloading {

// Names those whose time has come, without a look at the others. One thread.
class Agenda {
 public:
  using Identifier = std::uint64_t;
  using Time = std::chrono::steady_clock::time_point;

  // The one time of `identifier` from here on; `Time::max()` is never.
  void set(Identifier identifier, Time time);
  void remove(Identifier identifier);
  // `Time::max()` when there is nothing on it.
  [[nodiscard]] Time earliest() const noexcept;
  // Takes those off that are due at `now`, the earliest first.
  [[nodiscard]] std::vector<Identifier> takeDue(Time now);

 private:
  std::set<std::pair<Time, Identifier>> order_;
  std::unordered_map<Identifier, Time> times_;
};

}  // namespace kvl::urlloading
