#include "platform/urlloading/ChallengeGate.h"

namespace kvl::urlloading {

ChallengeHandler ChallengeGate::handler() {
  const std::shared_ptr<void> refusalWhenDropped(
      nullptr, [gate = shared_from_this()](void*) { gate->abort(); });
  return [gate = shared_from_this(), refusalWhenDropped](ChallengeDisposition disposition,
                                                         CredentialRef credential) {
    gate->answer(disposition, std::move(credential));
  };
}

void ChallengeGate::answer(ChallengeDisposition disposition, CredentialRef credential) {
  // Read here, on the thread that evaluated: a trust belongs to one thread at a time.
  settle({disposition, std::move(credential), trust_ ? trust_->verifyError() : 0});
}

void ChallengeGate::abort() {
  settle({});
}

void ChallengeGate::settle(ChallengeAnswer answer) {
  std::lock_guard lock(mutex_);
  if (answer_) return;
  answer_ = std::move(answer);
  answered_.notify_all();
}

ChallengeAnswer ChallengeGate::wait(SteadyTime deadline) {
  std::unique_lock lock(mutex_);
  const auto hasAnswer = [this] { return answer_.has_value(); };
  if (deadline == SteadyTime::max()) {
    answered_.wait(lock, hasAnswer);
  } else {
    answered_.wait_until(lock, deadline, hasAnswer);
  }
  if (!answer_) answer_.emplace();
  return *answer_;
}

}  // namespace kvl::urlloading
