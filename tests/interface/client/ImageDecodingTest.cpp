// Many images at once: turns, letting go, and the processes behind them.
#include "tests/interface/ImageFolder.h"
#include "tests/interface/client/FalseDecoding.h"
#include "tests/support/LogCapture.h"
#include "tests/support/NoDescriptors.h"
#include "tests/support/ProcessFigures.h"
#include "tests/support/WaitUntil.h"

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace {

using kvltest::DrivenTimers;
using kvltest::falseOptions;
using kvltest::ImageDecoding;
using kvltest::kFalseSize;
using kvltest::sourceOf;
using kvltest::waitUntil;
using std::chrono::milliseconds;
using Sizes = std::vector<std::optional<kvl::Size>>;

// Collects what handlers are given, and knows of those that were destroyed uncalled.
class Handlers {
 public:
  [[nodiscard]] ImageDecoding::SizeHandler forSize() {
    return [this, held = guard()](std::optional<kvl::Size> size) {
      const std::lock_guard lock(mutex_);
      sizes_.push_back(size);
    };
  }
  [[nodiscard]] Sizes sizes() const {
    const std::lock_guard lock(mutex_);
    return sizes_;
  }
  [[nodiscard]] bool waitForAll() const {
    return waitUntil([this] { return alive_ == 0; });
  }
  [[nodiscard]] int alive() const { return alive_; }

 private:
  std::shared_ptr<void> guard() {
    ++alive_;
    return {nullptr, [this](void*) { --alive_; }};
  }

  mutable std::mutex mutex_;
  Sizes sizes_;
  std::atomic<int> alive_ = 0;
};

class DecodingTest : public testing::Test {
 protected:
  // Whatever a test does, none of its processes and descriptors stays.
  ~DecodingTest() override {
    EXPECT_TRUE(waitUntil([] { return kvltest::childrenOf(getpid()).empty(); }));
    EXPECT_TRUE(waitUntil([this] { return kvltest::descriptorCount() <= descriptors_; }));
  }

  static ImageDecoding::Options shortShare() {
    auto options = falseOptions();
    options.share = milliseconds(20);
    return options;
  }

  const kvltest::LogCapture log_;  // the system's log would need a descriptor
  const std::size_t descriptors_ = (startTimers(), kvltest::descriptorCount());

 private:
  // The framework's timers and threads keep descriptors of their own.
  static void startTimers() {
    std::promise<void> done;
    kvl::DispatchQueue::concurrent("test")->asyncAfter(std::chrono::nanoseconds(1),
                                                       [&done] { done.set_value(); });
    done.get_future().wait();
  }
};

TEST_F(DecodingTest, NothingIsStartedBeforeTheFirstImage) {
  ImageDecoding decoding(falseOptions());
  EXPECT_TRUE(kvltest::childrenOf(getpid()).empty());
  EXPECT_EQ(decoding.open(sourceOf("honest")), kFalseSize);
  EXPECT_EQ(kvltest::workers().size(), 1U);
}

TEST_F(DecodingTest, PreparingStartsTheProgramAndAWorker) {
  ImageDecoding decoding(falseOptions());
  decoding.prepare();
  EXPECT_TRUE(waitUntil([] { return kvltest::workers().size() == 1; }));
  const auto first = kvltest::workers();
  decoding.prepare();
  EXPECT_EQ(decoding.open(sourceOf("honest")), kFalseSize);
  EXPECT_EQ(kvltest::workers(), first);
}

TEST_F(DecodingTest, HandlersAreCalledOnceOnTheQueue) {
  Handlers handlers;
  ImageDecoding decoding(falseOptions());
  for (int i = 0; i < 50; ++i) decoding.open(sourceOf("honest"), handlers.forSize());
  decoding.open(sourceOf("signal 9"), handlers.forSize());
  EXPECT_TRUE(handlers.waitForAll());
  EXPECT_EQ(handlers.sizes().size(), 51U);
  EXPECT_EQ(std::ranges::count(handlers.sizes(), std::optional(kFalseSize)), 50);
}

TEST_F(DecodingTest, HandlersOfImagesThatNeedNoDecoderAreCalledLater) {
  Handlers handlers;
  ImageDecoding decoding(falseOptions());
  decoding.open(sourceOf("", kvltest::ImageFormat::kUnknown), handlers.forSize());
  const auto source = sourceOf("honest");
  std::promise<kvl::Bitmap> bitmap;
  decoding.draw(source, {0, 0}, [&bitmap](kvl::Bitmap drawn) { bitmap.set_value(drawn); });
  EXPECT_TRUE(bitmap.get_future().get().empty());
  EXPECT_TRUE(handlers.waitForAll());
  EXPECT_EQ(handlers.sizes(), Sizes{std::nullopt});
}

TEST_F(DecodingTest, ThreadsThatWaitAndHandlersShareTheDecoders) {
  constexpr int kThreads = 4;
  constexpr int kEach = 30;
  Handlers handlers;
  ImageDecoding decoding(falseOptions());
  std::vector<std::thread> threads;
  std::atomic<int> drawn = 0;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&] {
      for (int j = 0; j < kEach; ++j) {
        const auto source = sourceOf("honest");
        decoding.open(source, handlers.forSize());
        if (!decoding.draw(source, {4, 4}).empty()) ++drawn;
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_TRUE(handlers.waitForAll());
  EXPECT_EQ(drawn, kThreads * kEach);
  EXPECT_EQ(handlers.sizes(), Sizes(kThreads * kEach, kFalseSize));
  EXPECT_LE(kvltest::workers().size(), 2U);
}

TEST_F(DecodingTest, TwoDecodersAtMost) {
  Handlers handlers;
  {
    ImageDecoding decoding(falseOptions());
    for (int i = 0; i < 6; ++i) decoding.open(sourceOf("sleep"), handlers.forSize());
    EXPECT_TRUE(waitUntil([] { return kvltest::workers().size() == 2; }));
    EXPECT_EQ(kvltest::workers().size(), 2U);
  }
  EXPECT_TRUE(handlers.waitForAll());
}

// A handler that does not return has no place.
TEST_F(DecodingTest, ABlockedHandlerHoldsUpNobody) {
  std::promise<void> release;
  const auto released = release.get_future().share();
  std::atomic<int> blocked = 0;
  ImageDecoding decoding(falseOptions());
  for (int i = 0; i < 4; ++i) {
    decoding.open(sourceOf("honest"), [&blocked, released](std::optional<kvl::Size>) {
      ++blocked;
      released.wait();
      --blocked;
    });
  }
  EXPECT_TRUE(waitUntil([&blocked] { return blocked == 4; }));
  EXPECT_EQ(decoding.open(sourceOf("honest")), kFalseSize);
  release.set_value();
  EXPECT_TRUE(waitUntil([&blocked] { return blocked == 0; }));
}

TEST_F(DecodingTest, AnIconWaitsForNoHostileImage) {
  Handlers handlers;
  ImageDecoding decoding(shortShare());
  std::vector<kvltest::SourcePtr> hostile(6);
  for (auto& source : hostile) {
    source = sourceOf("sleep");
    decoding.open(source, handlers.forSize());
  }
  for (int i = 0; i < 5; ++i) EXPECT_EQ(decoding.open(sourceOf("honest")), kFalseSize);
  EXPECT_EQ(handlers.alive(), 6) << "each takes 20 s";
  for (const auto& source : hostile) source->letGo();
  EXPECT_TRUE(handlers.waitForAll());
  EXPECT_TRUE(handlers.sizes().empty());
}

TEST_F(DecodingTest, WhatIsPutOffIsDrawnInTheEnd) {
  Handlers handlers;
  ImageDecoding decoding(shortShare());
  for (int i = 0; i < 3; ++i) decoding.open(sourceOf("sleep-for 100"), handlers.forSize());
  decoding.open(sourceOf("honest"), handlers.forSize());
  EXPECT_TRUE(handlers.waitForAll());
  EXPECT_EQ(handlers.sizes(), Sizes(4, kFalseSize));
}

TEST_F(DecodingTest, WhatWaitsAndIsLetGoIsForgotten) {
  Handlers handlers;
  Handlers others;
  ImageDecoding decoding(shortShare());
  const auto first = sourceOf("sleep");
  const auto second = sourceOf("sleep");
  decoding.open(first, others.forSize());
  decoding.open(second, others.forSize());
  std::vector<kvltest::SourcePtr> sources(3);
  for (auto& source : sources) {
    source = sourceOf("sleep");
    decoding.open(source, handlers.forSize());
  }
  for (auto& source : sources) source->letGo();
  EXPECT_EQ(handlers.alive(), 0);
  EXPECT_TRUE(handlers.sizes().empty());
  EXPECT_EQ(others.alive(), 2);
  // One that has been let go is not taken any more.
  decoding.open(sources[0], handlers.forSize());
  EXPECT_EQ(handlers.alive(), 0);
  EXPECT_EQ(decoding.open(sources[0]), std::nullopt);
  first->letGo();
  second->letGo();
  EXPECT_TRUE(others.waitForAll());
}

// It would run for 20 seconds.
TEST_F(DecodingTest, WhatRunsAndIsLetGoEndsWithItsShare) {
  Handlers handlers;
  ImageDecoding decoding(shortShare());
  const auto source = sourceOf("sleep");
  decoding.open(source, handlers.forSize());
  EXPECT_TRUE(waitUntil([] { return kvltest::workers().size() == 1; }));
  const auto begin = std::chrono::steady_clock::now();
  source->letGo();
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(1));
  EXPECT_TRUE(handlers.waitForAll());
  EXPECT_TRUE(handlers.sizes().empty());
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10));
  EXPECT_TRUE(log_.lines().empty());
}

