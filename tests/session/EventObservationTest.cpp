// Observers of events beside the delegate, and a stream that is held back.
#include "tests/session/SessionFixture.h"
#include "tests/support/Halt.h"
#include "tests/support/OtherThread.h"
#include "tests/support/TestTLSServer.h"
#include "tests/support/WaitUntil.h"

#include <local/platform/Mutex.h>
#include <local/platform/Semaphore.h>

#include <atomic>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace kvltest;
using namespace std::chrono_literals;
using Events = std::vector<std::shared_ptr<KVLEvent>>;

class EventObservationTest : public SessionFixture {
 protected:
  void SetUp() override {
    create();
    establish();
    session->setEventStreamSource("events");
  }
  void receive(std::string_view bytes) const {
    session->didReceiveData(*loader, session->eventStream()->task(), kvl::Data::fromText(bytes));
  }
};

TEST_F(EventObservationTest, ComesAfterTheDelegateWithTheSameEvents) {
  std::vector<std::size_t> delegateCalls;
  std::vector<std::string> identifiers;
  const auto observation = session->observeEvents([&](const Events& events) {
    delegateCalls.push_back(recorder->batches.size());
    for (const auto& event : events) identifiers.push_back(event->identifier().value_or(""));
  });
  receive("event: a\nid: 1\n\nevent: b\nid: 2\n\n");
  receive("event: c\nid: 3\n\n");
  EXPECT_EQ(delegateCalls, (std::vector<std::size_t>{1, 2}));
  EXPECT_EQ(identifiers, (std::vector<std::string>{"1", "2", "3"}));
}

TEST_F(EventObservationTest, ReadsWithoutADelegateAsLongAsOneLives) {
  session->setDelegate({});
  receive("event: a\nid: 1\n\n");
  EXPECT_EQ(session->eventStream()->lastEventID(), std::nullopt);
  int count = 0;
  auto observation = session->observeEvents([&](auto&&...) { ++count; });
  receive("event: a\nid: 2\n\n");
  EXPECT_EQ(session->eventStream()->lastEventID(), "2");
  observation = {};
  receive("event: a\nid: 3\n\n");
  EXPECT_EQ(session->eventStream()->lastEventID(), "2") << "nothing is read any more";
  EXPECT_EQ(count, 1);
}

TEST_F(EventObservationTest, EndsInside) {
  int count = 0;
  kvl::Observation observation;
  observation = session->observeEvents([&](auto&&...) {
    ++count;
    observation = {};
  });
  receive("event: a\n\n");
  receive("event: b\n\n");
  EXPECT_EQ(count, 1);
  EXPECT_EQ(recorder->batches.size(), 2U);
}

TEST_F(EventObservationTest, EndsOnAnotherThreadWhenACallIsOver) {
  const Halt halt;
  std::atomic<int> over = 0;
  auto observation = session->observeEvents([&, place = halt.place()](auto&&...) {
    place();
    ++over;
  });
  OtherThread receiving([this] { receive("event: a\n\n"); });
  ASSERT_TRUE(halt.isReached());
  OtherThread ending([&] {
    observation = {};
    EXPECT_EQ(over, 1);
  });
  EXPECT_TRUE(ending.isWaiting());
  halt.letGo();
  ending.join();
  receiving.join();
  receive("event: b\n\n");
  EXPECT_EQ(over, 1);
}

// What the stream of before has brought is still told first, and on a queue of its own.
TEST_F(EventObservationTest, KeepsTheOrderAcrossARenewal) {
  const Halt halt;
  kvl::Mutex mutex;
  std::vector<std::string> names;
  const auto observation = session->observeEvents([&, place = halt.place()](const Events& events) {
    place();
    const kvl::MutexLock lock(mutex);
    for (const auto& event : events) names.push_back(event->identifier().value_or(""));
  });
  OtherThread before([this] { receive("event: a\nid: before\n\n"); });
  ASSERT_TRUE(halt.isReached());
  session->enqueueNotarisation();
  notary->answer(signatureEnding(queue->wallTime().adding(1000)));
  OtherThread after([this] { receive("event: a\nid: after\n\n"); });
  EXPECT_TRUE(after.isWaiting());
  halt.letGo();
  before.join();
  after.join();
  EXPECT_EQ(names, (std::vector<std::string>{"before", "after"}));
}

