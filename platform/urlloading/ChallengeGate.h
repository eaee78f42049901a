// Where a connection waits for the delegate's answer to a challenge.
#pragma once

#include "platform/security/TrustEvaluation.h"

#include <local/platform/Credential.h>

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>

namespace kvl::urlloading {

using SteadyTime = std::chrono::steady_clock::time_point;

struct ChallengeAnswer {
  ChallengeDisposition disposition = ChallengeDisposition::rejectProtectionSpace;
  CredentialRef credential;
  // What the trust's evaluation had found when the answer came; 0 for a client certificate.
  int verifyError = 0;
};

// Thread-safe. One gate per challenge.
class ChallengeGate : public std::enable_shared_from_this<ChallengeGate> {
 public:
  // `trust` is what is asked about, or null for a client certificate.
  explicit ChallengeGate(std::shared_ptr<security::ServerTrust> trust) : trust_(std::move(trust)) {}

  // The handler to give to the delegate. When its last copy goes away unused, that is a refusal.
  [[nodiscard]] ChallengeHandler handler();

  // Ends the wait with a refusal unless an answer came before.
  void abort();

  // Waits for the answer; a refusal when none came by the deadline.
  [[nodiscard]] ChallengeAnswer wait(SteadyTime deadline);

 private:
  void answer(ChallengeDisposition disposition, CredentialRef credential);
  void settle(ChallengeAnswer answer);

  const std::shared_ptr<security::ServerTrust> trust_;
  std::mutex mutex_;
  std::condition_variable answered_;
  std::optional<ChallengeAnswer> answer_;
};

}  // namespace kvl::urlloading
