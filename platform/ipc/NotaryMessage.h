// The two messages of the notary's protocol.
#pragma once

#include "platform/ipc/GLibPointers.h"

#include <local/platform/Error.h>
#include <local/platform/Value.h>

#include <optional>
#include <string>

namespace kvl::ipc {

inline constexpr const char* kNotaryMethod = "SendNotary";
inline constexpr const char* kNotaryReplyType = "(aa{sv}a(sxa{sv}))";

// What the service said. A reply without entries is absent.
struct NotaryReply {
  std::optional<Dictionary> reply;
  std::optional<Error> error;
};

// `(asa{sv})`. An absent path is an empty array, an empty path an array that holds an empty text.
// Null when the wire cannot carry the path or a value of the request.
[[nodiscard]] VariantPtr makeNotaryRequest(const std::optional<std::string>& path,
                                           const Dictionary& request);

// Absent when the reply has the wrong shape: more than one dictionary or error, or a value of a
// type that the protocol does not have. With a reply and an error, the error wins.
// @pre `reply` is of kNotaryReplyType
[[nodiscard]] std::optional<NotaryReply> readNotaryReply(GVariant* reply);

}  // namespace kvl::ipc
