// The turns at the two places, whatever becomes of those who have them or wait for them.
#include "platform/interface/client/DecoderPool.h"
#include "tests/interface/client/DecodingFixture.h"
#include "tests/support/WaitUntil.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <functional>
#include <future>
#include <memory>
#include <new>
#include <string_view>
#include <utility>

namespace {

// Of the thread; none fails while it is negative.
thread_local int allocationsBeforeFailure = -1;

}  // namespace

// The linker has them stand for `operator new`, which some sanitizers let nobody replace.
void* newWithoutFailure(std::size_t size) __asm__("__real__Znwm");
void* newThatMayFail(std::size_t size) __asm__("__wrap__Znwm");

void* newThatMayFail(std::size_t size) {
  const bool isNext = allocationsBeforeFailure == 0;
  if (allocationsBeforeFailure >= 0) --allocationsBeforeFailure;
  if (isNext) throw std::bad_alloc();
  return newWithoutFailure(size);
}

namespace {

using kvl::interface::Decoder;
using kvl::interface::DecoderJob;
using kvl::interface::DecoderPlace;
using kvl::interface::DecoderPool;
using kvl::interface::ImageRequest;
using kvltest::waitUntil;
using std::chrono::milliseconds;
using End = Decoder::End;

constexpr Decoder::Limits kAmple{milliseconds(5'000), milliseconds(20'000)};

End ask(DecoderPlace& place, std::string_view order, const Decoder::Limits& limits = kAmple,
        std::uint64_t image = 1) {
  ImageRequest request;
  request.image = image;
  request.format = kvl::interface::ImageFormat::kSVG;
  const kvl::Bytes bytes(order.begin(), order.end());
  const auto exchange = place.exchange(request, bytes, limits);
  return exchange ? exchange->end : End::kNotSent;
}

class TurnJob final : public DecoderJob {
 public:
  using Drive = std::function<bool(DecoderPlace&)>;
  explicit TurnJob(Drive itsDrive) : drive_(std::move(itsDrive)) {}

  [[nodiscard]] bool drive(DecoderPlace& place) override { return drive_(place); }
  void deliver() override { isDelivered = true; }
  [[nodiscard]] bool isSlow() const override {
    isAdded = true;
    return false;
  }

  std::atomic<bool> isDelivered = false;
  mutable std::atomic<bool> isAdded = false;

 private:
  const Drive drive_;
};
using TurnJobPtr = std::shared_ptr<TurnJob>;

// Keeps a place until it is told otherwise.
class Keeper {
 public:
  explicit Keeper(DecoderPool& pool) { pool.post(job_); }
  ~Keeper() {
    end();
    EXPECT_TRUE(waitUntil([this] { return job_->isDelivered.load(); }));
  }
  Keeper(const Keeper&) = delete;
  Keeper& operator=(const Keeper&) = delete;
  [[nodiscard]] bool hasPlace() const { return *hasPlace_; }
  void end() {
    if (!std::exchange(isTold_, true)) told_.set_value();
  }

 private:
  std::promise<void> told_;
  bool isTold_ = false;
  const std::shared_ptr<std::atomic<bool>> hasPlace_ = std::make_shared<std::atomic<bool>>(false);
  const TurnJobPtr job_ = std::make_shared<TurnJob>(
      [told = std::shared_future(told_.get_future()), hasPlace = hasPlace_](DecoderPlace&) {
        *hasPlace = true;
        told.wait();
        return true;
      });
};

// A thread that waits for a job, and that may be cancelled.
class Waiter {
 public:
  Waiter(DecoderPool& pool, TurnJob& job) : pool_(pool), job_(job) {
    pthread_create(&thread_, nullptr, &Waiter::wait, this);
  }
  [[nodiscard]] bool endsCancelled() {
    pthread_cancel(thread_);
    void* result = nullptr;
    pthread_join(thread_, &result);
    return result == PTHREAD_CANCELED;
  }

 private:
  static void* wait(void* itself) {
    auto& self = *static_cast<Waiter*>(itself);
    static_cast<void>(self.pool_.run(self.job_));
    while (true) pthread_testcancel();
  }

  DecoderPool& pool_;
  TurnJob& job_;
  pthread_t thread_{};
};

class DecoderTurnsTest : public kvltest::DecodingTest {
 protected:
  ~DecoderTurnsTest() override {
    pool_->stop();
    EXPECT_TRUE(waitUntil([this] {
      pool_->endProcesses();
      return kvltest::childrenOf(getpid()).empty();
    }));
  }

  // Two images at once, each of which has a place.
  void expectBothPlacesServe() {
    std::atomic<int> answered = 0;
    std::atomic<int> together = 0;
    const auto drive = [&](DecoderPlace& place) {
      ++together;
      EXPECT_TRUE(waitUntil([&] { return together == 2; })) << "a place has been lost";
      if (ask(place, "honest") == End::kAnswered) ++answered;
      return true;
    };
    const auto first = std::make_shared<TurnJob>(drive);
    const auto second = std::make_shared<TurnJob>(drive);
    pool_->post(first);
    pool_->post(second);
    EXPECT_TRUE(waitUntil([&] { return first->isDelivered && second->isDelivered; }));
    EXPECT_EQ(answered, 2);
  }