class LeavingSessionTest : public EventObservationTest {
 protected:
  // Brings an event as an HTTPS session object does, which holds its delegate for the call only.
  static void receiveHeld(std::shared_ptr<KVLSession> held,
                          const std::shared_ptr<FakeURLSession>& loader) {
    const auto task = held->eventStream()->task();
    held->didReceiveData(*loader, task, kvl::Data::fromText("event: a\n\n"));
  }
  // Nobody but those who are in a call holds the session any more.
  void letGo() {
    session.reset();
    queue->dropPending();
    loader->dropTasks();
  }
};

TEST_F(LeavingSessionTest, InsideItsObserver) {
  const std::weak_ptr<KVLSession> watch = session;
  int count = 0;
  auto observation = session->observeEvents([&](auto&&...) {
    ++count;
    letGo();
    EXPECT_FALSE(watch.expired());
  });
  const auto others = session->observeEvents([&](auto&&...) { ++count; });
  receiveHeld(session, loader);
  EXPECT_TRUE(watch.expired());
  EXPECT_EQ(count, 2) << "one has missed what had come";
  observation.end();  // of a session that has gone
}

TEST_F(LeavingSessionTest, InsideItsObserverWhoseObservationGoesFirst) {
  const std::weak_ptr<KVLSession> watch = session;
  kvl::Observation observation;
  observation = session->observeEvents([&](auto&&...) {
    letGo();
    observation = {};
  });
  receiveHeld(session, loader);
  EXPECT_TRUE(watch.expired());
}

TEST_F(LeavingSessionTest, OnAnotherThreadDuringACall) {
  const Halt halt;
  std::atomic<int> over = 0;
  auto observation = session->observeEvents([&, place = halt.place()](auto&&...) {
    place();
    ++over;
  });
  const std::weak_ptr<KVLSession> watch = session;
  OtherThread receiving(
      [held = session, loader = loader]() mutable { receiveHeld(std::move(held), loader); });
  ASSERT_TRUE(halt.isReached());
  letGo();  // which waits for nobody
  EXPECT_FALSE(watch.expired());
  OtherThread ending([&] {
    observation.end();
    EXPECT_EQ(over, 1);
  });
  EXPECT_TRUE(ending.isWaiting());
  halt.letGo();
  receiving.join();
  ending.join();
  EXPECT_TRUE(watch.expired());
}

class EventHoldTest : public EventObservationTest {
 protected:
  [[nodiscard]] int suspensions() const {
    return std::dynamic_pointer_cast<FakeDataTask>(session->eventStream()->task())->suspensions;
  }
};

TEST_F(EventHoldTest, TheFirstHoldsAndTheLastLetsGo) {
  session->holdEvents(true);
  EXPECT_EQ(suspensions(), 1);
  session->holdEvents(true);
  session->holdEvents(false);
  EXPECT_EQ(suspensions(), 1);
  session->holdEvents(false);
  EXPECT_EQ(suspensions(), 0);
}

TEST_F(EventHoldTest, AStreamThatIsOpenedMeanwhileBeginsHeldAndOtherTasksDoNot) {
  session->holdEvents(true);
  session->setEventStreamSource("others");
  EXPECT_EQ(suspensions(), 1);
  session->request(kvl::URLRequest("document"));
  EXPECT_EQ(loader->tasks().back()->suspensions, 0);
  session->holdEvents(false);
  EXPECT_EQ(suspensions(), 0);
  session->setEventStreamSource("events");
  EXPECT_EQ(suspensions(), 0);
}

TEST_F(EventHoldTest, WithoutAStreamTheHoldIsKeptForTheNext) {
  session->disconnectAfterError();
  session->holdEvents(true);
  session->setSignature(signatureEnding(queue->wallTime().adding(1000)));
  session->setSession(loader);
  session->setEventStreamSource("others");
  EXPECT_EQ(suspensions(), 1);
  session->holdEvents(false);
}

// A host's own stream state leaves the task of the one before running.
TEST_F(EventHoldTest, AStreamThatIsReplacedMeanwhileIsLetGoOfAsWell) {
  const auto before = loader->tasks().back();
  session->holdEvents(true);
  EXPECT_EQ(before->suspensions, 1);
  session->setEventStream(std::make_shared<KVLEventStreamState>());
  session->setEventStreamSource("others");
  ASSERT_NE(loader->tasks().back(), before);
  EXPECT_EQ(suspensions(), 1);
  session->holdEvents(false);
  EXPECT_EQ(before->suspensions, 0) << "it keeps its connection for good";
  EXPECT_EQ(suspensions(), 0);
}

