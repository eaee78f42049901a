// Renewals, cancelled requests and other sources at random against a service that is there, from
// three threads at once. `KVL_SEED=N` has each thread do the same again, `KVL_STEPS=N` do more.
#include "tests/session/SessionFixture.h"
#include "tests/session/Settings.h"
#include "tests/support/TestTLSServer.h"
#include "tests/support/WaitUntil.h"

#include <local/platform/Mutex.h>

#include <random>
#include <thread>

namespace {

using namespace kvltest;
using kvl::testing::TestPeer;

// Answers a request with its path, and follows an event stream up from the event that it names.
void serve(TestPeer& peer) {
  while (true) {
    const std::string head = peer.readRequest();
    if (head.empty()) return;
    const auto path = head.substr(4, head.find(' ', 4) - 4);
    if (!path.starts_with("/events")) {
      if (!peer.write(kvl::testing::httpResponse(path))) return;
      continue;
    }
    const std::string field = "Last-Event-ID: ";
    const auto found = head.find(field);
    std::int64_t number =
        found == std::string::npos ? 0 : std::stoll(head.substr(found + field.size()));
    if (!peer.write("HTTP/1.1 200 OK\r\nContent-Type: text/event-stream\r\n\r\n")) return;
    while (peer.write("event: e\nid: " + std::to_string(++number) + "\n\n")) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return;
  }
}

// Answers at once, on threads of its own.
class PromptNotary final : public KVLNotary {
 public:
  explicit PromptNotary(std::function<std::shared_ptr<KVLNotarySignature>()> make)
      : KVLNotary(WithoutKeys{}), make_(std::move(make)) {}
  void notariseWithCompletionHandler(CompletionHandler handler) override {
    if (closed) return;
    queue_->async([handler = std::move(handler), make = make_] { handler(make(), std::nullopt); });
  }
  std::atomic<bool> closed = false;

 private:
  const std::function<std::shared_ptr<KVLNotarySignature>()> make_;
  const std::shared_ptr<kvl::DispatchQueue> queue_ = kvl::DispatchQueue::concurrent("notary");
};

// Sees that events come in order, each once, and calls one by one.
class OrderedDelegate final : public KVLSessionDelegate {
 public:
  void eventStream(KVLSession& /*session*/,
                   const std::vector<std::shared_ptr<KVLEvent>>& events) override {
    if (isRunning_.exchange(true)) ++wrong;
    for (const auto& event : events) {
      if (event->identifier() != std::to_string(++count)) ++wrong;
    }
    isRunning_ = false;
  }
  std::atomic<std::int64_t> count = 0;
  std::atomic<int> wrong = 0;

 private:
  std::atomic<bool> isRunning_ = false;
};

class LiveRacesTest : public testing::Test {
 protected:
  [[nodiscard]] std::shared_ptr<KVLNotarySignature> signature() const {
    auto made = signatureFor(service.url("127.0.0.1"));
    made->setAnchor(root.certificateRef());
    made->setIdentity(client.identity());
    made->setClient(client.certificateRef());
    return made;
  }

  void sendAndPerhapsCancel(std::uint64_t number) {
    const auto path = "document-" + std::to_string(sent++);
    const bool isCancelled = number % 2 != 0;
    const auto calls = std::make_shared<std::atomic<int>>(0);
    const auto task = session->request(
        kvl::URLRequest(path),
        [this, path, calls, isCancelled](const auto& data, const auto&, const auto&) {
          if (++*calls > 1) ++wrong;
          if (!data && !isCancelled) ++lost;
          if (data && data->text() != '/' + path) ++wrong;
          ++answered;
        });
    if (!task || !isCancelled) return;
    if (number % 4 == 1) std::this_thread::sleep_for(std::chrono::milliseconds(number % 5));
    task->cancel();
  }

  template <class Action>
  [[nodiscard]] std::jthread repeat(std::uint64_t seed, std::uint64_t steps, Action action) {
    return std::jthread([seed, steps, action] {
      std::mt19937_64 random(seed);
      for (std::uint64_t step = 0; step < steps; ++step) {
        action(random());
        std::this_thread::sleep_for(std::chrono::milliseconds(random() % 4));
      }
    });
  }

  const LogCapture log;
  const kvl::testing::TestIdentity root = kvl::testing::makeTestAuthority();
  const kvl::testing::TestIdentity server = kvl::testing::makeTestIdentity({}, &root);
  const kvl::testing::TestIdentity client =
      kvl::testing::makeTestIdentity({.commonName = "client"}, &root);
  const kvl::testing::TestTLSServer service{{.identity = &server, .clientAuthority = &root}, serve};
  std::atomic<std::uint64_t> sent = 0;
  std::atomic<std::uint64_t> answered = 0;
  std::atomic<int> lost = 0;
  std::atomic<int> wrong = 0;
  std::shared_ptr<KVLSession> session;
};

TEST_F(LiveRacesTest, RenewalsCancelsAndSourcesAtRandomLoseAndDoubleNothing) {
  const auto seed = setting("KVL_SEED", 1);
  const auto steps = setting("KVL_STEPS", 100);
  SCOPED_TRACE("KVL_SEED=" + std::to_string(seed));
  const auto events = std::make_shared<OrderedDelegate>();
  const auto notary = std::make_shared<PromptNotary>([this] { return signature(); });
  session = KVLSession::sessionWithNotary(notary, events);
  ASSERT_TRUE(waitUntil([&] { return session->state() == KVLSessionStateEstablished; }));
  session->setEventStreamSource("events?0");
  {
    const auto renewing =
        repeat(seed, steps, [this](std::uint64_t) { session->enqueueNotarisation(); });
    const auto requesting =
        repeat(seed + 1, steps, [this](std::uint64_t number) { sendAndPerhapsCancel(number); });
    const auto choosing = repeat(seed + 2, steps, [this](std::uint64_t number) {
      session->setEventStreamSource("events?" + std::to_string(number % 3));
    });
  }
  EXPECT_TRUE(waitUntil([&] { return answered == sent && !session->awaitingSignature(); }));
  const auto count = events->count.load();
  EXPECT_TRUE(waitUntil([&] { return events->count > count; })) << "the stream has stopped";
  EXPECT_EQ(session->state(), KVLSessionStateEstablished);
  EXPECT_EQ(lost, 0) << "requests that nobody cancelled";
  EXPECT_EQ(wrong, 0);
  EXPECT_EQ(events->wrong, 0) << "an event was lost, doubled or out of order";
  notary->closed = true;
  session->disconnectAfterError();
}

}  // namespace
