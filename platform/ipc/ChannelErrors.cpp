#include "platform/ipc/ChannelErrors.h"

#include "platform/core/Sentence.h"

#include <utility>

namespace kvl::ipc {
namespace {

constexpr std::string_view kOtherUser =
    translatable("The service of this name belongs to another user.");
constexpr std::string_view kInvalidated = translatable("The connection was closed.");
constexpr std::string_view kUsed = translatable("The connection has been used for another call.");
constexpr std::string_view kSilent = translatable("The service did not answer in time.");
constexpr std::string_view kWrongShape = translatable("The service's reply has the wrong shape.");
constexpr std::string_view kNotCarried =
    translatable("The request holds a value that the channel cannot carry.");

std::string_view description(std::int64_t code) {
  switch (code) {
    case NSXPCConnectionInterrupted:
      return translatable("The connection to the service “%@” was interrupted.");
    case NSXPCConnectionReplyInvalid:
      return translatable("The service “%@” and this program do not understand each other.");
    case kTimedOutPOSIXCode:
      return translatable("The service “%@” does not answer.");
    default:
      return translatable("The service “%@” cannot be reached.");
  }
}

Error makeError(std::string_view domain, std::int64_t code, const std::string& serviceName,
                std::string_view reason, std::string_view debugText) {
  Dictionary info{{NSLocalizedFailureReasonErrorKey, reason}};
  if (!debugText.empty()) info.set(NSDebugDescriptionErrorKey, debugText);
  return core::errorWithSentence(domain, code, {description(code), {serviceName}}, info);
}

}  // namespace

Error ChannelErrors::make(std::int64_t code, std::string_view reason,
                          std::string_view debugText) const {
  return makeError(NSCocoaErrorDomain, code, serviceName_, reason, debugText);
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
  return makeError(NSPOSIXErrorDomain, kTimedOutPOSIXCode, serviceName_, kSilent, debugText);
}

Error ChannelErrors::replyOfWrongShape(std::string_view debugText) const {
  return make(NSXPCConnectionReplyInvalid, kWrongShape, debugText);
}

Error ChannelErrors::requestNotCarried() const {
  return make(NSXPCConnectionReplyInvalid, kNotCarried);
}

}  // namespace kvl::ipc
