// A notary's identity, and its entries in key stores.
#pragma once

#include "platform/security/Operations.h"
#include "tests/notary/NotaryFixture.h"
#include "tests/support/MadeCertificate.h"

namespace kvltest {

class NotaryKeyStoreFixture : public NotaryFixture {
 protected:
  // The identity that the next notarisation brings.
  kvl::IdentityRef renewed(KVLNotary& notary) {
    script.reply = kvl::Dictionary{{"url", kURLs}, {"certificate", certificateFor(notary)}};
    const auto signature = notarise(notary).signature;
    return signature ? signature->identity() : nullptr;
  }

  static kvl::Status deleteKeys(kvl::security::KeyStore& store) {
    auto query = KVLNotary::keyQuery();
    query.remove(kvl::security::kSecAttrKeyClass);
    return kvl::security::SecItemDelete(store, query);
  }
  static kvl::Status find(kvl::security::KeyStore& store) {
    std::vector<kvl::KeyRef> keys;
    return kvl::security::SecItemCopyMatching(store, KVLNotary::keyQuery(), keys);
  }
};

}  // namespace kvltest
