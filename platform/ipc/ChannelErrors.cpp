#include "platform/ipc/ChannelErrors.h"

#include <utility>

namespace kvl::ipc {
namespace {

constexpr std::string_view kOtherUser = "The service of this name belongs to another user.";
constexpr std::string_view kInvalidated = "The connection was closed.";
constexpr std::string_view kUsed = "The connection has been used for another call.";
constexpr std::string_view kSilent = "The service did not answer in time.";
constexpr std::string_view kWrongShape = "The service's reply has the wrong shape.";
constexpr std::string_view kNotCarried = "The request holds a value that the channel cannot carry.";

std::string_view description(std::int64_t code) {
  switch (code) {
    case NSXPCConnectionInterrupted:
      return "The connection to the service “%” was interrupted.";
    case NSXPCConnectionReplyInvalid:
      return "The service “%” and this program do not understand each other.";
    case kTimedOutPOSIXCode:
      return "The service “%” does not answer.";
    default:
      return "The service “%” cannot be reached.";
  }
}

Dictionary makeUserInfo(std::string_view pattern, std::string_view serviceName,
                        std::string_view reason, std::string_view debugText) {
  std::string sentence(pattern);
  sentence.replace(sentence.find('%'), 1, serviceName);
  Dictionary info{{NSLocalizedDescriptionKey, sentence},
                  {NSLocalizedFailureReasonErrorKey, reason}};
  if (!debugText.empty()) info.set(NSDebugDescriptionErrorKey, debugText);
  return info;
}

}  // namespace

Error ChannelErrors::make(std::int64_t code, std::string_view reason,
                          std::string_view debugText) const {
  return Error(NSCocoaErrorDomain, code,
               makeUserInfo(description(code), serviceName_, reason, debugText));
}

Error ChannelErrors::unreachable(std::string_view reason, std::string_view debugText) const {
  return make(NSXPCConnectionInvalid, reason, debugText);
}

Error ChannelErrors::interrupted(std::string_view reason, std::string_view debugText) const {
  return make(NSXPCConnectionInterrupted, reason, debugText);
}

Error ChannelErrors::untrustedOwner(std::uint32_t user) const {
  return unreachable(kOtherUser, "owner's user id " + std::to_string(user));
}

Error ChannelErrors::invalidated() const {
  return unreachable(kInvalidated);
}

Error ChannelErrors::alreadyUsed() const {
  return unreachable(kUsed);
}

Error ChannelErrors::timedOut(std::string_view debugText) const {
  return Error(NSPOSIXErrorDomain, kTimedOutPOSIXCode,
               makeUserInfo(description(kTimedOutPOSIXCode), serviceName_, kSilent, debugText));
}

Error ChannelErrors::replyOfWrongShape(std::string_view debugText) const {
  return make(NSXPCConnectionReplyInvalid, kWrongShape, debugText);
}

Error ChannelErrors::requestNotCarried() const {
  return make(NSXPCConnectionReplyInvalid, kNotCarried);
}

}  // namespace kvl::ipc
