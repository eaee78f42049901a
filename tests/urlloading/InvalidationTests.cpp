// Session objects that are invalidated while their tasks wait for the host.
#include "tests/support/Halt.h"
#include "tests/support/WaitUntil.h"
#include "tests/urlloading/BodySourceFixture.h"
#include "tests/urlloading/TextSource.h"

#include <local/platform/Semaphore.h>

#include <atomic>
#include <memory>
#include <optional>
#include <thread>
#include <utility>

namespace kvl::testing {
namespace {

// What a task told, by a handler or a receiver that holds something.
class Told {
 public:
  [[nodiscard]] DataTaskHandler handler() {
    return [this, held = held_](const auto&, const auto&, const std::optional<Error>& error) {
      note(error);
    };
  }
  [[nodiscard]] BodyReceiver receiver() {
    return {{},
            [this](const Data&) {
              if (onPiece) onPiece();
            },
            [this, held = held_](const auto&, const std::optional<Error>& error) { note(error); }};
  }
  // Waits until what the task held is gone, after which it tells nothing any more.
  void expectOneCancellation() {
    ASSERT_TRUE(told_.waitFor(std::chrono::seconds(60)));
    const std::weak_ptr<int> watched = std::exchange(held_, nullptr);
    EXPECT_TRUE(kvltest::waitUntil([&] { return watched.expired(); }));
    EXPECT_EQ(calls_, 1);
    EXPECT_EQ(code_, NSURLErrorCancelled);
  }
  // Called in each piece. Set before anything is sent.
  std::function<void()> onPiece;

 private:
  void note(const std::optional<Error>& error) {
    ++calls_;
    code_ = error ? error->code() : 0;
    told_.signal();
  }

  std::shared_ptr<int> held_ = std::make_shared<int>(0);
  std::atomic<int> calls_ = 0;
  std::atomic<std::int64_t> code_ = 0;
  Semaphore told_;
};

// Answers in part before it reads what follows the head, and waits for the client's end.
void answeringEarly(TestPeer& client) {
  client.write("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nhello");
  while (!client.read(1).empty()) continue;
}

class InvalidationTest : public BodySourceTest {
 protected:
  // A source of which the first read stands at the halt.
  [[nodiscard]] std::shared_ptr<TextSource> haltedSource() const {
    auto source = std::make_shared<TextSource>(mixedText(300'000));
    source->onRead = [place = halt.place()](std::size_t) { place(); };
    return source;
  }
  static void expectToGo(const std::weak_ptr<TextSource>& source) {
    EXPECT_TRUE(kvltest::waitUntil([&] { return source.expired(); }));
  }

  const kvltest::Halt halt;
  Told told;
};

TEST_F(InvalidationTest, DuringAReadItWaitsForNothingAndTheSourceGoes) {
  const TestTLSServer peer({.identity = &server()}, returning);
  auto source = haltedSource();
  auto task = session->dataTask(request(peer, source), told.handler());
  task->resume();
  ASSERT_TRUE(halt.isReached());
  session->invalidateAndCancel();
  told.expectOneCancellation();
  EXPECT_EQ(source->callers, 1) << "the read is not over";
  const std::weak_ptr<TextSource> watched = std::exchange(source, nullptr);
  task.reset();
  halt.letGo();
  expectToGo(watched);
}

TEST_F(InvalidationTest, InsideAReadEndsItsTask) {
  const TestTLSServer peer({.identity = &server()}, returning);
  auto source = std::make_shared<TextSource>(mixedText(3'000'000));
  source->onRead = [this](std::size_t) { session->invalidateAndCancel(); };
  session->dataTask(request(peer, source), told.handler())->resume();
  told.expectOneCancellation();
  // The block that is read ahead may have been begun before the I/O thread heard of the end.
  EXPECT_LE(source->reads, 2);
  const std::weak_ptr<TextSource> watched = std::exchange(source, nullptr);
  expectToGo(watched);
}

TEST_F(InvalidationTest, ATaskOfWhichNothingIsDeliveredEnds) {
  const TestTLSServer peer({.identity = &server()}, answeringEarly);
  std::shared_ptr<DataTask> task;
  Semaphore isSuspended;
  told.onPiece = [&] {
    task->suspendDelivery();
    isSuspended.signal();
  };
  task = session->streamingTask(URLRequest(peer.url("127.0.0.1")), told.receiver());
  task->resume();
  ASSERT_TRUE(isSuspended.waitFor(std::chrono::seconds(60)));
  session->invalidateAndCancel();
  told.expectOneCancellation();
  task->resumeDelivery();
  EXPECT_EQ(task->state(), DataTask::State::completed);
}

TEST_F(InvalidationTest, ADelegatesTaskOfWhichNothingIsDeliveredEnds) {
  const TestTLSServer peer({.identity = &server()}, answeringEarly);
  const auto task = session->dataTask(URLRequest(peer.url("127.0.0.1")));
  delegate->onData = [](const std::shared_ptr<DataTask>& of) { of->suspendDelivery(); };
  task->resume();
  delegate->waitForBytes(5);
  session->invalidateAndCancel();
  EXPECT_EQ(delegate->waitForCompletion()->code(), NSURLErrorCancelled);
  EXPECT_EQ(delegate->completions(), 1);
}

TEST_F(InvalidationTest, ATaskThatWaitsForTheHostInBothDirectionsEnds) {
  const TestTLSServer peer({.identity = &server()}, answeringEarly);
  auto source = haltedSource();
  std::shared_ptr<DataTask> task;
  Semaphore isSuspended;
  told.onPiece = [&] {
    task->suspendDelivery();
    isSuspended.signal();
  };
  task = session->streamingTask(request(peer, source), told.receiver());
  task->resume();
  ASSERT_TRUE(halt.isReached() && isSuspended.waitFor(std::chrono::seconds(60)));
  session->invalidateAndCancel();
  told.expectOneCancellation();
  const std::weak_ptr<TextSource> watched = std::exchange(source, nullptr);
  task.reset();
  halt.letGo();
  expectToGo(watched);
}

}  // namespace
}  // namespace kvl::testing
