// Order of the handlers, and connections that end while something runs.
#include "tests/ipc/NotaryBusFixture.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <future>
#include <thread>
#include <utility>
#include <vector>

namespace kvltest {
namespace {

using kvl::Dictionary;
using kvl::Error;
using kvl::ipc::ServiceConnection;
using testing::ElementsAre;

const Dictionary kHang{{"act", "hang"}};

class ConnectionLifetimeTest : public NotaryBusFixture {
 protected:
  void SetUp() override { startNotary(); }
};

TEST_F(ConnectionLifetimeTest, ConnectionClosesItselfInsideItsReplyHandler) {
  const auto recorder = CallRecorder::create();
  auto connection = makeConnection();
  connection->activate();
  recorder->send(*connection, std::nullopt, {}, [connection] {
    connection->suspend();
    connection->invalidate();
  });
  const std::weak_ptr<ServiceConnection> weak = std::exchange(connection, nullptr);
  ASSERT_TRUE(recorder->waitForEvents(2));
  EXPECT_THAT(recorder->events(), ElementsAre("reply", "invalidation"));
  // Settled once a later call has gone through: the handlers, which held the connection, are gone.
  (void)callAndWait({});
  EXPECT_TRUE(weak.expired());
}

TEST_F(ConnectionLifetimeTest, ConnectionClosesItselfInsideItsErrorHandler) {
  notary_.kill();
  const auto recorder = CallRecorder::create();
  auto connection = makeConnection();
  connection->resume();
  recorder->send(*connection, std::nullopt, {}, [connection] {
    connection->suspend();
    connection->invalidate();
  });
  const std::weak_ptr<ServiceConnection> weak = std::exchange(connection, nullptr);
  ASSERT_TRUE(recorder->waitForEvents(2));
  (void)callAndWait({});
  EXPECT_THAT(recorder->events(), ElementsAre("error", "invalidation"));
  EXPECT_TRUE(weak.expired());
}

TEST_F(ConnectionLifetimeTest, HandlersRunOnOneThreadThatIsNotTheCallers) {
  const auto first = callAndWait({});
  const auto second = callAndWait({{"act", "exit"}});
  std::vector<std::thread::id> threads = first->threads();
  const auto more = second->threads();
  threads.insert(threads.end(), more.begin(), more.end());
  ASSERT_GE(threads.size(), 3u);
  EXPECT_NE(threads.front(), std::this_thread::get_id());
  EXPECT_EQ(std::count(threads.begin(), threads.end(), threads.front()),
            static_cast<std::ptrdiff_t>(threads.size()));
}

TEST_F(ConnectionLifetimeTest, PostedBlocksRunOnTheThreadOfTheHandlers) {
  const auto threads = callAndWait({})->threads();
  ASSERT_FALSE(threads.empty());
  const auto connection = kvl::ipc::makeServiceConnection(kNotaryName);
  std::promise<std::thread::id> ran;
  connection->post([&] { ran.set_value(std::this_thread::get_id()); });
  EXPECT_EQ(ran.get_future().get(), threads.front());
}

TEST_F(ConnectionLifetimeTest, PostedBlockMayHoldTheLastReference) {
  auto connection = makeConnection();
  const std::weak_ptr<ServiceConnection> weak = connection;
  ServiceConnection& posting = *connection;
  posting.post([connection = std::move(connection)] { connection->invalidate(); });
  (void)callAndWait({});
  EXPECT_TRUE(weak.expired());
}

TEST_F(ConnectionLifetimeTest, InvalidatingEndsTheOutstandingCall) {
  const auto connection = makeConnection();
  const auto recorder = CallRecorder::create();
  connection->activate();
  recorder->send(*connection, std::nullopt, kHang);
  connection->invalidate();
  connection->invalidate();
  recorder->waitForEnd();
  expectFailure(*recorder, kvl::NSCocoaErrorDomain, 4099);
  (void)callAndWait({});
  EXPECT_THAT(recorder->events(), ElementsAre("error", "invalidation"));
}

TEST_F(ConnectionLifetimeTest, CallAfterInvalidatingFails) {
  const auto connection = makeConnection();
  connection->activate();
  connection->invalidate();
  const auto recorder = CallRecorder::create();
  recorder->send(*connection, std::nullopt, {});
  recorder->waitForEnd();
  expectFailure(*recorder, kvl::NSCocoaErrorDomain, 4099);
  EXPECT_EQ(requestsSeen(), 1);
}

TEST_F(ConnectionLifetimeTest, ConnectionCarriesOneCall) {
  const auto connection = makeConnection();
  connection->activate();
  const auto first = CallRecorder::create();
  const auto second = CallRecorder::create();
  first->send(*connection, std::nullopt, {});
  second->send(*connection, std::nullopt, {});
  first->waitForEnd();
  second->waitForEnd();
  EXPECT_TRUE(first->reply().has_value());
  expectFailure(*second, kvl::NSCocoaErrorDomain, 4099);
}

TEST_F(ConnectionLifetimeTest, NothingIsSentBeforeTheStart) {
  const auto connection = makeConnection();
  const auto recorder = CallRecorder::create();
  recorder->send(*connection, std::nullopt, {});
  EXPECT_EQ(requestsSeen(), 1);
  EXPECT_TRUE(recorder->events().empty());
  connection->activate();
  recorder->waitForEnd();
  EXPECT_EQ((*recorder->reply())["requests"].integer(), 2);
}

// On the reply thread, where no answer can come between the two.
void sendAndSuspend(ServiceConnection& connection, CallRecorder& recorder) {
  connection.post([&connection, &recorder] {
    connection.activate();
    recorder.send(connection, std::nullopt, {});
    connection.suspend();
  });
}

TEST_F(ConnectionLifetimeTest, SuspendedConnectionHoldsItsAnswerBack) {
  const auto connection = makeConnection();
  const auto recorder = CallRecorder::create();
  sendAndSuspend(*connection, *recorder);
  waitForOneOtherRequest();
  EXPECT_TRUE(recorder->events().empty());
  connection->resume();
  recorder->waitForEnd();
  EXPECT_THAT(recorder->events(), ElementsAre("reply"));
}

TEST_F(ConnectionLifetimeTest, SuspendedConnectionCanBeInvalidated) {
  const auto connection = makeConnection();
  const auto recorder = CallRecorder::create();
  sendAndSuspend(*connection, *recorder);
  waitForOneOtherRequest();
  connection->invalidate();
  ASSERT_TRUE(recorder->waitForEvents(2));
  EXPECT_THAT(recorder->events(), ElementsAre("error", "invalidation"));
  expectFailure(*recorder, kvl::NSCocoaErrorDomain, 4099);
}

TEST_F(ConnectionLifetimeTest, DroppedConnectionFinishesItsCall) {
  const auto recorder = CallRecorder::create();
  auto connection = makeConnection();
  connection->activate();
  recorder->send(*connection, std::nullopt, {});
  connection.reset();
  recorder->waitForEnd();
  EXPECT_THAT(recorder->events(), ElementsAre("reply"));
}

TEST_F(ConnectionLifetimeTest, ConnectionDroppedBeforeItsStartEndsItsCall) {
  const auto recorder = CallRecorder::create();
  auto connection = makeConnection();
  recorder->send(*connection, std::nullopt, {});
  connection.reset();
  ASSERT_TRUE(recorder->waitForEvents(2));
  EXPECT_THAT(recorder->events(), ElementsAre("error", "invalidation"));
  expectFailure(*recorder, kvl::NSCocoaErrorDomain, 4099);
}

TEST_F(ConnectionLifetimeTest, UnusedConnectionsMayBeDropped) {
  makeConnection().reset();
  auto started = makeConnection();
  started->activate();
  started.reset();
  EXPECT_EQ(requestsSeen(), 1);
}

TEST_F(ConnectionLifetimeTest, ConnectionIsDroppedInsideItsOwnHandlers) {
  for (const Dictionary& request : {Dictionary{}, Dictionary{{"act", "exit"}}}) {
    const auto recorder = CallRecorder::create();
    auto connection = makeConnection();
    connection->activate();
    // The only reference is the one that the handler drops while it runs.
    auto holder = std::make_shared<std::shared_ptr<ServiceConnection>>(connection);
    recorder->send(*connection, std::nullopt, request, [holder] { holder->reset(); });
    connection.reset();
    recorder->waitForEnd();
  }
}

TEST_F(ConnectionLifetimeTest, ConnectionIsDroppedOnAnotherThreadWhileInFlight) {
  const auto recorder = CallRecorder::create();
  auto connection = makeConnection();
  connection->activate();
  recorder->send(*connection, std::nullopt, {});
  std::thread([held = std::exchange(connection, nullptr)]() mutable { held.reset(); }).join();
  recorder->waitForEnd();
  EXPECT_TRUE(recorder->reply().has_value());
}

TEST_F(ConnectionLifetimeTest, HandlersAreReleasedAfterTheyRan) {
  const auto token = std::make_shared<int>(0);
  const auto connection = makeConnection();
  const auto recorder = CallRecorder::create();
  connection->activate();
  recorder->send(*connection, std::nullopt, {}, [token] { ++*token; });
  recorder->waitForEnd();
  (void)callAndWait({});
  EXPECT_EQ(*token, 1);
  EXPECT_EQ(token.use_count(), 1);
}

TEST_F(ConnectionLifetimeTest, ManyCallsOverlap) {
  constexpr int kThreads = 4;
  constexpr int kCallsPerThread = 25;
  std::vector<std::shared_ptr<CallRecorder>> recorders(kThreads * kCallsPerThread);
  std::vector<std::thread> threads;
  for (int thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([&recorders, thread] {
      for (int call = 0; call < kCallsPerThread; ++call) {
        const int number = thread * kCallsPerThread + call;
        const auto connection = makeConnection();
        recorders[number] = CallRecorder::create();
        connection->activate();
        recorders[number]->send(*connection, std::nullopt, {{"number", number}});
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (int number = 0; number < kThreads * kCallsPerThread; ++number) {
    recorders[number]->waitForEnd();
    ASSERT_TRUE(recorders[number]->reply().has_value()) << number;
    EXPECT_EQ((*recorders[number]->reply())["request"], kvl::Value(Dictionary{{"number", number}}));
  }
}

TEST_F(ConnectionLifetimeTest, CallsAreInvalidatedAtEveryStage) {
  // How far each call has come when it is ended is up to the machine; all must end once.
  constexpr int kCalls = 60;
  for (int call = 0; call < kCalls; ++call) {
    const auto recorder = CallRecorder::create();
    const auto connection = makeConnection();
    connection->activate();
    recorder->send(*connection, std::nullopt, {});
    std::this_thread::sleep_for(std::chrono::microseconds(50 * call));
    connection->invalidate();
    ASSERT_TRUE(recorder->waitForEvents(2));
    EXPECT_EQ(recorder->events().size(), 2u);
    EXPECT_EQ(recorder->events().back(), "invalidation");
  }
}

using ConnectionLifetimeDeathTest = NotaryBusFixture;

TEST_F(ConnectionLifetimeDeathTest, ProcessExitsWhileACallIsOutstanding) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  startNotary();
  EXPECT_EXIT(
      {
        const auto recorder = CallRecorder::create();
        const auto connection = makeConnection();
        connection->activate();
        recorder->send(*connection, std::nullopt, kHang);
        waitForOneOtherRequest();
        std::filesystem::remove_all(bus_.directory());  // exiting skips the fixture's end
        std::exit(0);
      },
      testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace kvltest
