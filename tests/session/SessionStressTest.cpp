// Renewals, forced disconnects, requests, source changes and destruction race: each request is
// answered once, one notarisation is outstanding at most, and states change as they may. The thread
// sanitizer and the test's time limit watch for data races and deadlocks.
#include "tests/session/SessionFixture.h"
#include "tests/support/WaitUntil.h"

#include <atomic>
#include <random>
#include <thread>

namespace {

using namespace kvltest;
using namespace std::chrono_literals;

// Answers every call from threads of its own, with all kinds of answers; the first only when the
// session has got its queue, lest a timer stay behind on another.
class RestlessNotary final : public KVLNotary {
 public:
  RestlessNotary() : KVLNotary(WithoutKeys{}) {}

  void notariseWithCompletionHandler(CompletionHandler handler) override {
    const auto number = ++calls;
    if (outstanding->exchange(true)) ++doubled;
    queue_->async([handler = std::move(handler), number, ready = ready, outstanding = outstanding] {
      while (!*ready) std::this_thread::yield();
      *outstanding = false;
      if (number % 7 == 0) return handler(nullptr, recoverableError());
      if (number % 11 == 0) return handler(nullptr, std::nullopt);
      handler(signatureFor("https://127.0.0.1:9/"), std::nullopt);
    });
  }
  std::atomic<std::size_t> calls = 0;
  std::atomic<std::size_t> doubled = 0;
  const std::shared_ptr<std::atomic<bool>> outstanding = std::make_shared<std::atomic<bool>>(false);
  const std::shared_ptr<std::atomic<bool>> ready = std::make_shared<std::atomic<bool>>(false);

 private:
  const std::shared_ptr<kvl::DispatchQueue> queue_ = kvl::DispatchQueue::concurrent("notary");
};

// Runs everything at once, whatever the delay, until it is closed.
class HastyQueue final : public kvl::DispatchQueue {
 public:
  void async(Block block) override {
    if (!closed) inner_->async(std::move(block));
  }
  void asyncAfter(std::chrono::nanoseconds, Block block) override {
    if (!closed) inner_->asyncAfter(100us, std::move(block));
  }
  [[nodiscard]] const std::string& label() const noexcept override { return inner_->label(); }
  std::atomic<bool> closed = false;

 private:
  const std::shared_ptr<kvl::DispatchQueue> inner_ = kvl::DispatchQueue::concurrent("hasty");
};

// A fake HTTPS session object whose tasks fail with a notarisation error on other threads.
class RefusingLoader final : public kvl::URLSession {
 public:
  [[nodiscard]] std::shared_ptr<kvl::DataTask> dataTask(const kvl::URLRequest& request) override {
    return dataTask(request, nullptr);
  }
  [[nodiscard]] std::shared_ptr<kvl::DataTask> dataTask(const kvl::URLRequest& request,
                                                        kvl::DataTaskHandler handler) override {
    static std::atomic<std::uint64_t> next = 2'000'000;
    auto task = std::make_shared<FakeDataTask>(next++, request, std::move(handler));
    queue_->async([task] { task->fail(notarisationError()); });
    return task;
  }
  void finishTasksAndInvalidate() override {}
  void invalidateAndCancel() override {}
  [[nodiscard]] const kvl::URLSessionConfiguration& configuration() const noexcept override {
    return configuration_;
  }