TEST_F(DecodingTest, WhoWaitsForAnImageThatIsLetGoGetsNone) {
  ImageDecoding decoding(shortShare());
  for (const bool isRunning : {true, false}) {
    const auto source = sourceOf("sleep");
    const auto busy = sourceOf("sleep");
    const auto busyToo = sourceOf("sleep");
    Handlers handlers;
    if (!isRunning) {
      decoding.open(busy, handlers.forSize());
      decoding.open(busyToo, handlers.forSize());
    }
    auto waiting = std::async(std::launch::async, [&] { return decoding.open(source); });
    EXPECT_TRUE(waitUntil([&] { return kvltest::workers().size() == (isRunning ? 1 : 2); }));
    source->letGo();
    EXPECT_EQ(waiting.get(), std::nullopt);
    busy->letGo();
    busyToo->letGo();
    EXPECT_TRUE(handlers.waitForAll());
  }
}

TEST_F(DecodingTest, LettingGoInTheHandlerIsNothingSpecial) {
  ImageDecoding decoding(falseOptions());
  const auto source = sourceOf("honest");
  std::promise<void> called;
  decoding.open(source, [&](std::optional<kvl::Size> size) {
    EXPECT_EQ(size, kFalseSize);
    source->letGo();
    called.set_value();
  });
  called.get_future().wait();
  EXPECT_EQ(decoding.open(source), std::nullopt);
}

