// Events reach the delegate in order and one batch at a time, whatever queues they come on.
#include "tests/session/SessionFixture.h"

#include <condition_variable>
#include <mutex>

namespace {

using namespace kvltest;

// Keeps each call until it is let go.
class SlowDelegate final : public KVLSessionDelegate {
 public:
  void eventStream(KVLSession& /*session*/,
                   const std::vector<std::shared_ptr<KVLEvent>>& events) override {
    std::unique_lock lock(mutex_);
    ++running_;
    overlapped_ = overlapped_ || running_ > 1;
    for (const auto& event : events) identifiers_.push_back(event->identifier().value_or("none"));
    changed_.notify_all();
    changed_.wait(lock, [this] { return allowed_ > 0; });
    --allowed_;
    --running_;
  }

  void letOneGo() {
    std::lock_guard lock(mutex_);
    ++allowed_;
    changed_.notify_all();
  }
  void waitForCalls(std::size_t count) {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return identifiers_.size() >= count; });
  }
  // Gives a call that must not come some time to come.
  [[nodiscard]] bool isCalledAgainSoon(std::size_t count) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, std::chrono::milliseconds(50),
                             [&] { return identifiers_.size() >= count; });
  }
  [[nodiscard]] std::vector<std::string> identifiers() {
    std::lock_guard lock(mutex_);
    return identifiers_;
  }
  [[nodiscard]] bool overlapped() {
    std::lock_guard lock(mutex_);
    return overlapped_;
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<std::string> identifiers_;
  int running_ = 0;
  int allowed_ = 0;
  bool overlapped_ = false;
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
