// The process's key store without the user's session, and keys in it that nobody else has.
#pragma once

#include "tests/support/PrivateBus.h"

#include <local/KVLNotary.h>
#include <local/platform/HostApplication.h>

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <optional>
#include <string>

namespace kvltest {

// No session bus can be found while it lives: neither at the address nor in the runtime directory.
// Not while other threads read the environment.
class NoUserSession {
 public:
  NoUserSession() {
    if (const char* before = std::getenv(kVariable)) before_ = before;
    setenv(kVariable, directory_.path().c_str(), 1);
  }
  ~NoUserSession() { before_ ? setenv(kVariable, before_->c_str(), 1) : unsetenv(kVariable); }
  NoUserSession(const NoUserSession&) = delete;
  NoUserSession& operator=(const NoUserSession&) = delete;

 private:
  static constexpr auto kVariable = "XDG_RUNTIME_DIR";

  const TemporaryDirectory directory_;
  // An address at which nothing listens: without one, a bus would be looked for on the display too.
  const SessionBusVariable bus_{"unix:path=" + (directory_.path() / "bus").string()};
  std::optional<std::string> before_;
};

// The host's identifier is one of this process's own. No keys are kept under it at first, and none
// are left.
class OwnKeys {
 public:
  explicit OwnKeys(const std::string& name) {
    kvl::setHostIdentifier(name + "." + std::to_string(getpid()));
    EXPECT_FALSE(KVLNotary::deleteKeys());
  }
  ~OwnKeys() {
    EXPECT_FALSE(KVLNotary::deleteKeys());
    kvl::setHostIdentifier("");
  }
  OwnKeys(const OwnKeys&) = delete;
  OwnKeys& operator=(const OwnKeys&) = delete;

 private:
  const NoUserSession session_;
};

}  // namespace kvltest