TEST_F(DecodingTest, IsDestroyedWhileItRuns) {
  Handlers handlers;
  {
    ImageDecoding decoding(falseOptions());
    for (int i = 0; i < 5; ++i) decoding.open(sourceOf("sleep"), handlers.forSize());
    EXPECT_TRUE(waitUntil([] { return kvltest::workers().size() == 2; }));
  }
  EXPECT_TRUE(handlers.waitForAll());
  EXPECT_TRUE(handlers.sizes().empty());
}

TEST_F(DecodingTest, IsDestroyedByItsOwnHandler) {
  auto decoding = std::make_unique<ImageDecoding>(falseOptions());
  std::promise<void> destroyed;
  decoding->open(sourceOf("honest"), [&](std::optional<kvl::Size>) {
    decoding.reset();
    destroyed.set_value();
  });
  destroyed.get_future().wait();
}

TEST_F(DecodingTest, ASourceMayOutliveItsDecoders) {
  const auto source = sourceOf("honest");
  {
    ImageDecoding decoding(falseOptions());
    EXPECT_EQ(decoding.open(source), kFalseSize);
  }
  ImageDecoding decoding(falseOptions());
  EXPECT_FALSE(decoding.draw(source, {4, 4}).empty());
  source->letGo();
}

TEST_F(DecodingTest, AMinuteWithoutUseEndsEverything) {
  DrivenTimers timers;
  auto options = falseOptions();
  options.later = timers.later();
  EXPECT_EQ(options.idle, std::chrono::minutes(1));
  options.idle = milliseconds(50);
  Handlers handlers;
  ImageDecoding decoding(options);
  EXPECT_EQ(decoding.open(sourceOf("honest")), kFalseSize);
  EXPECT_EQ(timers.delay(), options.idle);
  // It looks again as long as there was use.
  const auto busy = sourceOf("sleep");
  decoding.open(busy, handlers.forSize());
  timers.fire();
  EXPECT_EQ(timers.delay(), options.idle);
  EXPECT_FALSE(kvltest::childrenOf(getpid()).empty());
  busy->letGo();
  EXPECT_TRUE(handlers.waitForAll());
  EXPECT_TRUE(waitUntil([&] {
    timers.fire();
    return !timers.delay();
  }));
  EXPECT_TRUE(waitUntil([] { return kvltest::childrenOf(getpid()).empty(); }));
  EXPECT_TRUE(waitUntil([this] { return kvltest::descriptorCount() <= descriptors_; }));
  // And it begins anew.
  EXPECT_EQ(decoding.open(sourceOf("honest")), kFalseSize);
  EXPECT_EQ(timers.delay(), options.idle);
}

