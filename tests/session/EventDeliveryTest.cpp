// Events reach the delegate in order and one batch at a time, whatever queues they come on.
#include "tests/session/SessionFixture.h"

#include <local/platform/Mutex.h>

#include <chrono>

namespace {

using namespace kvltest;

// Keeps each call until it is let go.
class SlowDelegate final : public KVLSessionDelegate {
 public:
  void eventStream(KVLSession& /*session*/,
                   const std::vector<std::shared_ptr<KVLEvent>>& events) override {
    kvl::MutexLock lock(mutex_);
    ++running_;
    overlapped_ = overlapped_ || running_ > 1;
    for (const auto& event : events) identifiers_.push_back(event->identifier().value_or("none"));
    changed_.notifyAll();
    while (allowed_ == 0) changed_.wait(lock);
    --allowed_;
    --running_;
  }

  void letOneGo() {
    kvl::MutexLock lock(mutex_);
    ++allowed_;
    changed_.notifyAll();
  }
  void waitForCalls(std::size_t count) {
    kvl::MutexLock lock(mutex_);
    while (identifiers_.size() < count) changed_.wait(lock);
  }
  // Gives a call that must not come some time to come.
  [[nodiscard]] bool isCalledAgainSoon(std::size_t count) {
    kvl::MutexLock lock(mutex_);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(50);
    while (identifiers_.size() < count && changed_.waitUntil(lock, deadline)) {
    }
    return identifiers_.size() >= count;
  }
  [[nodiscard]] std::vector<std::string> identifiers() {
    kvl::MutexLock lock(mutex_);
    return identifiers_;
  }
  [[nodiscard]] bool overlapped() {
    kvl::MutexLock lock(mutex_);
    return overlapped_;
  }

 private:
  kvl::Mutex mutex_;
  kvl::Condition changed_;
  std::vector<std::string> identifiers_ KVL_GUARDED_BY(mutex_);
  int running_ KVL_GUARDED_BY(mutex_) = 0;
  int allowed_ KVL_GUARDED_BY(mutex_) = 0;
  bool overlapped_ KVL_GUARDED_BY(mutex_) = false;
};

class EventDeliveryTest : public SessionFixture {
 protected:
  void SetUp() override {
    session = KVLSession::sessionWithNotary(notary, slow, surroundings());
    establish();
    session->setEventStreamSource("events");
  }

  void receive(const std::string& identifier) {
    session->didReceiveData(*loader, session->eventStream()->task(),
                            kvl::Data::fromText("event: a\nid: " + identifier + "\n\n"));
  }
  void waitUntilRead(std::string_view identifier) {
    while (session->eventStream()->lastEventID() != identifier) std::this_thread::yield();
  }

  const std::shared_ptr<SlowDelegate> slow = std::make_shared<SlowDelegate>();
};

TEST_F(EventDeliveryTest, ARenewedStreamWaitsForTheDelegateToFinishTheOneBefore) {
  std::thread before([this] { receive("1"); });
  slow->waitForCalls(1);
  session->eventStream()->streamFromURL("events", *session);  // as a renewal does
  std::thread after([this] { receive("2"); });
  waitUntilRead("2");
  EXPECT_FALSE(slow->isCalledAgainSoon(2));
  slow->letOneGo();
  slow->waitForCalls(2);
  slow->letOneGo();
  before.join();
  after.join();
  EXPECT_EQ(slow->identifiers(), (std::vector<std::string>{"1", "2"}));
  EXPECT_FALSE(slow->overlapped());
}

TEST_F(EventDeliveryTest, ManyStreamsKeepTheOrderInWhichTheyWereRead) {
  constexpr int kStreams = 8;
  std::vector<std::thread> threads;
  std::vector<std::string> expected;
  for (int i = 0; i < kStreams; ++i) {
    expected.push_back(std::to_string(i));
    threads.emplace_back([this, identifier = expected.back()] { receive(identifier); });
    waitUntilRead(expected.back());
    session->eventStream()->streamFromURL("events", *session);
  }
  for (int i = 0; i < kStreams; ++i) slow->letOneGo();
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(slow->identifiers(), expected);
  EXPECT_FALSE(slow->overlapped());
}

TEST_F(EventDeliveryTest, TheStreamCanBeCancelledWhileTheDelegateIsBusy) {
  std::thread busy([this] { receive("1"); });
  slow->waitForCalls(1);
  session->eventStream()->cancel();
  session->disconnectAfterError();
  EXPECT_EQ(session->eventStream()->task(), nullptr);
  slow->letOneGo();
  busy.join();
}

}  // namespace
