#include <local/platform/DispatchQueue.h>

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <thread>

namespace {

using namespace std::chrono_literals;
using kvl::Semaphore;

TEST(SemaphoreTest, GivesAsManyAsItHolds) {
  Semaphore semaphore(2);
  EXPECT_TRUE(semaphore.tryWait());
  EXPECT_TRUE(semaphore.tryWait());
  EXPECT_FALSE(semaphore.tryWait());
}

TEST(SemaphoreTest, GivesUpAfterTheLimit) {
  Semaphore semaphore;
  const auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(semaphore.waitFor(20ms));
  EXPECT_GE(std::chrono::steady_clock::now() - start, 20ms);
}

TEST(SemaphoreTest, TheLongestLimitDoesNotOverflow) {
  Semaphore semaphore;
  std::jthread releaser([&] { semaphore.signal(); });
  EXPECT_TRUE(semaphore.waitFor(std::chrono::nanoseconds::max()));
}

TEST(SemaphoreTest, WakesAWaiterOnAnotherThread) {
  Semaphore semaphore;
  std::jthread waiter([&] { semaphore.wait(); });
  semaphore.signal();
}

TEST(SemaphoreTest, MayGoAsSoonAsItIsTaken) {
  for (int i = 0; i < 200; ++i) {
    auto semaphore = std::make_unique<Semaphore>();
    std::jthread signaller([&raw = *semaphore] { raw.signal(); });
    semaphore->wait();
    semaphore.reset();
  }
}

}  // namespace
