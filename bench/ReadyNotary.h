// A notary that has an identity at hand, made of files.
#pragma once

#include "bench/RequestProbe.h"
#include "tests/support/TestCertificates.h"

#include <local/KVLNotary.h>

#include <memory>
#include <optional>

namespace kvlbench {

class ReadyNotary final : public KVLNotary {
 public:
  explicit ReadyNotary(const RequestSettings& settings)
      : KVLNotary(WithoutKeys{}), signature_(signatureOf(settings)) {}
  void notariseWithCompletionHandler(CompletionHandler handler) override {
    handler(signature_, std::nullopt);
  }

 private:
  static std::shared_ptr<KVLNotarySignature> signatureOf(const RequestSettings& settings) {
    const kvl::testing::TestIdentity client{readKey(settings.file(kClientKeyFile)),
                                            readCertificate(settings.file(kClientFile))};
    const kvl::testing::TestIdentity authority{nullptr,
                                               readCertificate(settings.file(kAuthorityFile))};
    auto signature = std::make_shared<KVLNotarySignature>();
    signature->setBaseURL(kvl::URL::parse(settings.baseURL()));
    signature->setAnchor(authority.certificateRef());
    const auto identity = client.identity();
    signature->setClient(identity->certificate());
    signature->setIdentity(identity);
    return signature;
  }

  const std::shared_ptr<KVLNotarySignature> signature_;
};

}  // namespace kvlbench
