// A sandbox such as Flatpak makes for a program, of the same parts.
#pragma once

#include "tests/tools/ProgramFixture.h"

#include <filesystem>
#include <set>
#include <string>

namespace kvltest {

// What a program in a sandbox may reach.
struct Permissions {
  std::set<std::string> names;  // of the session bus
  bool network = false;         // that of the machine, rather than an empty one
};

// The permissions among a Flatpak manifest's "finish-args". Throws std::runtime_error for a file
// that is no manifest and for an argument that this sandbox knows nothing of.
Permissions permissionsOf(const std::filesystem::path& manifest);

// A proxy in front of a session bus through which only these names are seen.
class BusProxy {
 public:
  // Returns when it listens. Its socket is in `folder`.
  BusProxy(const std::string& busAddress, const Permissions& permissions,
           const std::filesystem::path& folder);

  [[nodiscard]] const std::filesystem::path& socket() const { return socket_; }

 private:
  std::filesystem::path socket_;
  ChildProcess process_;
};

// The arguments with which /bin/sh runs `command` in a sandbox: without the machine's processes,
// users and files, read-only, and with the calls of the kernel that Flatpak allows. `folder` keeps
// the filter.
Arguments sandboxed(const BusProxy& bus, const Permissions& permissions, const Arguments& command,
                    const std::filesystem::path& folder);

}  // namespace kvltest
