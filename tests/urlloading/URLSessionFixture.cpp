#include "tests/urlloading/URLSessionFixture.h"

#include "platform/core/NoDestructor.h"

#include <chrono>
#include <fstream>
#include <stdexcept>

namespace kvl::testing {
namespace {

constexpr std::chrono::seconds kPatience{30};

auto patienceEnds() {
  return std::chrono::steady_clock::now() + kPatience;
}

}  // namespace

void RecordingDelegate::didReceiveChallenge(URLSession&, const Challenge& challenge,
                                            ChallengeHandler completionHandler) {
  const ProtectionSpace& space = challenge.protectionSpace;
  if (space.authenticationMethod == NSURLAuthenticationMethodClientCertificate) {
    {
      const MutexLock lock(mutex_);
      clientHosts_.push_back(space.host);
    }
    if (credential) return completionHandler(ChallengeDisposition::useCredential, credential);
    return completionHandler(ChallengeDisposition::rejectProtectionSpace, nullptr);
  }
  {
    const MutexLock lock(mutex_);
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
    const MutexLock lock(mutex_);
    chunks_.emplace_back(data.text());
    changed_.notifyAll();
  }
  if (onData) onData(task);
}

void RecordingDelegate::didCompleteWithError(URLSession&, const std::shared_ptr<DataTask>&,
                                             const std::optional<Error>& error) {
  if (onCompletion) onCompletion();
  const MutexLock lock(mutex_);
  ++completions_;
  error_ = error;
  changed_.notifyAll();
}

std::optional<Error> RecordingDelegate::waitForCompletion() {
  const auto deadline = patienceEnds();
  MutexLock lock(mutex_);
  while (completions_ == 0 && changed_.waitUntil(lock, deadline)) continue;
  EXPECT_GT(completions_, 0);
  return error_;
}

void RecordingDelegate::waitForBytes(std::size_t count) {
  const auto deadline = patienceEnds();
  MutexLock lock(mutex_);
  while (receivedBytes() < count && changed_.waitUntil(lock, deadline)) continue;
  EXPECT_GE(receivedBytes(), count);
}

std::size_t RecordingDelegate::receivedBytes() const {
  std::size_t total = 0;
  for (const auto& chunk : chunks_) total += chunk.size();
  return total;
}

std::vector<std::string> RecordingDelegate::chunks() {
  const MutexLock lock(mutex_);
  return chunks_;
}

std::string RecordingDelegate::text() {
  std::string all;
  for (const auto& chunk : chunks()) all += chunk;
  return all;
}

int RecordingDelegate::completions() {
  const MutexLock lock(mutex_);
  return completions_;
}

std::vector<std::string> RecordingDelegate::clientChallengeHosts() {
  const MutexLock lock(mutex_);
  return clientHosts_;
}

int RecordingDelegate::trustChallenges() {
  const MutexLock lock(mutex_);
  return trustChallenges_;
}

DataTaskHandler OutcomeBox::handler() {
  return [content = content_](std::optional<Data> body, URLResponseRef response,
                              std::optional<Error> error) {
    const MutexLock lock(content->mutex);
    EXPECT_FALSE(content->outcome) << "a second completion";
    content->outcome = Outcome{std::move(body), std::move(response), std::move(error)};
    content->changed.notifyAll();
  };
}

Outcome OutcomeBox::wait() {
  const auto deadline = patienceEnds();
  Content& content = *content_;
  MutexLock lock(content.mutex);
  while (!content.outcome && content.changed.waitUntil(lock, deadline)) continue;
  if (!content.outcome) throw std::runtime_error("no completion");
  return *content.outcome;
}

std::vector<std::filesystem::path> inputThreads() {
  std::vector<std::filesystem::path> threads;
  for (const auto& thread : std::filesystem::directory_iterator("/proc/self/task")) {
    std::string name;
    std::getline(std::ifstream(thread.path() / "comm"), name);
    if (name.ends_with(".io")) threads.push_back(thread.path());
  }
  return threads;
}

long sleepsOf(const std::vector<std::filesystem::path>& threads) {
  long count = 0;
  for (const auto& thread : threads) {
    std::ifstream status(thread / "status");
    for (std::string word; status >> word;) {
      if (word != "voluntary_ctxt_switches:") continue;
      long own = 0;
      status >> own;
      count += own;
    }
  }
  return count;
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
  static const NoDestructor<TestIdentity> made(makeTestAuthority());
  return *made;
}

const TestIdentity& URLSessionTest::server() {
  static const NoDestructor<TestIdentity> made(makeTestIdentity({}, &root()));
  return *made;
}

URLSessionConfiguration URLSessionTest::anyPeers() {
  auto configuration = URLSessionConfiguration::ephemeral();
  configuration.allowsInsecureHTTPLoads = true;
  return configuration;
}

CredentialRef URLSessionTest::credentialOf(const TestIdentity& identity) {
  return std::make_shared<const Credential>(identity.identity(), std::vector<CertificateRef>{},
                                            Credential::Persistence::none);
}

std::shared_ptr<RecordingDelegate> URLSessionTest::makeDelegate(bool withIdentity) {
  auto made = std::make_shared<RecordingDelegate>();
  made->anchor = root().certificateRef();
  if (withIdentity) {
    static const NoDestructor<TestIdentity> client(
        makeTestIdentity({.commonName = "client"}, &root()));
    made->credential = credentialOf(*client);
  }
  return made;
}

}  // namespace kvl::testing
