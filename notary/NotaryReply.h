// From the notary service's reply to a signature.
#pragma once

#include <local/KVLNotary.h>

namespace kvl::notary {

// Calls `completionHandler` with the signature that the reply describes, or with an error.
void handleReply(const std::optional<Dictionary>& reply, const std::optional<Error>& error,
                 const KVLNotary::CompletionHandler& completionHandler);

}  // namespace kvl::notary
