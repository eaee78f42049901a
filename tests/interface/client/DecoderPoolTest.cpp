// The processes behind the images: when they start, when they end, and when there are none.
#include "tests/interface/ImageFolder.h"
#include "tests/interface/client/DecodingFixture.h"
#include "tests/support/DrivenQueue.h"
#include "tests/support/NoDescriptors.h"

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace {

using kvltest::DecodingTest;
using kvltest::DrivenTimers;
using kvltest::falseOptions;
using kvltest::Handlers;
using kvltest::ImageDecoding;
using kvltest::kFalseSize;
using kvltest::Sizes;
using kvltest::sourceOf;
using kvltest::waitUntil;
using std::chrono::milliseconds;

class DecoderPoolTest : public DecodingTest {};

TEST_F(DecoderPoolTest, NothingIsStartedBeforeTheFirstImage) {
  ImageDecoding decoding(falseOptions());
  EXPECT_TRUE(kvltest::childrenOf(getpid()).empty());
  EXPECT_EQ(decoding.open(sourceOf("honest")), kFalseSize);
  EXPECT_EQ(kvltest::workers().size(), 1U);
}

TEST_F(DecoderPoolTest, PreparingStartsTheProgramAndAWorker) {
  ImageDecoding decoding(falseOptions());
  decoding.prepare();
  EXPECT_TRUE(waitUntil([] { return kvltest::workers().size() == 1; }));
  const auto first = kvltest::workers();
  decoding.prepare();
  EXPECT_EQ(decoding.open(sourceOf("honest")), kFalseSize);
  EXPECT_EQ(kvltest::workers(), first);
}

// Each block would wait in a thread of its own until the program runs.
TEST_F(DecoderPoolTest, PreparingAgainMeanwhileTakesNoFurtherBlock) {
  auto options = falseOptions("/nonexistent/decoder");
  const auto queue = std::make_shared<kvltest::DrivenQueue>();
  options.queue = queue;
  ImageDecoding decoding(options);
  for (int i = 0; i < 2; ++i) {
    for (int call = 0; call < 200; ++call) decoding.prepare();
    EXPECT_EQ(queue->pendingCount(), 1U) << "attempt " << i;
    queue->runDue();
  }
}

TEST_F(DecoderPoolTest, TheRealProgramDraws) {
  ImageDecoding decoding({});
  const auto source = sourceOf(
      "<svg xmlns='http://www.w3.org/2000/svg' width='30' height='20'>"
      "<rect width='30' height='20' fill='#4e9a06'/></svg>");
  EXPECT_EQ(decoding.open(source), (kvl::Size{30, 20}));
  for (const std::uint32_t side : {8U, 200U}) {
    const auto bitmap = decoding.draw(source, {side, side});
    ASSERT_EQ(bitmap.pixels.size(), std::size_t{side} * side * 4);
    const auto* const middle = bitmap.pixels.data() + bitmap.pixels.size() / 2 + side * 2;
    EXPECT_EQ(kvl::Bytes(middle, middle + 4), (kvl::Bytes{0x4e, 0x9a, 0x06, 0xff}));
  }
  EXPECT_EQ(decoding.open(sourceOf("<svg")), std::nullopt);
  EXPECT_EQ(log_.lines(),
            std::vector<std::string>{"image refused: SVG of 4 bytes: there is no image inside"});
}

TEST_F(DecoderPoolTest, AMinuteWithoutUseEndsEverything) {
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

TEST_F(DecoderPoolTest, UseShortlyBeforeTheMinuteIsOverCounts) {
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

TEST_F(DecoderPoolTest, AProgramThatSomebodyEndedIsStartedAnew) {
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
TEST_F(DecoderPoolTest, AHostMayReapTheProgramItself) {
  ImageDecoding decoding(falseOptions());
  EXPECT_EQ(decoding.open(sourceOf("honest")), kFalseSize);
  const auto program = kvltest::childrenOf(getpid());
  ASSERT_EQ(program.size(), 1U);
  kill(program.front(), SIGKILL);
  EXPECT_EQ(waitpid(-1, nullptr, 0), program.front());
  EXPECT_EQ(decoding.open(sourceOf("honest")), kFalseSize);
  EXPECT_EQ(log_.lines(), std::vector<std::string>());
}

TEST_F(DecoderPoolTest, TheHostsOwnChildrenStay) {
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

TEST_F(DecoderPoolTest, AHostMayIgnoreAndBlockSignals) {
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
  // Neither concerns the decoder's processes.
  EXPECT_EQ(log_.lines(), std::vector<std::string>{"image refused: SVG of 9 bytes: the decoder "
                                                   "ended with signal 15"});
}

// It has neither the processes nor the threads, and its end must not end what the host uses.
TEST_F(DecoderPoolTest, AForkedChildStartsAndEndsNothing) {
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

// Whose program is well: the other worker's image is not to suffer.
TEST_F(NoDecoderTest, AWorkerThatDiesBeforeItsFirstImageIsReplaced) {
  ImageDecoding decoding(optionsFor("second-worker-dies", milliseconds(0)));
  Handlers handlers;
  const auto busy = sourceOf("sleep");
  decoding.open(busy, handlers.forSize());
  ASSERT_TRUE(waitUntil([] { return kvltest::workers().size() == 1; }));
  const auto programs = kvltest::childrenOf(getpid());
  const auto before = kvltest::workers();
  EXPECT_EQ(decoding.open(sourceOf("honest")), kFalseSize);
  EXPECT_EQ(kvltest::childrenOf(getpid()), programs);
  EXPECT_EQ(kvltest::workers().size(), 2U);
  EXPECT_EQ(kvltest::workers().front(), before.front());
  EXPECT_EQ(handlers.alive(), 1);
  EXPECT_EQ(log_.lines(), std::vector<std::string>());
  busy->letGo();
  EXPECT_TRUE(handlers.waitForAll());
}

TEST_F(NoDecoderTest, WorkersThatDieBeforeTheirFirstImageLeaveTheOthersAlone) {
  ImageDecoding decoding(optionsFor("further-workers-die", milliseconds(0)));
  Handlers handlers;
  const auto busy = sourceOf("sleep");
  decoding.open(busy, handlers.forSize());
  ASSERT_TRUE(waitUntil([] { return kvltest::workers().size() == 1; }));
  const auto before = kvltest::workers();
  EXPECT_EQ(decoding.open(sourceOf("honest")), std::nullopt);
  EXPECT_TRUE(waitUntil([&] { return kvltest::workers() == before; }));
  EXPECT_EQ(handlers.alive(), 1);
  EXPECT_EQ(log_.lines(), std::vector<std::string>{"no images: the decoder has ended"});
  busy->letGo();
  EXPECT_TRUE(handlers.waitForAll());
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
            std::vector<std::string>{"no images: there is no kvlocal-0.1/kvlocal-image-decoder"});
}

TEST_F(NoDecoderTest, ThereAreNoDescriptors) {
  ImageDecoding decoding(optionsFor("well", milliseconds(0)));
  {
    const kvltest::NoDescriptors none;
    EXPECT_EQ(decoding.open(sourceOf("honest")), std::nullopt);
  }
  EXPECT_EQ(log_.lines(), std::vector<std::string>{"no images: no descriptor is left"});
  EXPECT_EQ(decoding.open(sourceOf("honest")), kFalseSize);
}

}  // namespace
