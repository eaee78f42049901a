// What the failures of the channel are called.
#pragma once

#include <local/platform/Error.h>

#include <gio/gio.h>

#include <string>
#include <string_view>

namespace kvl::ipc {

// How far a call had come when it failed.
enum class Stage {
  reaching,  // the request has not been sent
  calling,   // the request has been sent
};

// Makes the errors of one service's channel. The bus's own words are kept under
// NSDebugDescriptionErrorKey.
//
// Before the request was sent a failure means that the service cannot be reached (4099). Once it
// was sent: the service or the bus went away (4097); the bus did not let the request through
// (4099); or something came back that is no reply of the protocol, a D-Bus error that the service
// itself returned included, since its own errors travel inside a reply (4101). A time limit of the
// bus or of the service is one like the channel's own (NSPOSIXErrorDomain 60).
class ChannelErrors {
 public:
  explicit ChannelErrors(std::string serviceName) : serviceName_(std::move(serviceName)) {}

  [[nodiscard]] Error fromBus(const GError& error, Stage stage) const;
  [[nodiscard]] Error untrustedOwner(std::uint32_t user) const;
  [[nodiscard]] Error invalidated() const;
  [[nodiscard]] Error alreadyUsed() const;
  [[nodiscard]] Error timedOut(std::string_view debugText = {}) const;
  [[nodiscard]] Error replyOfWrongShape(std::string_view debugText = {}) const;
  [[nodiscard]] Error requestNotCarried() const;

 private:
  [[nodiscard]] Error make(std::int64_t code, std::string_view reason,
                           std::string_view debugText = {}) const;
  [[nodiscard]] Error whileReaching(const GError& error) const;
  [[nodiscard]] Error whileCalling(const GError& error) const;

  std::string serviceName_;
};

// The name was not owned, or its owner has gone: nothing was delivered.
[[nodiscard]] bool meansNoOwner(const GError& error);

}  // namespace kvl::ipc