// A task of the host's own class may wait for another thread that has to do with the session.
TEST_F(EventHoldTest, IsChangedByOthersWhileATaskIsToldAndTheTaskLearnsItInOrder) {
  const Halt halt;
  const auto stream = loader->tasks().back();
  std::vector<bool> told;
  stream->onHold = [&, place = halt.place()](bool holds) {
    if (holds) place();
    told.push_back(holds);
  };
  OtherThread holding([this] { session->holdEvents(true); });
  ASSERT_TRUE(halt.isReached());
  OtherThread lettingGo([this] { session->holdEvents(false); });
  EXPECT_FALSE(lettingGo.isWaiting());
  halt.letGo();
  lettingGo.join();
  holding.join();
  EXPECT_EQ(told, (std::vector<bool>{true, false}));
  EXPECT_EQ(stream->suspensions, 0);
}

TEST_F(EventHoldTest, MayBeChangedByTheTaskThatIsTold) {
  const auto stream = loader->tasks().back();
  stream->onHold = [&](bool holds) {
    EXPECT_EQ(stream->suspensions, holds ? 0 : 1);
    if (holds) session->holdEvents(false);
  };
  session->holdEvents(true);
  EXPECT_EQ(stream->suspensions, 0);
}

// A real stream that brings as much as it is allowed to.
class HeldStreamTest : public SessionFixture {
 protected:
  static constexpr std::size_t kEvents = 300;

  void SetUp() override {
    create();
    auto configuration = session->configuration();
    configuration.deliveryBufferSize = kBuffer;
    session->setConfiguration(configuration);
    session->setDelegate({});
  }
  // A new identity, and with it a new HTTPS session object on which the stream is opened.
  void renew() {
    const auto signature = signatureFor(service.url("127.0.0.1"));
    signature->setAnchor(root.certificateRef());
    signature->setIdentity(client.identity());
    signature->setClient(client.certificateRef());
    *made = [&](const auto& configuration, const auto& delegate) {
      next->inner = kvl::URLSession::create(configuration, delegate);
    };
    session->setAwaitingSignature(false);
    session->enqueueNotarisation();
    notary->answer(signature);
    session->setSession(next->inner);
    session->eventStream()->cancel();
    session->eventStream()->streamFromURL("events", *session);
  }
  // Events of 4 KiB from the one that was asked for on, and how many have left the service.
  void serve(kvl::testing::TestPeer& peer) {
    const auto head = peer.readRequest();
    if (head.empty()) return;
    const std::string field = "Last-Event-ID: ";
    const auto found = head.find(field);
    std::size_t number =
        found == std::string::npos ? 0 : std::stoul(head.substr(found + field.size()));
    if (!peer.write("HTTP/1.1 200 OK\r\nContent-Type: text/event-stream\r\n\r\n")) return;
    const std::string text(4000, 'x');
    while (number < kEvents) {
      const auto event = "event: e\nid: " + std::to_string(number + 1) + "\ndata: " + text + "\n\n";
      if (!peer.write(event)) return;
      sent = ++number;
    }
    static_cast<void>(peer.readRequest());
  }

  static constexpr std::size_t kBuffer = 16384;
  struct Made {
    std::shared_ptr<kvl::URLSession> inner;
  };
  const std::shared_ptr<Made> next = std::make_shared<Made>();
  std::atomic<std::size_t> sent = 0;
  const kvl::testing::TestIdentity root = kvl::testing::makeTestAuthority();
  const kvl::testing::TestIdentity server = kvl::testing::makeTestIdentity({}, &root);
  const kvl::testing::TestIdentity client =
      kvl::testing::makeTestIdentity({.commonName = "client"}, &root);
  const kvl::testing::TestTLSServer service{{.identity = &server, .clientAuthority = &root},
                                            [this](kvl::testing::TestPeer& peer) { serve(peer); }};
};

TEST_F(HeldStreamTest, AHeldStreamBringsNothingMoreAndGoesOnWithEveryEvent) {
  std::atomic<std::size_t> received = 0;
  std::atomic<bool> isWrong = false;
  const auto observation = session->observeEvents([&](const Events& events) {
    for (const auto& event : events)
      if (event->identifier() != std::to_string(++received)) isWrong = true;
  });
  session->holdEvents(true);
  session->holdEvents(true);
  renew();
  ASSERT_TRUE(waitUntil([&] { return sent > 0; }));
  // A renewal keeps the hold.
  renew();
  session->holdEvents(false);
  ASSERT_TRUE(waitUntil([&] { return service.connections() == 2; }));
  EXPECT_EQ(received, 0U);
  session->holdEvents(false);
  ASSERT_TRUE(waitUntil([&] { return received >= kEvents; }));
  EXPECT_FALSE(isWrong);
}

}  // namespace
