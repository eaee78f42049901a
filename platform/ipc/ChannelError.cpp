#include "platform/ipc/ChannelError.h"

#include <algorithm>
#include <array>
#include <utility>

namespace kvl::ipc {
namespace {

constexpr std::string_view kUnknownService = "No service of this name is known to the session bus.";
constexpr std::string_view kNotStarted = "The service could not be started.";
constexpr std::string_view kNoBus = "The session bus cannot be used.";
constexpr std::string_view kForbidden = "The session bus did not let the request through.";
constexpr std::string_view kServiceEnded = "The service ended before it answered.";
constexpr std::string_view kBusEnded = "The session bus went away before the service answered.";
constexpr std::string_view kOtherUser = "The service of this name belongs to another user.";
constexpr std::string_view kInvalidated = "The connection was closed.";
constexpr std::string_view kUsed = "The connection has been used for another call.";
constexpr std::string_view kSilent = "The service did not answer in time.";
constexpr std::string_view kWrongShape = "The service's reply has the wrong shape.";
constexpr std::string_view kNotCarried = "The request holds a value that the channel cannot carry.";

template <std::size_t N>
bool isBusError(const GError& error, const std::array<GDBusError, N>& codes) {
  return error.domain == G_DBUS_ERROR &&
         std::find(codes.begin(), codes.end(), error.code) != codes.end();
}

bool isTimeLimit(const GError& error) {
  constexpr std::array codes{G_DBUS_ERROR_TIMEOUT, G_DBUS_ERROR_TIMED_OUT};
  return isBusError(error, codes) || g_error_matches(&error, G_IO_ERROR, G_IO_ERROR_TIMED_OUT);
}

bool isSpawnFailure(const GError& error) {
  return error.domain == G_DBUS_ERROR && error.code >= G_DBUS_ERROR_SPAWN_EXEC_FAILED &&
         error.code <= G_DBUS_ERROR_SPAWN_NO_MEMORY;
}

bool isServiceGone(const GError& error) {
  constexpr std::array codes{G_DBUS_ERROR_NO_REPLY, G_DBUS_ERROR_DISCONNECTED};
  return isBusError(error, codes);
}

bool isRefusedByBus(const GError& error) {
  constexpr std::array codes{G_DBUS_ERROR_ACCESS_DENIED, G_DBUS_ERROR_AUTH_FAILED,
                             G_DBUS_ERROR_LIMITS_EXCEEDED, G_DBUS_ERROR_NO_MEMORY};
  return isBusError(error, codes);
}

// GIO reports a reply of another signature as an invalid argument, and a D-Bus error whose name it
// does not know as one of its own.
bool isNoReplyOfProtocol(const GError& error) {
  return error.domain == G_DBUS_ERROR ||
         g_error_matches(&error, G_IO_ERROR, G_IO_ERROR_INVALID_ARGUMENT) ||
         g_error_matches(&error, G_IO_ERROR, G_IO_ERROR_DBUS_ERROR);
}

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

bool meansNoOwner(const GError& error) {
  constexpr std::array codes{G_DBUS_ERROR_SERVICE_UNKNOWN, G_DBUS_ERROR_NAME_HAS_NO_OWNER};
  return isBusError(error, codes);
}

Error ChannelErrors::make(std::int64_t code, std::string_view reason,
                          std::string_view debugText) const {
  return Error(NSCocoaErrorDomain, code,
               makeUserInfo(description(code), serviceName_, reason, debugText));
}

Error ChannelErrors::fromBus(const GError& error, Stage stage) const {
  if (isTimeLimit(error)) return timedOut(error.message);
  return stage == Stage::reaching ? whileReaching(error) : whileCalling(error);
}

Error ChannelErrors::whileReaching(const GError& error) const {
  std::string_view reason = kNoBus;
  if (meansNoOwner(error)) reason = kUnknownService;
  if (isSpawnFailure(error)) reason = kNotStarted;
  if (isRefusedByBus(error)) reason = kForbidden;
  return make(NSXPCConnectionInvalid, reason, error.message);
}

Error ChannelErrors::whileCalling(const GError& error) const {
  if (isServiceGone(error)) return make(NSXPCConnectionInterrupted, kServiceEnded, error.message);
  if (meansNoOwner(error)) return make(NSXPCConnectionInvalid, kUnknownService, error.message);
  if (isRefusedByBus(error)) return make(NSXPCConnectionInvalid, kForbidden, error.message);
  if (isNoReplyOfProtocol(error)) return replyOfWrongShape(error.message);
  return make(NSXPCConnectionInterrupted, kBusEnded, error.message);
}

Error ChannelErrors::untrustedOwner(std::uint32_t user) const {
  return make(NSXPCConnectionInvalid, kOtherUser, "owner's user id " + std::to_string(user));
}

Error ChannelErrors::invalidated() const {
  return make(NSXPCConnectionInvalid, kInvalidated);
}

Error ChannelErrors::alreadyUsed() const {
  return make(NSXPCConnectionInvalid, kUsed);
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
