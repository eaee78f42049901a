// The command lines of the development programs.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace devservice {

// What the notary does wrong on purpose.
enum class Fault : std::uint8_t {
  none,
  error,           // an error of its own
  empty,           // a reply without entries
  noURL,           // no "url" entry
  badAnchor,       // an anchor that does not decode
  badCertificate,  // a client certificate that does not decode
  noCertificate,   // no "certificate" entry
  otherKey,        // a client certificate for a key that the client does not have
  rubbish,         // a reply of another signature
  hang,            // no answer at all
  exit,            // the program ends in mid-call
};

struct NotaryOptions {
  std::filesystem::path state;
  bool newAuthority = false;
  std::chrono::seconds lifetime{3600};
  std::vector<std::string> urls;
  std::chrono::milliseconds delay{0};
  Fault fault = Fault::none;
  std::optional<std::uint64_t> faultCount;  // absent: every request
};

struct ServiceOptions {
  std::filesystem::path state;
  bool newAuthority = false;
  int port = 0;
  // Each open connection takes one, idle ones too.
  std::size_t threads = 64;
  // How long a client may be silent in a handshake or a request.
  std::chrono::seconds patience{5};
  std::optional<std::filesystem::path> documents;
  std::vector<std::string> serverNames;
  std::chrono::seconds serverLifetime{86400};
  bool expired = false;
};

// The options, or the status with which to exit (help and mistakes have been written by then).
[[nodiscard]] std::variant<NotaryOptions, int> parseNotaryOptions(int count, char** arguments);
[[nodiscard]] std::variant<ServiceOptions, int> parseServiceOptions(int count, char** arguments);

}  // namespace devservice