TEST_F(DecodingTest, UseShortlyBeforeTheMinuteIsOverCounts) {
  DrivenTimers timers;
  auto options = falseOptions();
  options.later = timers.later();
  ImageDecoding decoding(options);
  EXPECT_EQ(decoding.open(sourceOf("honest")), kFalseSize);
  timers.fire();
  ASSERT_TRUE(timers.delay());
  EXPECT_LT(*timers.delay(), std::chrono::minutes(1));
  EXPECT_GT(*timers.delay(), std::chrono::seconds(1));
  EXPECT_FALSE(kvltest::childrenOf(getpid()).empty());
}

TEST_F(DecodingTest, AProgramThatSomebodyEndedIsStartedAnew) {
  ImageDecoding decoding(falseOptions());
  EXPECT_EQ(decoding.open(sourceOf("honest")), kFalseSize);
  const auto program = kvltest::childrenOf(getpid());
  ASSERT_EQ(program.size(), 1U);
  kill(program.front(), SIGKILL);
  siginfo_t end{};
  ASSERT_EQ(waitid(P_PID, program.front(), &end, WEXITED | WNOWAIT), 0);
  EXPECT_EQ(decoding.open(sourceOf("honest")), kFalseSize);
  EXPECT_NE(kvltest::childrenOf(getpid()), program);
}

// A host may wait for whichever child ends first.
TEST_F(DecodingTest, AHostMayReapTheProgramItself) {
  ImageDecoding decoding(falseOptions());
  EXPECT_EQ(decoding.open(sourceOf("honest")), kFalseSize);
  const auto program = kvltest::childrenOf(getpid());
  ASSERT_EQ(program.size(), 1U);
  kill(program.front(), SIGKILL);
  EXPECT_EQ(waitpid(-1, nullptr, 0), program.front());
  EXPECT_EQ(decoding.open(sourceOf("honest")), kFalseSize);
  EXPECT_EQ(log_.lines(), std::vector<std::string>());
}

TEST_F(DecodingTest, TheHostsOwnChildrenStay) {
  const pid_t child = fork();
  if (child == 0) _exit(42);
  {
    ImageDecoding decoding(falseOptions());
    EXPECT_EQ(decoding.open(sourceOf("honest")), kFalseSize);
  }
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(WEXITSTATUS(status), 42);
}

TEST_F(DecodingTest, AHostMayIgnoreAndBlockSignals) {
  struct sigaction usual{};
  struct sigaction ignored{};
  ignored.sa_handler = SIG_IGN;
  ASSERT_EQ(sigaction(SIGCHLD, &ignored, &usual), 0);
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  {
    ImageDecoding decoding(falseOptions());
    EXPECT_EQ(decoding.open(sourceOf("honest")), kFalseSize);
    EXPECT_EQ(decoding.open(sourceOf("signal 15")), std::nullopt);
    EXPECT_EQ(decoding.open(sourceOf("honest")), kFalseSize);
  }
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  sigaction(SIGCHLD, &usual, nullptr);
}