 private:
  const std::shared_ptr<kvl::DispatchQueue> queue_ = kvl::DispatchQueue::concurrent("loader");
  const kvl::URLSessionConfiguration configuration_;
};

// Requests, and how often their handlers were called.
struct Requests {
  void send(KVLSession& session) {
    const auto calls = std::make_shared<std::atomic<int>>(0);
    ++sent;
    session.request(kvl::URLRequest("x"), [this, calls](const auto& data, const auto&,
                                                        const std::optional<kvl::Error>& error) {
      if (data || !error) ++wrong;
      if (++*calls > 1) ++wrong;
      ++answered;
    });
  }
  std::atomic<std::size_t> sent = 0;
  std::atomic<std::size_t> answered = 0;
  std::atomic<std::size_t> wrong = 0;
};

// On one queue, so one call at a time.
struct States {
  void enter(KVLSessionState state) {
    const bool mayFollow = !last || (state != *last && state != KVLSessionStateConnecting);
    if (!mayFollow) ++wrong;
    last = state;
    ++entered;
  }
  std::optional<KVLSessionState> last;
  std::atomic<std::size_t> entered = 0;
  std::atomic<std::size_t> wrong = 0;
};

template <class Action>
std::jthread repeatedly(Action action) {
  return std::jthread([action](const std::stop_token& stop) mutable {
    while (!stop.stop_requested()) {
      action();
      std::this_thread::yield();
    }
  });
}

void raceOnce(std::size_t notarisations) {
  const auto notary = std::make_shared<RestlessNotary>();
  const auto queue = std::make_shared<HastyQueue>();
  auto recorder = std::make_shared<Recorder>();
  Requests requests;
  States states;
  auto session = KVLSession::sessionWithNotary(notary, recorder);
  session->setQueue(queue);
  *notary->ready = true;
  auto observation =
      session->observeState([&states](KVLSessionState state) { states.enter(state); });
  {
    std::vector<std::jthread> threads;
    threads.push_back(repeatedly([&] { session->disconnectAfterError(); }));
    threads.push_back(repeatedly([&] { session->enqueueNotarisation(); }));
    threads.push_back(repeatedly([&] {
      session->setSession(std::make_shared<RefusingLoader>());
      requests.send(*session);
    }));
    threads.push_back(repeatedly([&, number = 0]() mutable {
      session->setEventStreamSource(++number % 2 == 0 ? "even" : "https://127.0.0.1:9/odd");
    }));
    threads.push_back(repeatedly([&] {
      const auto stream = session->eventStream();
      if (const auto task = stream->task()) {
        session->didReceiveData(*std::make_shared<FakeURLSession>(), task,
                                kvl::Data::fromText("event: a\nid: 1\n\n"));
        session->didCompleteWithError(*std::make_shared<FakeURLSession>(), task, std::nullopt);
      }
    }));
    while (notary->calls < notarisations) std::this_thread::yield();
    recorder.reset();
  }
  queue->closed = true;
  observation.end();
  const std::weak_ptr<KVLSession> watch = session;
  session->setSession(nullptr);
  session.reset();
  while (!watch.expired()) std::this_thread::yield();
  EXPECT_TRUE(waitUntil([&] { return requests.answered == requests.sent; }));
  EXPECT_GT(requests.sent, 0U);
  EXPECT_EQ(requests.wrong, 0U);
  EXPECT_EQ(notary->doubled, 0U);
  EXPECT_EQ(states.wrong, 0U);
  EXPECT_GT(states.entered, 2U);
}

TEST(SessionStressTest, EverythingMayRaceWithEverything) {
  const auto previous = kvl::setLogSink([](std::string_view) {});
  raceOnce(300);
  kvl::setLogSink(previous);
}

TEST(SessionStressTest, SessionsMayBeLetGoOfWhileTheyRace) {
  const auto previous = kvl::setLogSink([](std::string_view) {});
  for (int round = 0; round < 10; ++round) {
    const auto notary = std::make_shared<RestlessNotary>();
    const auto queue = std::make_shared<HastyQueue>();
    Requests requests;
    std::weak_ptr<KVLSession> watch;
    {
      const auto recorder = std::make_shared<Recorder>();
      const auto session = KVLSession::sessionWithNotary(notary, recorder);
      watch = session;
      session->setQueue(queue);
      *notary->ready = true;
      std::jthread disconnecting([session] { session->disconnectAfterError(); });
      std::jthread requesting([session, &requests] { requests.send(*session); });
      session->enqueueNotarisation();
    }
    // Nothing but the timers kept the session; the time limit of the test is the limit here.
    queue->closed = true;
    while (!watch.expired()) std::this_thread::yield();
    EXPECT_TRUE(waitUntil([&] { return requests.answered == 1U; }));
    EXPECT_EQ(requests.wrong, 0U);
    EXPECT_EQ(notary->doubled, 0U);
  }
  kvl::setLogSink(previous);
}

}  // namespace
