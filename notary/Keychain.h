// The client's key pair in a key store. The keys are told apart by the host's identifier.
#pragma once

#include "platform/security/KeyStore.h"
#include "platform/security/PairGeneration.h"

#include <local/platform/Error.h>
#include <local/platform/Security.h>
#include <local/platform/Value.h>

#include <optional>

namespace kvl::notary {

// What finds the private key; see KVLNotary::keyQuery.
[[nodiscard]] Dictionary keyQuery();

// Begins with what takes longest.
[[nodiscard]] security::PairGeneration beginKeys();

// Makes a pair, or takes the one that was begun, and fills the slots that are not null; see
// KVLNotary::createKeysPublic.
[[nodiscard]] std::optional<Error> createKeys(security::KeyStore& store, KeyRef* publicKey,
                                              KeyRef* privateKey,
                                              security::PairGeneration* begun = nullptr);

// Deletes every key of the host's identifier; see KVLNotary::deleteKeys.
[[nodiscard]] std::optional<Error> deleteKeys(security::KeyStore& store);

}  // namespace kvl::notary
