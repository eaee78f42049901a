#include "tests/urlloading/URLSessionFixture.h"

#include <stdexcept>

namespace kvl::testing {
namespace {

constexpr std::chrono::seconds kPatience{30};

}  // namespace

void RecordingDelegate::didReceiveChallenge(URLSession&, const Challenge& challenge,
                                            ChallengeHandler completionHandler) {
  const ProtectionSpace& space = challenge.protectionSpace;
  if (space.authenticationMethod == NSURLAuthenticationMethodClientCertificate) {
    {
      std::lock_guard lock(mutex_);
      clientHosts_.push_back(space.host);
    }
    if (credential) return completionHandler(ChallengeDisposition::useCredential, credential);
    return completionHandler(ChallengeDisposition::rejectProtectionSpace, nullptr);
  }
  {
    std::lock_guard lock(mutex_);
    ++trustChallenges_;
  }
  TrustResult result = TrustResult::invalid;
  if (anchor && space.serverTrust->setAnchorCertificates({anchor}) == kSuccess &&
      space.serverTrust->evaluate(result) == kSuccess && result == TrustResult::unspecified)
    return completionHandler(ChallengeDisposition::useCredential,
                             Credential::credentialForTrust(space.serverTrust));
  completionHandler(ChallengeDisposition::rejectProtectionSpace, nullptr);
}

void RecordingDelegate::didReceiveData(URLSession&, const std::shared_ptr<DataTask>& task,
                                       const Data& data) {
  {
    std::lock_guard lock(mutex_);
    chunks_.emplace_back(data.text());
    changed_.notify_all();
  }
  if (onData) onData(task);
}

void RecordingDelegate::didCompleteWithError(URLSession&, const std::shared_ptr<DataTask>&,
                                             const std::optional<Error>& error) {
  if (onCompletion) onCompletion();
  std::lock_guard lock(mutex_);
  ++completions_;
  error_ = error;
  changed_.notify_all();
}

std::optional<Error> RecordingDelegate::waitForCompletion() {
  std::unique_lock lock(mutex_);
  EXPECT_TRUE(changed_.wait_for(lock, kPatience, [this] { return completions_ > 0; }));
  return error_;
}

void RecordingDelegate::waitForBytes(std::size_t count) {
  std::unique_lock lock(mutex_);
  EXPECT_TRUE(changed_.wait_for(lock, kPatience, [&] {
    std::size_t total = 0;
    for (const auto& chunk : chunks_) total += chunk.size();
    return total >= count;
  }));
}

std::vector<std::string> RecordingDelegate::chunks() {
  std::lock_guard lock(mutex_);
  return chunks_;
}

std::string RecordingDelegate::text() {
  std::string all;
  for (const auto& chunk : chunks()) all += chunk;
  return all;
}

int RecordingDelegate::completions() {
  std::lock_guard lock(mutex_);
  return completions_;
}

std::vector<std::string> RecordingDelegate::clientChallengeHosts() {
  std::lock_guard lock(mutex_);
  return clientHosts_;
}

int RecordingDelegate::trustChallenges() {
  std::lock_guard lock(mutex_);
  return trustChallenges_;
}

DataTaskHandler OutcomeBox::handler() {
  return [content = content_](std::optional<Data> body, URLResponseRef response,
                              std::optional<Error> error) {
    std::lock_guard lock(content->mutex);
    EXPECT_FALSE(content->outcome) << "a second completion";
    content->outcome = Outcome{std::move(body), std::move(response), std::move(error)};
    content->changed.notify_all();
  };
}

Outcome OutcomeBox::wait() {
  std::unique_lock lock(content_->mutex);
  if (!content_->changed.wait_for(lock, kPatience,
                                  [this] { return content_->outcome.has_value(); }))
    throw std::runtime_error("no completion");
  return *content_->outcome;
}

Outcome load(URLSession& session, const URLRequest& request) {
  OutcomeBox box;
  session.dataTask(request, box.handler())->resume();
  return box.wait();
}

void URLSessionTest::SetUpTestSuite() {
  static_cast<void>(root());
  static_cast<void>(server());
}

const TestIdentity& URLSessionTest::root() {
  static const auto* const made = new TestIdentity(makeTestAuthority());
  return *made;
}

const TestIdentity& URLSessionTest::server() {
  static const auto* const made = new TestIdentity(makeTestIdentity({}, &root()));
  return *made;
}

CredentialRef URLSessionTest::credentialOf(const TestIdentity& identity) {
  return std::make_shared<const Credential>(identity.identity(), std::vector<CertificateRef>{},
                                            Credential::Persistence::none);
}

std::shared_ptr<RecordingDelegate> URLSessionTest::makeDelegate(bool withIdentity) {
  auto made = std::make_shared<RecordingDelegate>();
  made->anchor = root().certificateRef();
  if (withIdentity) {
    static const auto* const client =
        new TestIdentity(makeTestIdentity({.commonName = "client"}, &root()));
    made->credential = credentialOf(*client);
  }
  return made;
}

}  // namespace kvl::testing
