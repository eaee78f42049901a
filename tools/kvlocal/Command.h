// What a command of the program is. A new one is a file with a function that returns its `Command`,
// and a line in Commands.h and Commands.cpp.
#pragma once

#include "tools/kvlocal/ExitCode.h"
#include "tools/kvlocal/JSON.h"
#include "tools/kvlocal/Rendezvous.h"
#include "tools/kvlocal/Settings.h"

#include <CLI/CLI.hpp>
#include <charconv>
#include <chrono>
#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <system_error>

namespace kvlocal {

// What every command gets when it runs.
struct Context {
  Settings settings;
  std::shared_ptr<Rendezvous> rendezvous;
};

using Runner = std::function<ExitCode(const Context&)>;

// For options that take seconds.
inline CLI::Validator secondsCheck() {
  return CLI::Range(0.0, kLongestSeconds).description("");
}

// For options that take a number of things.
inline CLI::Validator countCheck() {
  return {[](const std::string& text) -> std::string {
            std::int64_t count = 0;
            const char* const end = text.data() + text.size();
            const auto [rest, fault] = std::from_chars(text.data(), end, count);
            if (fault == std::errc{} && rest == end && count >= 0) return {};
            return jsonText(text) + " is not a whole number from 0 to " +
                   std::to_string(std::numeric_limits<std::int64_t>::max());
          },
          ""};
}

// When a command that such an option ends is over; never without one.
inline Rendezvous::Limit limitAfter(std::optional<double> seconds) {
  if (!seconds) return std::nullopt;
  using std::chrono::steady_clock;
  return steady_clock::now() + std::chrono::duration_cast<steady_clock::duration>(
                                   std::chrono::duration<double>(*seconds));
}

struct Command {
  const char* name;
  const char* summary;
  // Declares the command's own arguments at `parser` and returns what runs it afterwards.
  Runner (*prepare)(CLI::App& parser);
};

}  // namespace kvlocal
