// How far fetches and submissions are, as their handles tell it.
#include "tests/encoding/LoadedOperations.h"
#include "tests/support/Halt.h"
#include "tests/support/OtherThread.h"

#include <local/platform/Mutex.h>

#include <algorithm>
#include <atomic>
#include <optional>
#include <string>
#include <vector>

namespace {

using namespace kvltest;
using kvl::TransferProgress;
using kvl::testing::TestPeer;
using kvl::testing::TestTLSServer;

// Remembers what an observer was told.
class ToldProgress {
 public:
  [[nodiscard]] auto handler() {
    return [this](const TransferProgress& state) {
      if (whenTold) whenTold();
      const kvl::MutexLock lock(mutex_);
      all_.push_back(state);
    };
  }
  [[nodiscard]] std::vector<TransferProgress> all() {
    const kvl::MutexLock lock(mutex_);
    return all_;
  }
  // Set before anybody is told.
  std::function<void()> whenTold;

 private:
  kvl::Mutex mutex_;
  std::vector<TransferProgress> all_ KVL_GUARDED_BY(mutex_);
};

class ExchangeProgressTest : public LoadedFetch {
 protected:
  [[nodiscard]] kvl::Exchange start() {
    auto exchange = LoadedFetch::start(server);
    EXPECT_TRUE(waitUntil([&] { return exchange.task() != nullptr; }));
    return exchange;
  }

  std::atomic<std::uint64_t> bodySize = 0;
  kvl::Semaphore mayAnswer;
  // Answers once it is told to.
  const TestTLSServer server{{}, [this](TestPeer& peer) {
                               const auto request = peer.readRequest();
                               bodySize = request.size() -
                                          std::min(request.size(), request.find("\r\n\r\n") + 4);
                               mayAnswer.wait();
                               mayAnswer.signal();
                               peer.write(kvl::testing::httpResponse(GetParam().goodAnswer));
                               (void)peer.readRequest();
                             }};
  ToldProgress told;
};

INSTANTIATE_TEST_SUITE_P(Every, ExchangeProgressTest, testing::ValuesIn(loadedOperations()),
                         nameOf);

TEST_P(ExchangeProgressTest, TellsWhatWasSentAndReceived) {
  const auto exchange = start();
  const auto observation = exchange.observeProgress(told.handler());
  mayAnswer.signal();
  finish();
  EXPECT_TRUE(outcome.hasResult);
  const TransferProgress last{bodySize, GetParam().goodAnswer.size(), bodySize.load(),
                              GetParam().goodAnswer.size()};
  if (GetParam().name == "Submission" || GetParam().name == "FormInPieces") EXPECT_GT(bodySize, 0U);
  EXPECT_EQ(exchange.progress(), last);
  const auto all = told.all();
  ASSERT_GE(all.size(), 2U) << "what was at the time, and the end";
  EXPECT_EQ(all.front().received, 0U);
  EXPECT_EQ(all.back(), last);
}

TEST_P(ExchangeProgressTest, AnObserverThatGoesHearsNothingMore) {
  const auto exchange = start();
  auto observation = exchange.observeProgress(told.handler());
  observation.end();
  const auto before = told.all().size();
  mayAnswer.signal();
  finish();
  EXPECT_EQ(told.all().size(), before);
  EXPECT_EQ(exchange.progress().received, GetParam().goodAnswer.size());
}

TEST_P(ExchangeProgressTest, AnObserverMayEndItselfAndCancel) {
  const auto exchange = start();
  const Halt halt;
  kvl::Observation observation;
  told.whenTold = [&, place = halt.place()] {
    place();
    observation.end();
    exchange.cancel();
  };
  // Told on a thread of the framework's, which waits here until the handle is there.
  observation = exchange.observeProgress(told.handler());
  ASSERT_TRUE(halt.isReached());
  halt.letGo();
  finish();
  EXPECT_EQ(told.all().size(), 1U);
  expectCancelled();
  mayAnswer.signal();
}

TEST_P(ExchangeProgressTest, EndingAnObserverElsewhereWaitsForItsCall) {
  const auto exchange = start();
  const Halt halt;
  std::atomic<bool> isInside = false;
  told.whenTold = [&, place = halt.place()] {
    isInside = true;
    place();
    isInside = false;
  };
  auto observation = exchange.observeProgress(told.handler());
  ASSERT_TRUE(halt.isReached());
  OtherThread ending([&] {
    observation.end();
    EXPECT_FALSE(isInside);
  });
  EXPECT_TRUE(ending.isWaiting());
  halt.letGo();
  ending.join();
  mayAnswer.signal();
  finish();
  EXPECT_TRUE(outcome.hasResult);
}

TEST_P(ExchangeProgressTest, TheSessionEndsWhileItIsObserved) {
  const auto exchange = start();
  const auto observation = exchange.observeProgress(told.handler());
  onAnotherThread([this] { session->end(); });
  finish();
  expectCancelled();
  EXPECT_EQ(exchange.progress().received, 0U);
  ASSERT_FALSE(told.all().empty());
  EXPECT_EQ(exchange.progress(), told.all().back());
  mayAnswer.signal();
}

}  // namespace