// It has neither the processes nor the threads, and its end must not end what the host uses.
TEST_F(DecodingTest, AForkedChildStartsAndEndsNothing) {
  Handlers handlers;
  std::optional<ImageDecoding> decoding(std::in_place, falseOptions());
  auto source = sourceOf("honest");
  EXPECT_EQ(decoding->open(source), kFalseSize);
  const auto before = kvltest::workers();
  const pid_t child = fork();
  if (child == 0) {
    bool isWell = !decoding->open(source) && decoding->draw(source, {4, 4}).empty();
    decoding->open(source, [](std::optional<kvl::Size>) { _exit(2); });
    decoding->draw(source, {0, 0}, [](const kvl::Bitmap&) { _exit(3); });
    decoding->prepare();
    source->letGo();
    isWell = isWell && kvltest::childrenOf(getpid()).empty();
    decoding.reset();
    _exit(isWell ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  EXPECT_FALSE(decoding->draw(source, {4, 4}).empty());
  EXPECT_EQ(kvltest::workers(), before);
}

// Programs that are not as they should be.
class NoDecoderTest : public DecodingTest {
 protected:
  ImageDecoding::Options optionsFor(const char* name, std::chrono::milliseconds retry) {
    auto options = falseOptions(folder_.path() / "decoder");
    std::filesystem::create_symlink(KVL_FALSE_DECODER, folder_.path() / name);
    become(name);
    options.retry = retry;
    return options;
  }
  // The program is another one from now on.
  void become(const char* name) {
    const auto path = folder_.path() / "decoder";
    std::filesystem::remove(path);
    std::filesystem::create_symlink(name, path);
  }

  const kvltest::ImageFolder folder_;
};

TEST_F(NoDecoderTest, ThereIsNoImageAndOneLine) {
  ImageDecoding decoding(optionsFor("refuses-workers", milliseconds(0)));
  Handlers handlers;
  for (int i = 0; i < 3; ++i) EXPECT_EQ(decoding.open(sourceOf("honest")), std::nullopt);
  decoding.open(sourceOf("honest"), handlers.forSize());
  EXPECT_TRUE(handlers.waitForAll());
  EXPECT_EQ(handlers.sizes(), Sizes{std::nullopt});
  EXPECT_EQ(log_.lines(), std::vector<std::string>{"no images: Resource temporarily unavailable"});
}

TEST_F(NoDecoderTest, ASecondFailureIsLoggedAfterASuccess) {
  const auto options = optionsFor("ends-at-once", milliseconds(0));
  std::filesystem::create_symlink(KVL_FALSE_DECODER, folder_.path() / "well");
  ImageDecoding decoding(options);
  for (int i = 0; i < 2; ++i) EXPECT_EQ(decoding.open(sourceOf("honest")), std::nullopt);
  EXPECT_EQ(log_.count("no images: "), 1U);
  become("well");
  EXPECT_EQ(decoding.open(sourceOf("honest")), kFalseSize);
  become("ends-at-once");
  for (const pid_t program : kvltest::childrenOf(getpid())) kill(program, SIGKILL);
  EXPECT_TRUE(waitUntil([&] { return !decoding.open(sourceOf("honest")); }));
  EXPECT_EQ(decoding.open(sourceOf("honest")), std::nullopt);
  EXPECT_EQ(log_.count("no images: "), 2U);
  EXPECT_EQ(log_.lines().size(), 2U);
}

TEST_F(NoDecoderTest, AStartThatFailedIsNotTriedAgainAtOnce) {
  const auto options = optionsFor("ends-at-once", std::chrono::hours(1));
  std::filesystem::create_symlink(KVL_FALSE_DECODER, folder_.path() / "well");
  ImageDecoding decoding(options);
  EXPECT_EQ(decoding.open(sourceOf("honest")), std::nullopt);
  become("well");
  EXPECT_EQ(decoding.open(sourceOf("honest")), std::nullopt);
  EXPECT_TRUE(kvltest::childrenOf(getpid()).empty());
  EXPECT_EQ(falseOptions().retry, std::chrono::seconds(1));
}

TEST_F(NoDecoderTest, AWorkerThatDiesBeforeItsFirstImage) {
  ImageDecoding decoding(optionsFor("worker-dies", milliseconds(0)));
  EXPECT_EQ(decoding.open(sourceOf("honest")), std::nullopt);
  EXPECT_EQ(log_.lines(), std::vector<std::string>{"no images: the decoder has ended"});
}

TEST_F(NoDecoderTest, AWorkerThatIsNotTheOneAskedFor) {
  ImageDecoding decoding(optionsFor("worker-of-another", milliseconds(0)));
  EXPECT_EQ(decoding.open(sourceOf("honest")), std::nullopt);
  EXPECT_EQ(log_.lines(), std::vector<std::string>{"no images: the decoder answered wrongly"});
}

TEST_F(NoDecoderTest, ThereIsNoProgram) {
  ImageDecoding decoding(falseOptions("/nonexistent/decoder"));
  EXPECT_EQ(decoding.open(sourceOf("honest")), std::nullopt);
  EXPECT_EQ(decoding.open(sourceOf("honest")), std::nullopt);
  EXPECT_EQ(log_.lines(),
            std::vector<std::string>{"no images: there is no kvlocal/kvlocal-image-decoder"});
}

TEST_F(NoDecoderTest, ThereAreNoDescriptors) {
  ImageDecoding decoding(optionsFor("well", milliseconds(0)));
  {
    const kvltest::NoDescriptors none;
    EXPECT_EQ(decoding.open(sourceOf("honest")), std::nullopt);
  }
  EXPECT_EQ(log_.lines(), std::vector<std::string>{"no images: Too many open files"});
  EXPECT_EQ(decoding.open(sourceOf("honest")), kFalseSize);
}

}  // namespace
