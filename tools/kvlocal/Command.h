// What a command of the program is, and the commands that there are. A new one is a function here
// and in the file of its family, and a line in main.cpp.
#pragma once

#include "tools/kvlocal/Output.h"
#include "tools/kvlocal/Rendezvous.h"

#include <CLI/CLI.hpp>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace kvlocal {

// The identifier under which the program keeps its keys.
inline constexpr const char* kDefaultIdentifier = "korvale.vandrel.kvlocal";

// How long the first answer of a notary may take when the user sets no limit.
inline constexpr std::chrono::seconds kPatience{30};

// The options that all commands share.
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

// What every command gets when it runs.
struct Context {
  Settings settings;
  std::shared_ptr<Rendezvous> rendezvous;
};

using Runner = std::function<ExitCode(const Context&)>;

struct Command {
  const char* name;
  const char* summary;
  // Declares the command's own arguments at `parser` and returns what runs it afterwards.
  Runner (*prepare)(CLI::App& parser);
};

Command statusCommand();
Command getCommand();
Command submitCommand();
Command formCommand();
Command imageCommand();
Command menuCommand();
Command renderCommand();
Command watchCommand();
Command eventsCommand();
Command csrCommand();
Command devCommand();
Command identityCommand();

}  // namespace kvlocal