  const std::shared_ptr<DecoderPool> pool_ = std::make_shared<DecoderPool>(
      DecoderPool::Options{.places = {KVL_FALSE_DECODER},
                           .share = milliseconds(100),
                           .idle = std::chrono::minutes(1),
                           .retry = milliseconds(0),
                           .queue = kvl::DispatchQueue::concurrent("test"),
                           .later = [](std::chrono::nanoseconds, const auto&) {}});
};

TEST_F(DecoderTurnsTest, AnImageThatThrowsGivesItsPlaceBack) {
  for (int i = 0; i < 2; ++i) {
    TurnJob job([](DecoderPlace&) -> bool { throw std::bad_alloc(); });
    EXPECT_THROW(static_cast<void>(pool_->run(job)), std::bad_alloc);
  }
  expectBothPlacesServe();
}

TEST_F(DecoderTurnsTest, AnImageThatThrowsOnTheQueueIsLostAndDelivered) {
  for (int i = 0; i < 2; ++i) {
    const auto job =
        std::make_shared<TurnJob>([](DecoderPlace&) -> bool { throw std::bad_alloc(); });
    pool_->post(job);
    EXPECT_TRUE(waitUntil([&] { return job->isDelivered.load(); }));
  }
  expectBothPlacesServe();
}

TEST_F(DecoderTurnsTest, TheNextOneBeginsWhenAnImageThrows) {
  const Keeper keeper(*pool_);
  ASSERT_TRUE(waitUntil([&] { return keeper.hasPlace(); }));
  const auto next = std::make_shared<TurnJob>([](DecoderPlace&) { return true; });
  TurnJob job([&](DecoderPlace&) -> bool {
    pool_->post(next);
    throw std::bad_alloc();
  });
  EXPECT_THROW(static_cast<void>(pool_->run(job)), std::bad_alloc);
  EXPECT_TRUE(waitUntil([&] { return next->isDelivered.load(); }));
}

// Whichever allocation it is that fails: nothing is left behind that another one could stumble on.
TEST_F(DecoderTurnsTest, EachAllocationOfAWaitingOneMayFail) {
  int failures = 0;
  for (bool isThrough = false; !isThrough; ++failures) {
    ASSERT_LT(failures, 100);
    TurnJob job([](DecoderPlace& place) {
      const bool isAnswered = ask(place, "honest") == End::kAnswered;
      allocationsBeforeFailure = -1;
      return isAnswered;
    });
    TurnJob again([](DecoderPlace& place) {
      EXPECT_EQ(ask(place, "honest"), End::kAnswered);
      return true;
    });
    ASSERT_TRUE(pool_->run(again)) << failures;
    allocationsBeforeFailure = failures;
    try {
      isThrough = pool_->run(job);
    } catch (const std::bad_alloc&) {
      isThrough = false;
    }
    allocationsBeforeFailure = -1;
  }
  EXPECT_GT(failures, 2);
  expectBothPlacesServe();
}

TEST_F(DecoderTurnsTest, EachAllocationOfOneThatIsPostedMayFail) {
  int failures = 0;
  for (bool isThrough = false; !isThrough; ++failures) {
    ASSERT_LT(failures, 100);
    const auto job = std::make_shared<TurnJob>([](DecoderPlace&) { return true; });
    allocationsBeforeFailure = failures;
    try {
      pool_->post(job);
    } catch (const std::bad_alloc&) {
      allocationsBeforeFailure = -1;
    }
    isThrough = std::exchange(allocationsBeforeFailure, -1) >= 0;
    EXPECT_TRUE(waitUntil([&] { return job->isDelivered || job.use_count() == 1; }));
  }
  EXPECT_GT(failures, 2);
  expectBothPlacesServe();
}

TEST_F(DecoderTurnsTest, AThreadMayBeCancelledWhileItWaits) {
  {
    const Keeper one(*pool_);
    const Keeper other(*pool_);
    for (int i = 0; i < 2; ++i) {
      TurnJob job([](DecoderPlace&) { return true; });
      Waiter waiter(*pool_, job);
      EXPECT_TRUE(waitUntil([&] { return job.isAdded.load(); }));
      EXPECT_TRUE(waiter.endsCancelled());
    }
  }
  expectBothPlacesServe();
}

TEST_F(DecoderTurnsTest, AThreadIsNotCancelledWhileItHasAPlace) {
  for (int i = 0; i < 2; ++i) {
    std::atomic<bool> hasPlace = false;
    std::atomic<bool> isAnswered = false;
    TurnJob job([&](DecoderPlace& place) {
      hasPlace = true;
      isAnswered = ask(place, "sleep-for 50") == End::kAnswered;
      return true;
    });
    Waiter waiter(*pool_, job);
    EXPECT_TRUE(waitUntil([&] { return hasPlace.load(); }));
    EXPECT_TRUE(waiter.endsCancelled());
    EXPECT_TRUE(isAnswered);
  }
  expectBothPlacesServe();
}

// An image that keeps losing its decoder has its share once, not once for each decoder.
TEST_F(DecoderTurnsTest, AFurtherDecoderIsNoFurtherShare) {
  std::atomic<bool> isPutOff = false;
  TurnJob quick([&](DecoderPlace&) {
    EXPECT_TRUE(isPutOff) << "both kept their places to their ends";
    return true;
  });
  const auto hostile = [&](std::uint64_t image) {
    return std::make_shared<TurnJob>([&, image](DecoderPlace& place) {
      EXPECT_TRUE(waitUntil([&] { return quick.isAdded.load(); }));
      constexpr Decoder::Limits limits{milliseconds(5'000), milliseconds(30)};
      for (int i = 0; i < 20 && !isPutOff; ++i) {
        if (ask(place, "sleep", limits, image) != End::kPutOff) continue;
        isPutOff = true;
        return false;
      }
      return true;
    });
  };
  const auto first = hostile(1);
  const auto second = hostile(2);
  pool_->post(first);
  pool_->post(second);
  EXPECT_TRUE(pool_->run(quick));
  EXPECT_TRUE(waitUntil([&] { return first->isDelivered && second->isDelivered; }));
}

}  // namespace
