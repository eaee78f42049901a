#include "platform/security/DeadlineWorker.h"
#include "platform/security/GLibPointers.h"
#include "tests/security/KeyStoreSupport.h"
#include "tests/support/NoDescriptors.h"
#include "tests/support/WaitUntil.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <set>

namespace kvl::security {
namespace {

using kvltest::soon;
using std::chrono::milliseconds;

// A call that never ends by itself, as one to a provider that hangs.
Status waitForCancellation(GCancellable* cancellable) {
  GPollFD poll{};
  EXPECT_TRUE(g_cancellable_make_pollfd(cancellable, &poll));
  g_poll(&poll, 1, -1);
  g_cancellable_release_fd(cancellable);
  return kSuccess;
}

TEST(DeadlineWorkerTest, GivesTheJobsAnswer) {
  DeadlineWorker worker;
  EXPECT_EQ(worker.run([](GCancellable*) { return Status{42}; }, soon()), 42);
}

TEST(DeadlineWorkerTest, AllJobsRunOnOneThreadWithAContextOfItsOwn) {
  DeadlineWorker worker;
  std::set<std::thread::id> threads;
  for (int i = 0; i < 3; ++i)
    (void)worker.run(
        [&](GCancellable*) {
          threads.insert(std::this_thread::get_id());
          EXPECT_NE(g_main_context_get_thread_default(), nullptr);
          return kSuccess;
        },
        soon());
  EXPECT_EQ(threads.size(), 1U);
  EXPECT_FALSE(threads.contains(std::this_thread::get_id()));
}

TEST(DeadlineWorkerTest, AHungJobIsCancelledAtTheDeadlineAndTheWorkerGoesOn) {
  DeadlineWorker worker;
  for (int i = 0; i < 5; ++i)
    EXPECT_EQ(worker.run(waitForCancellation, soon(milliseconds(10))), errSecNotAvailable);
  EXPECT_EQ(worker.run([](GCancellable*) { return kSuccess; }, soon()), kSuccess);
}

TEST(DeadlineWorkerTest, AJobWhoseTurnDoesNotComeIsNeverBegun) {
  DeadlineWorker worker;
  std::promise<void> begun;
  std::promise<void> release;
  auto blocker = std::async(std::launch::async, [&] {
    return worker.run(
        [&](GCancellable*) {
          begun.set_value();
          release.get_future().wait();
          return kSuccess;
        },
        soon());
  });
  begun.get_future().wait();
  std::atomic<bool> ran = false;
  EXPECT_EQ(worker.run(
                [&](GCancellable*) {
                  ran = true;
                  return kSuccess;
                },
                soon(milliseconds(10))),
            errSecNotAvailable);
  release.set_value();
  EXPECT_EQ(blocker.get(), kSuccess);
  EXPECT_EQ(worker.run([](GCancellable*) { return kSuccess; }, soon()), kSuccess);
  EXPECT_FALSE(ran);
}

TEST(DeadlineWorkerTest, WhatJobsHaveLeftIsGivenUpWhenNoneHasComeForLong) {
  const auto made = std::make_shared<std::atomic<bool>>(false);
  const auto left = std::make_shared<std::atomic<bool>>(false);
  DeadlineWorker worker(milliseconds(1), [left] { *left = false; });
  worker.prepare([made, left](GCancellable*) {
    *left = true;
    *made = true;
    return kSuccess;
  });
  EXPECT_TRUE(kvltest::waitUntil([&] { return *made && !*left; }));
}

TEST(DeadlineWorkerTest, WhatJobsHaveLeftIsThereForTheNextThatComesSoon) {
  const auto left = std::make_shared<std::atomic<bool>>(false);
  DeadlineWorker worker(std::chrono::hours(1), [left] { *left = false; });
  worker.prepare([left](GCancellable*) {
    *left = true;
    return kSuccess;
  });
  EXPECT_EQ(worker.run([left](GCancellable*) { return *left ? kSuccess : Status{1}; }, soon()),
            kSuccess);
}

TEST(DeadlineWorkerTest, NoJobIsLostToAThreadThatGivesUpWhatIsLeft) {
  DeadlineWorker worker(std::chrono::microseconds(1), [] {});
  for (int i = 0; i < 500; ++i)
    ASSERT_EQ(worker.run([](GCancellable*) { return kSuccess; }, soon()), kSuccess);
}

TEST(DeadlineWorkerTest, WhatIsPreparedIsWaitedForByTheNextJob) {
  DeadlineWorker worker;
  bool isThere = false;
  worker.prepare([&](GCancellable*) {
    isThere = true;
    return kSuccess;
  });
  EXPECT_EQ(worker.run([&](GCancellable*) { return isThere ? kSuccess : Status{1}; }, soon()),
            kSuccess);
}

TEST(DeadlineWorkerTest, APreparationThatHangsIsCancelledByTheFirstCallerWhoseTimeIsUp) {
  DeadlineWorker worker;
  worker.prepare(waitForCancellation);
  EXPECT_EQ(worker.run([](GCancellable*) { return kSuccess; }, soon(milliseconds(10))),
            errSecNotAvailable);
  EXPECT_EQ(worker.run([](GCancellable*) { return kSuccess; }, soon()), kSuccess);
}

TEST(DeadlineWorkerTest, DestructionEndsAPreparationThatHangs) {
  DeadlineWorker worker;
  std::promise<void> begun;
  worker.prepare([&](GCancellable* cancellable) {
    begun.set_value();
    return waitForCancellation(cancellable);
  });
  begun.get_future().wait();
}

TEST(DeadlineWorkerTest, DestructionWaitsForAnAbandonedJob) {
  auto worker = std::make_unique<DeadlineWorker>();
  std::atomic<int> running = 0;
  const auto job = [&](GCancellable* cancellable) {
    ++running;
    (void)waitForCancellation(cancellable);
    --running;
    return kSuccess;
  };
  EXPECT_EQ(worker->run(job, soon(milliseconds(10))), errSecNotAvailable);
  worker.reset();
  EXPECT_EQ(running, 0);
}

TEST(DeadlineWorkerTest, BeginsNoJobWithoutDescriptors) {
  DeadlineWorker worker;
  const auto job = [](GCancellable*) { return kSuccess; };
  {
    const kvltest::NoDescriptors none(kvltest::kLeftToSanitizers);
    EXPECT_EQ(worker.run(job, soon()), errSecInternalComponent);
  }
  EXPECT_EQ(worker.run(job, soon()), kSuccess);
}

TEST(DeadlineWorkerTest, DestroyedWithoutAJobItHasNothingToWaitFor) {
  const DeadlineWorker worker;
}

TEST(DeadlineWorkerTest, WhatAJobOwnsGoesBeforeItsCallerHears) {
  DeadlineWorker worker;
  const auto owned = std::make_shared<int>(0);
  EXPECT_EQ(worker.run([owned](GCancellable*) { return kSuccess; }, soon()), kSuccess);
  EXPECT_EQ(owned.use_count(), 1);
}

TEST(DeadlineWorkerTest, WhatComesAfterwardsIsNotWaitedForByTheCallerButByTheNextJob) {
  DeadlineWorker worker;
  std::promise<void> answered;
  std::atomic<bool> done = false;
  const auto afterwards = [&](GCancellable*) {
    answered.get_future().wait();
    done = true;
    return kSuccess;
  };
  EXPECT_EQ(worker.run([](GCancellable*) { return kSuccess; }, soon(), afterwards), kSuccess);
  answered.set_value();
  EXPECT_EQ(worker.run([&](GCancellable*) { return Status{done ? 1 : 2}; }, soon()), 1);
}

TEST(DeadlineWorkerTest, NothingComesAfterAJobThatFails) {
  DeadlineWorker worker;
  std::atomic<bool> done = false;
  const auto afterwards = [&](GCancellable*) {
    done = true;
    return kSuccess;
  };
  EXPECT_EQ(worker.run([](GCancellable*) { return Status{42}; }, soon(), afterwards), 42);
  EXPECT_EQ(worker.run([](GCancellable*) { return kSuccess; }, soon()), kSuccess);
  EXPECT_FALSE(done);
}

}  // namespace
}  // namespace kvl::security
