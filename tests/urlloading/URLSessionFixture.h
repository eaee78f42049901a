#pragma once

#include "tests/support/TestTLSServer.h"

#include <local/platform/Mutex.h>
#include <local/platform/URLSession.h>

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kvl::testing {

// Trusts one anchor, presents one identity, and remembers what it was told.
class RecordingDelegate : public URLSessionDelegate {
 public:
  CertificateRef anchor;
  CredentialRef credential;
  std::function<void(const std::shared_ptr<DataTask>&)> onData;
  std::function<void()> onCompletion;

  void didReceiveChallenge(URLSession& session, const Challenge& challenge,
                           ChallengeHandler completionHandler) override;
  void didReceiveData(URLSession& session, const std::shared_ptr<DataTask>& task,
                      const Data& data) override;
  void didCompleteWithError(URLSession& session, const std::shared_ptr<DataTask>& task,
                            const std::optional<Error>& error) override;

  [[nodiscard]] std::optional<Error> waitForCompletion();
  // Waits until `count` bytes have come in all.
  void waitForBytes(std::size_t count);
  [[nodiscard]] std::vector<std::string> chunks();
  [[nodiscard]] std::string text();
  [[nodiscard]] int completions();
  [[nodiscard]] std::vector<std::string> clientChallengeHosts();
  [[nodiscard]] int trustChallenges();

 private:
  [[nodiscard]] std::size_t receivedBytes() const KVL_REQUIRES(mutex_);

  Mutex mutex_;
  Condition changed_;
  std::vector<std::string> chunks_ KVL_GUARDED_BY(mutex_);
  std::vector<std::string> clientHosts_ KVL_GUARDED_BY(mutex_);
  int trustChallenges_ KVL_GUARDED_BY(mutex_) = 0;
  int completions_ KVL_GUARDED_BY(mutex_) = 0;
  std::optional<Error> error_ KVL_GUARDED_BY(mutex_);
};

struct Outcome {
  std::optional<Data> body;
  URLResponseRef response;
  std::optional<Error> error;

  [[nodiscard]] std::string text() const { return body ? std::string(body->text()) : "(absent)"; }
  [[nodiscard]] std::int64_t code() const { return error ? error->code() : 0; }
};

// Takes one task's outcome and waits for it.
class OutcomeBox {
 public:
  [[nodiscard]] DataTaskHandler handler();
  [[nodiscard]] Outcome wait();

 private:
  struct Content {
    Mutex mutex;
    Condition changed;
    std::optional<Outcome> outcome KVL_GUARDED_BY(mutex);
  };
  std::shared_ptr<Content> content_ = std::make_shared<Content>();
};

// The folders, below /proc, of the threads that wait for what servers send.
[[nodiscard]] std::vector<std::filesystem::path> inputThreads();

// How often these threads have gone to sleep.
[[nodiscard]] long sleepsOf(const std::vector<std::filesystem::path>& threads);

[[nodiscard]] Outcome load(URLSession& session, const URLRequest& request);

// An authority, a server and a client identity of it, and a session object that uses them.
class URLSessionTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite();

  [[nodiscard]] static const TestIdentity& root();
  [[nodiscard]] static const TestIdentity& server();
  [[nodiscard]] static CredentialRef credentialOf(const TestIdentity& identity);
  [[nodiscard]] static std::shared_ptr<RecordingDelegate> makeDelegate(bool withIdentity = true);

  // Peers without an identity speak HTTP in clear text.
  [[nodiscard]] static URLSessionConfiguration anyPeers();

  std::shared_ptr<RecordingDelegate> delegate = makeDelegate();
  std::shared_ptr<URLSession> session = URLSession::create(anyPeers(), delegate);
};

}  // namespace kvl::testing
