#include "platform/dispatch/ThreadQueue.h"
#include "tests/dispatch/Patience.h"
#include "tests/support/WaitUntil.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <future>
#include <set>
#include <thread>
#include <vector>

namespace {

using namespace std::chrono_literals;
using kvl::DispatchQueue;
using kvl::Semaphore;
using kvl::threadQueue;

// Whether the process has a thread of this name.
bool hasThread(const std::string& name) {
  const std::filesystem::directory_iterator tasks("/proc/self/task");
  return std::any_of(begin(tasks), end(tasks), [&](const auto& task) {
    std::string own;
    std::getline(std::ifstream(task.path() / "comm"), own);
    return own == name;
  });
}

// Whether the thread of this name sleeps.
bool isAsleep(const std::string& name) {
  const std::filesystem::directory_iterator tasks("/proc/self/task");
  return std::any_of(begin(tasks), end(tasks), [&](const auto& task) {
    std::string state;
    std::getline(std::ifstream(task.path() / "stat"), state);
    return state.find("(" + name + ") S") != std::string::npos;
  });
}

TEST(ThreadQueueTest, KeepsItsLabelAndNamesItsThreadByIt) {
  const auto queue = threadQueue("korvale.test.long");
  EXPECT_EQ(queue->label(), "korvale.test.long");
  std::promise<std::string> named;
  queue->async([&] {
    std::array<char, 32> name{};
    pthread_getname_np(pthread_self(), name.data(), name.size());
    named.set_value(name.data());
  });
  EXPECT_EQ(named.get_future().get(), "korvale.test.lo");
}

TEST(ThreadQueueTest, RunsBlocksInOrderOnOneThread) {
  const auto queue = threadQueue("test");
  std::vector<int> order;  // unguarded on purpose: the thread sanitizer watches
  std::set<std::thread::id> threads;
  Semaphore done;
  for (int i = 0; i < 1000; ++i) {
    queue->async([&, i] {
      order.push_back(i);
      threads.insert(std::this_thread::get_id());
    });
  }
  queue->async([&] { done.signal(); });
  ASSERT_TRUE(done.waitFor(kPatience));
  ASSERT_EQ(order.size(), 1000U);
  EXPECT_TRUE(std::ranges::is_sorted(order));
  EXPECT_EQ(threads.size(), 1U);
  EXPECT_FALSE(threads.contains(std::this_thread::get_id()));
}

TEST(ThreadQueueTest, BlockHandedOverByABlockRunsAfterThatAndAllBeforeIt) {
  const auto queue = threadQueue("test");
  std::vector<int> order;
  Semaphore handedOver;
  Semaphore done;
  queue->async([&] {
    (void)handedOver.waitFor(kPatience);
    queue->async([&] {
      order.push_back(3);
      done.signal();
    });
    order.push_back(1);
  });
  queue->async([&] { order.push_back(2); });
  handedOver.signal();
  ASSERT_TRUE(done.waitFor(kPatience));
  EXPECT_EQ(order, (std::vector{1, 2, 3}));
}

TEST(ThreadQueueTest, LetsGoOfABlockBeforeTheNextRuns) {
  const auto queue = threadQueue("test");
  auto token = std::make_shared<int>();
  const std::weak_ptr<int> watch = token;
  std::promise<bool> expired;
  queue->async([token = std::move(token)] {});
  queue->async([&] { expired.set_value(watch.expired()); });
  EXPECT_TRUE(expired.get_future().get());
}

TEST(ThreadQueueTest, QueueLetGoOfStillRunsAllItsBlocks) {
  Semaphore gate;
  Semaphore done;
  std::vector<int> order;
  {
    const auto queue = threadQueue("test");
    queue->async([&] { (void)gate.waitFor(kPatience); });
    for (int i = 0; i < 3; ++i) queue->async([&, i] { order.push_back(i); });
    queue->async([&] { done.signal(); });
  }
  gate.signal();
  ASSERT_TRUE(done.waitFor(kPatience));
  EXPECT_EQ(order, (std::vector{0, 1, 2}));
}

TEST(ThreadQueueTest, QueueMayBeLetGoOfInsideItsOwnBlock) {
  Semaphore done;
  auto queue = threadQueue("test");
  auto* raw = queue.get();
  raw->async([&done, queue = std::move(queue)]() mutable {
    queue->async([&done] { done.signal(); });
    queue.reset();
    done.signal();
  });
  EXPECT_TRUE(done.waitFor(kPatience));
  EXPECT_TRUE(done.waitFor(kPatience));
}

TEST(ThreadQueueTest, ItsThreadLivesFromTheFirstBlockUntilTheQueueIsLetGoOf) {
  auto queue = threadQueue("test.lifetime");
  EXPECT_FALSE(hasThread("test.lifetime"));
  Semaphore done;
  queue->async([&] { done.signal(); });
  ASSERT_TRUE(done.waitFor(kPatience));
  EXPECT_TRUE(hasThread("test.lifetime"));
  ASSERT_TRUE(kvltest::waitUntil([] { return isAsleep("test.lifetime"); }));
  queue.reset();
  EXPECT_TRUE(kvltest::waitUntil([] { return !hasThread("test.lifetime"); }));
}

TEST(ThreadQueueTest, ItsThreadEndsWhenItHasHadNothingToDoForLongAndAnotherOneComes) {
  const auto queue = threadQueue("kvl.test.idle", 1ms);
  for (int round = 0; round < 3; ++round) {
    Semaphore ran;
    queue->async([&] { ran.signal(); });
    ASSERT_TRUE(ran.waitFor(30s));
    EXPECT_TRUE(kvltest::waitUntil([] { return !hasThread("kvl.test.idle"); }));
  }
}

TEST(ThreadQueueTest, NoBlockIsLostToAThreadThatIsAboutToEnd) {
  const auto queue = threadQueue("kvl.test.brief", 1us);
  std::vector<int> order;
  Semaphore ran;
  for (int i = 0; i < 500; ++i) {
    queue->async([&, i] {
      order.push_back(i);
      ran.signal();
    });
    if (i % 3 == 0) ASSERT_TRUE(ran.waitFor(30s));
  }
  queue->async([&] { ran.signal(); });
  for (int left = 501 - 167; left > 0; --left) ASSERT_TRUE(ran.waitFor(30s));
  EXPECT_EQ(order.size(), 500U);
  EXPECT_TRUE(std::ranges::is_sorted(order));
}

TEST(ThreadQueueTest, LeavesTheHostsSignalsToTheHost) {
  std::promise<sigset_t> mask;
  threadQueue("test")->async([&] {
    sigset_t blocked{};
    pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
    mask.set_value(blocked);
  });
  const sigset_t blocked = mask.get_future().get();
  EXPECT_EQ(sigismember(&blocked, SIGTERM), 1);
  EXPECT_EQ(sigismember(&blocked, SIGCHLD), 1);
  EXPECT_EQ(sigismember(&blocked, SIGSEGV), 0);
}

TEST(ThreadQueueTest, RunsWhileAllWorkerThreadsAreBlocked) {
  constexpr int kMoreThanWorkers = 16;
  const auto workers = DispatchQueue::concurrent("test");
  const auto queue = threadQueue("test");
  Semaphore gate;
  Semaphore released;
  Semaphore done;
  for (int i = 0; i < kMoreThanWorkers; ++i) {
    workers->async([&] {
      gate.wait();
      released.signal();
    });
  }
  queue->async([&] { done.signal(); });
  EXPECT_TRUE(done.waitFor(kPatience));
  for (int i = 0; i < kMoreThanWorkers; ++i) gate.signal();
  for (int i = 0; i < kMoreThanWorkers; ++i) EXPECT_TRUE(released.waitFor(kPatience));
}

TEST(ThreadQueueTest, DelayedBlocksRunInOrderOnTheThreadAndOutliveTheQueue) {
  std::vector<int> order;
  std::set<std::thread::id> threads;
  Semaphore done;
  const auto start = std::chrono::steady_clock::now();
  {
    const auto queue = threadQueue("test");
    const auto note = [&](int number) {
      order.push_back(number);
      threads.insert(std::this_thread::get_id());
    };
    queue->asyncAfter(60ms, [&, note] {
      note(3);
      done.signal();
    });
    queue->asyncAfter(20ms, [note] { note(2); });
    queue->async([note] { note(1); });
  }
  ASSERT_TRUE(done.waitFor(kPatience));
  EXPECT_GE(std::chrono::steady_clock::now() - start, 60ms);
  EXPECT_EQ(order, (std::vector{1, 2, 3}));
  EXPECT_EQ(threads.size(), 1U);
}

TEST(ThreadQueueTest, DelayedBlocksNeverOvertakeEarlierOnes) {
  constexpr int kBlocks = 5000;
  const auto queue = threadQueue("test");
  std::vector<int> order;
  Semaphore done;
  for (int i = 0; i < kBlocks; ++i) {
    queue->asyncAfter(1us, [&, i] {
      order.push_back(i);
      if (i == kBlocks - 1) done.signal();
    });
  }
  ASSERT_TRUE(done.waitFor(kPatience));
  EXPECT_EQ(order.size(), std::size_t{kBlocks});
  EXPECT_TRUE(std::ranges::is_sorted(order));
}

}  // namespace
