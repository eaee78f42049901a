#include <local/platform/SystemVersion.h>

#include <atomic>

namespace kvl {
namespace {

// Trivially destructible, so usable in every static constructor and destructor.
constinit std::atomic<SystemVersion> currentVersion{kDefaultSystemVersion};

}  // namespace

SystemVersion systemVersion() noexcept {
  return currentVersion.load();
}

bool isSystemVersionAtLeast(int major, int minor) noexcept {
  return systemVersion() >= SystemVersion{major, minor};
}

void setSystemVersion(SystemVersion version) noexcept {
  currentVersion.store(version);
}

}  // namespace kvl
