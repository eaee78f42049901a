// A session with a notary, a queue and an HTTPS session object that the test drives.
#pragma once

#include "platform/environment/Environment.h"
#include "tests/support/DrivenQueue.h"
#include "tests/support/FakeNotary.h"
#include "tests/support/FakeURLSession.h"
#include "tests/support/LogCapture.h"

#include <local/KVLSession.h>
#include <local/platform/SystemVersion.h>

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace kvltest {

inline kvl::Error recoverableError() {
  return {kvl::NSPOSIXErrorDomain, ENOENT};
}
inline kvl::Error finalError() {
  return {kvl::NSCocoaErrorDomain, 4099};
}
inline kvl::Error notarisationError() {
  return {kvl::NSURLErrorDomain, kvl::NSURLErrorClientCertificateRejected};
}

class Recorder final : public KVLSessionDelegate {
 public:
  void eventStream(KVLSession& session,
                   const std::vector<std::shared_ptr<KVLEvent>>& events) override {
    sender = &session;
    batches.push_back(events);
  }
  const KVLSession* sender = nullptr;
  std::vector<std::vector<std::shared_ptr<KVLEvent>>> batches;
};

class SessionFixture : public testing::Test {
 protected:
  ~SessionFixture() override {
    letGoOfTheSession();
    kvl::setSystemVersion(kvl::kDefaultSystemVersion);
  }

  // Nothing but timers, outstanding calls and running requests keeps a session; what the world
  // still holds of it is taken away until it is gone. The time limit of the test is the limit here.
  void letGoOfTheSession() {
    if (!session) return;
    session->setSession(nullptr);
    session->eventStream()->cancel();
    const std::weak_ptr<KVLSession> watch = session;
    session.reset();
    while (!watch.expired()) {
      notary->drop();
      queue->dropPending();
      loader->dropTasks();
      std::this_thread::yield();
    }
  }

  void create() { session = KVLSession::sessionWithNotary(notary, recorder, surroundings()); }

  // The test's queue and clock, and HTTPS session objects that send nothing.
  [[nodiscard]] std::shared_ptr<const kvl::Environment> surroundings() const {
    auto environment = std::make_shared<kvl::Environment>();
    environment->now = [queue = queue] { return queue->wallTime(); };
    environment->concurrentQueue = [queue = queue](const std::string&) { return queue; };
    environment->frameworkQueue = environment->concurrentQueue;
    environment->urlSession = [made = made](const auto&... given) {
      if (*made) (*made)(given...);
      return std::make_shared<FakeURLSession>();
    };
    return environment;
  }

  // Establishes the session and puts the fake HTTPS session object in place.
  void establish(const std::shared_ptr<KVLNotarySignature>& signature) {
    notary->answer(signature);
    session->setSession(loader);
  }
  void establish() { establish(signatureEnding(queue->wallTime().adding(1000))); }

  // The state of things that the table of states speaks of.
  struct Snapshot {
    KVLSessionState state;
    std::vector<double> delays;
  };
  [[nodiscard]] Snapshot snapshot() { return {session->state(), queue->takeDelays()}; }

  // Called with what each HTTPS session object of the session's is made with, before it is there.
  using WhenMade = std::function<void(const kvl::URLSessionConfiguration&,
                                      const std::weak_ptr<kvl::URLSessionDelegate>&)>;
  const std::shared_ptr<WhenMade> made = std::make_shared<WhenMade>();

  const LogCapture log;
  const std::shared_ptr<DrivenQueue> queue = std::make_shared<DrivenQueue>();
  const std::shared_ptr<FakeNotary> notary = std::make_shared<FakeNotary>();
  const std::shared_ptr<FakeURLSession> loader = std::make_shared<FakeURLSession>();
  const std::shared_ptr<Recorder> recorder = std::make_shared<Recorder>();
  std::shared_ptr<KVLSession> session;
};

}  // namespace kvltest
