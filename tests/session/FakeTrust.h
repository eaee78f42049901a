// A trust whose evaluation comes out as the test says.
#pragma once

#include <local/platform/Security.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

namespace kvltest {

class FakeTrust final : public kvl::Trust {
 public:
  [[nodiscard]] kvl::Status setAnchorCertificates(
      const std::vector<kvl::CertificateRef>& anchors) override {
    if (whenAnchorsAreSet) whenAnchorsAreSet();
    received = anchors;
    return anchorStatus;
  }
  [[nodiscard]] kvl::Status evaluate(kvl::TrustResult& outcome) override {
    if (whenEvaluated) whenEvaluated();
    ++evaluations;
    if (evaluationStatus == kvl::kSuccess) outcome = result;
    return evaluationStatus;
  }
  [[nodiscard]] kvl::Status legacyResultCode(std::int32_t& value) const override {
    if (codeStatus == kvl::kSuccess) value = code;
    return codeStatus;
  }
  [[nodiscard]] std::optional<kvl::Dictionary> copyResult() const override { return details; }
  [[nodiscard]] std::vector<kvl::CertificateRef> certificates() const override { return {}; }

  std::vector<kvl::CertificateRef> received;
  kvl::Status anchorStatus = kvl::kSuccess;
  kvl::Status evaluationStatus = kvl::kSuccess;
  kvl::TrustResult result = kvl::TrustResult::unspecified;
  kvl::Status codeStatus = kvl::kSuccess;
  std::int32_t code = 0;
  std::optional<kvl::Dictionary> details = kvl::Dictionary{{"why", "because"}};
  int evaluations = 0;
  std::function<void()> whenAnchorsAreSet;
  std::function<void()> whenEvaluated;
};

}  // namespace kvltest
