// The options that all commands share.
#pragma once

#include <chrono>
#include <optional>
#include <string>

namespace kvlocal {

// The identifier under which the program keeps its keys. Two programs that run at once under one
// identifier take each other's keys away.
inline constexpr const char* kDefaultIdentifier = "korvale.vandrel.kvlocal";

// How long the first answer of a notary may take when the user sets no limit.
inline constexpr std::chrono::seconds kPatience{30};

// The longest duration that options take, in seconds: deadlines stay within the clock's range.
inline constexpr double kLongestSeconds = 1e6;

struct Settings {
  std::optional<std::string> notaryPath;
  std::optional<double> timeoutSeconds;
  std::string identifier = kDefaultIdentifier;
  bool json = false;
  bool verbose = false;

  // The time within which the session must be established.
  std::chrono::nanoseconds limit() const {
    if (!timeoutSeconds) return kPatience;
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
        std::chrono::duration<double>(*timeoutSeconds));
  }
  // With a time-out, failures are retried until it has passed; without, the first one is final.
  bool retries() const { return timeoutSeconds.has_value(); }
};

}  // namespace kvlocal
