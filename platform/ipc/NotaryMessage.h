// The two messages of the notary's protocol and the values in them, as D-Bus carries them.
#pragma once

#include "platform/ipc/CallTransport.h"
#include "platform/ipc/GLibPointers.h"

#include <local/platform/Value.h>

#include <optional>
#include <string_view>

namespace kvl::ipc {

inline constexpr const char* kNotaryMethod = "SendNotary";
inline constexpr const char* kNotaryReplyType = "(aa{sv}a(sxa{sv}))";

// `(asa{sv})`. An absent path is an empty array, an empty path an array that holds an empty text.
// Null when the wire cannot carry the path or a value of the request.
[[nodiscard]] VariantPtr makeNotaryRequest(const ServiceRequest& request);

// Absent when the reply has the wrong shape: more than one dictionary or error, or a value of a
// type that the protocol does not have. With a reply and an error, the error wins.
// @pre `reply` is of kNotaryReplyType
[[nodiscard]] std::optional<ServiceReply> readNotaryReply(GVariant* reply);

// Dictionaries inside dictionaries beyond this depth are refused in both directions. D-Bus itself
// allows 64 containers in one message, three of which make one level here.
inline constexpr int kMaximumDictionaryDepth = 16;

// As `b x d s ay as a{sv}`; null when the wire cannot carry the value: nulls, dates, arrays of
// anything but texts, texts that are not UTF-8 or hold NUL, dictionaries nested too deeply.
[[nodiscard]] VariantPtr variantFromValue(const Value& value, int depth = 0);
[[nodiscard]] VariantPtr variantFromDictionary(const Dictionary& dictionary, int depth = 0);
[[nodiscard]] VariantPtr variantFromText(std::string_view text);

// From `s b x t d as ay a{sv}`; absent for every other type. A `t` beyond the signed 64-bit range
// becomes a real. Of two entries with one key the later counts.
[[nodiscard]] std::optional<Value> valueFromVariant(GVariant* variant, int depth = 0);
// @pre `variant` is an `a{sv}`
[[nodiscard]] std::optional<Dictionary> dictionaryFromVariant(GVariant* variant, int depth = 0);

}  // namespace kvl::ipc
