/// @file
/// The handle of an observation.
#pragma once

#include <local/platform/Export.h>

#include <memory>
#include <utility>

namespace kvl {

/// Keeps an observation alive. Destroying it (or `end()`) guarantees silence: when the call
/// returns, no handler of this observation runs and none will, and what the handler held is gone.
/// Called on another thread while the handler runs, it waits for the handler to return; called from
/// inside the handler it does not wait, and the handler goes once it has returned. Do not destroy
/// it while holding a lock that the handler takes.
class KVL_EXPORT Observation {
 public:
  /// One registered handler, as whoever is observed sees it.
  class Registration {
   public:
    virtual ~Registration() = default;
    /// Ends the observation with the guarantee above.
    virtual void end() = 0;
  };

  Observation() noexcept = default;
  /// For whoever is observed; none observes nothing.
  explicit Observation(std::shared_ptr<Registration> registration) noexcept
      : registration_(std::move(registration)) {}
  /// Leaves the other handle without an observation.
  Observation(Observation&&) noexcept = default;
  /// Ends what was observed here first, with the guarantee above.
  Observation& operator=(Observation&& other) noexcept {
    if (this != &other) {
      end();
      registration_ = std::move(other.registration_);
    }
    return *this;
  }
  ~Observation() { end(); }

  /// As destroying it; a second time does nothing.
  void end() {
    if (auto registration = std::exchange(registration_, nullptr)) registration->end();
  }

 private:
  std::shared_ptr<Registration> registration_;
};

}  // namespace kvl
