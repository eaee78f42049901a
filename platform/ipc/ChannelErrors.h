// What the failures of the channel are called.
#pragma once

#include <local/platform/Error.h>
#include <local/platform/Export.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

namespace kvl::ipc {

// Makes the errors of one service's channel. The transport's own words are kept under
// NSDebugDescriptionErrorKey. Exported for the library's own modules.
class KVL_EXPORT ChannelErrors {
 public:
  explicit ChannelErrors(std::string serviceName) : serviceName_(std::move(serviceName)) {}

  // 4099: the request was not delivered and never will be over this channel.
  [[nodiscard]] Error unreachable(std::string_view reason, std::string_view debugText = {}) const;
  [[nodiscard]] Error untrustedOwner(std::uint32_t user) const;
  [[nodiscard]] Error invalidated() const;
  [[nodiscard]] Error alreadyUsed() const;
  // 4097: the service or the way to it went away after the request was sent.
  [[nodiscard]] Error interrupted(std::string_view reason, std::string_view debugText = {}) const;
  // 4101: one side sent what the other cannot read.
  [[nodiscard]] Error replyOfWrongShape(std::string_view debugText = {}) const;
  [[nodiscard]] Error requestNotCarried() const;
  // NSPOSIXErrorDomain 60: a time limit has passed, the channel's own or one of the bus or of the
  // service.
  [[nodiscard]] Error timedOut(std::string_view debugText = {}) const;

 private:
  [[nodiscard]] Error make(std::int64_t code, std::string_view reason,
                           std::string_view debugText = {}) const;

  std::string serviceName_;
};

}  // namespace kvl::ipc
