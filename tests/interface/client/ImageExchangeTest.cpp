// What one decoder answers, and what becomes of an image when it answers anything else.
#include "tests/interface/client/FalseDecoding.h"
#include "tests/support/LogCapture.h"
#include "tests/support/NoDescriptors.h"
#include "tests/support/ProcessFigures.h"

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <csignal>
#include <cstdint>
#include <string>

namespace {

using kvl::interface::kInlineBytes;
using kvl::interface::Outcome;
using kvl::interface::PixelSize;
using kvltest::falseOptions;
using kvltest::kFalseSize;
using kvltest::sourceOf;
using std::chrono::milliseconds;

std::string orderOf(const char* word, Outcome outcome) {
  return std::string(word) + " " + std::to_string(static_cast<unsigned>(outcome));
}

class ImageExchangeTest : public testing::Test {
 protected:
  // Otherwise the limits are the usual ones.
  void useShortLimits(milliseconds wallTime = milliseconds(300)) {
    auto options = falseOptions();
    options.processorTime = milliseconds(60);
    options.wallTime = wallTime;
    decoding_.emplace(std::move(options));
  }

  // The reason of the one line that the log has since the last call.
  std::string refusal(std::string_view order) {
    const auto lines = log_.lines();
    log_.clear();
    const auto start = kvl::format("image refused: SVG of %@ bytes: ", order.size());
    if (lines.size() != 1 || !lines[0].starts_with(start)) {
      return testing::PrintToString(lines);
    }
    return lines[0].substr(start.size());
  }
  // Opens it, which fails.
  std::string refusalOf(const std::string& order) {
    EXPECT_EQ(decoding_->open(sourceOf(order)), std::nullopt) << order;
    return refusal(order);
  }
  // Opens it, which succeeds, and draws it, which fails.
  std::string refusalOfDrawing(const std::string& order, PixelSize size = {4, 4}) {
    const auto source = sourceOf(order);
    EXPECT_EQ(decoding_->open(source), kFalseSize) << order;
    EXPECT_TRUE(decoding_->draw(source, size).empty()) << order;
    return refusal(order);
  }
  static void endProgram() {
    for (const pid_t program : kvltest::childrenOf(getpid())) {
      siginfo_t end{};
      kill(program, SIGKILL);
      EXPECT_EQ(waitid(P_PID, program, &end, WEXITED | WNOWAIT), 0);
    }
  }
  void expectTheNextOneIsWell() {
    const auto source = sourceOf("honest");
    EXPECT_EQ(decoding_->open(source), kFalseSize);
    EXPECT_FALSE(decoding_->draw(source, {4, 4}).empty());
    EXPECT_EQ(log_.lines(), std::vector<std::string>());
  }

  const kvltest::LogCapture log_;
  std::optional<kvltest::ImageDecoding> decoding_{std::in_place, falseOptions()};
};

TEST_F(ImageExchangeTest, SizeAndPixelsAreThoseOfTheDecoder) {
  const auto source = sourceOf("honest");
  EXPECT_EQ(decoding_->open(source), kFalseSize);
  // Inside the message up to 64 x 64, in a file from then on.
  for (const PixelSize size : {PixelSize{3, 2}, PixelSize{64, 64}, PixelSize{65, 64}, {800, 600}}) {
    const auto bitmap = decoding_->draw(source, size);
    EXPECT_EQ(bitmap.width, size.width);
    EXPECT_EQ(bitmap.height, size.height);
    ASSERT_EQ(bitmap.pixels.size(), byteCountOf(size));
    EXPECT_EQ(bitmap.pixels.data()[bitmap.pixels.size() - 2], 30);
  }
}

// Icons are drawn at the size of the one before when they are opened.
TEST_F(ImageExchangeTest, WhatWasDrawnWhenItWasOpenedNeedsNoDecoder) {
  expectTheNextOneIsWell();
  const auto source = sourceOf("honest");
  EXPECT_EQ(decoding_->open(source), kFalseSize);
  endProgram();
  const auto bitmap = decoding_->draw(source, {4, 4});
  EXPECT_EQ(bitmap.width, 4U);
  EXPECT_EQ(bitmap.pixels.size(), 64U);
  EXPECT_EQ(kvltest::workers(), std::vector<pid_t>());
  // It is not kept.
  EXPECT_FALSE(decoding_->draw(source, {4, 4}).empty());
  EXPECT_EQ(kvltest::workers().size(), 1U);
}

TEST_F(ImageExchangeTest, OfManyThatAreNotDrawnOnlyTheLastOnesAreKept) {
  expectTheNextOneIsWell();
  std::vector<kvltest::SourcePtr> sources;
  for (int i = 0; i < 65; ++i) {
    sources.push_back(sourceOf("honest"));
    EXPECT_EQ(decoding_->open(sources.back()), kFalseSize);
  }
  endProgram();
  EXPECT_FALSE(decoding_->draw(sources.at(1), {4, 4}).empty());
  EXPECT_EQ(kvltest::workers(), std::vector<pid_t>());
  EXPECT_FALSE(decoding_->draw(sources.at(0), {4, 4}).empty());
  EXPECT_EQ(kvltest::workers().size(), 1U);
}

TEST_F(ImageExchangeTest, AnotherSizeThanExpectedIsDrawnAsAsked) {
  expectTheNextOneIsWell();
  const auto source = sourceOf("honest");
  EXPECT_EQ(decoding_->open(source), kFalseSize);
  EXPECT_EQ(decoding_->draw(source, {5, 6}).height, 6U);
  EXPECT_EQ(decoding_->draw(source, {4, 4}).height, 4U);
}

TEST_F(ImageExchangeTest, SizesThatChangeAreNotExpected) {
  const auto drawNext = [this](std::uint32_t side) {
    const auto source = sourceOf("honest");
    EXPECT_EQ(decoding_->open(source), kFalseSize);
    EXPECT_FALSE(decoding_->draw(source, {side, side}).empty());
  };
  for (const std::uint32_t side : {4, 5, 4, 5, 4}) drawNext(side);
  auto source = sourceOf("honest");
  EXPECT_EQ(decoding_->open(source), kFalseSize);
  endProgram();
  EXPECT_FALSE(decoding_->draw(source, {4, 4}).empty());
  EXPECT_EQ(kvltest::workers().size(), 1U);
  // Until they stay the same.
  for (int i = 0; i < 3; ++i) drawNext(4);
  source = sourceOf("honest");
  EXPECT_EQ(decoding_->open(source), kFalseSize);
  endProgram();
  EXPECT_FALSE(decoding_->draw(source, {4, 4}).empty());
  EXPECT_EQ(kvltest::workers(), std::vector<pid_t>());
}

// An image is one although it cannot be drawn.
TEST_F(ImageExchangeTest, WhatCannotBeDrawnIsOpenedAllTheSame) {
  expectTheNextOneIsWell();
  for (const std::string order :
       {"draw-signal 6", "draw-number", "draw-exit 3", "draw-outcome 3", "draw-outcome 4"}) {
    const auto source = sourceOf(order);
    EXPECT_EQ(decoding_->open(source), kFalseSize) << order;
    EXPECT_EQ(log_.lines(), std::vector<std::string>());
    EXPECT_TRUE(decoding_->draw(source, {4, 4}).empty()) << order;
    EXPECT_NE(refusal(order), "");
  }
  EXPECT_EQ(refusalOf(orderOf("outcome", Outcome::kNoImage)), "there is no image inside");
}

TEST_F(ImageExchangeTest, WhatTakesTooLongToBeDrawnIsOpenedAllTheSame) {
  useShortLimits();
  expectTheNextOneIsWell();
  EXPECT_EQ(decoding_->open(sourceOf("draw-spin")), kFalseSize);
  EXPECT_EQ(log_.lines(), std::vector<std::string>());
}

TEST_F(ImageExchangeTest, BytesOfAnyLengthArrive) {
  for (const std::size_t length :
       {std::size_t{6}, kInlineBytes, kInlineBytes + 1, kvl::kMaximumImageBytes}) {
    std::string bytes = "honest";
    bytes.resize(length, ' ');
    const auto source = sourceOf(bytes);
    EXPECT_EQ(decoding_->open(source), kFalseSize) << length;
    EXPECT_FALSE(decoding_->draw(source, {100, 100}).empty()) << length;
  }
  EXPECT_EQ(log_.lines(), std::vector<std::string>());
}

TEST_F(ImageExchangeTest, WhatIsNoImageNeedsNoProcess) {
  EXPECT_EQ(decoding_->open(sourceOf("honest", kvltest::ImageFormat::kUnknown)), std::nullopt);
  EXPECT_EQ(log_.lines().back(), "image refused: data of 6 bytes: no known format");
  EXPECT_EQ(decoding_->open(sourceOf("")), std::nullopt);
  EXPECT_EQ(log_.lines().back(), "image refused: SVG of 0 bytes: no known format");
  EXPECT_EQ(decoding_->open(sourceOf(std::string(kvl::kMaximumImageBytes + 1, ' '))), std::nullopt);
  EXPECT_EQ(log_.lines().back(), "image refused: SVG of 16777217 bytes: it is too large");
  EXPECT_EQ(log_.lines().size(), 3U);
  EXPECT_EQ(kvltest::childrenOf(getpid()), std::vector<pid_t>());
}

TEST_F(ImageExchangeTest, ADrawingWithoutPixelsOrWithTooManyIsEmpty) {
  const auto source = sourceOf("honest");
  EXPECT_EQ(decoding_->open(source), kFalseSize);
  EXPECT_TRUE(decoding_->draw(source, {0, 4}).empty());
  EXPECT_TRUE(decoding_->draw(source, {4, 0}).empty());
  const auto above = static_cast<std::uint32_t>(kvl::kMaximumBitmapPixels / 1024 + 1);
  EXPECT_TRUE(decoding_->draw(source, {1024, above}).empty());
  EXPECT_FALSE(decoding_->draw(source, {1024, above - 1}).empty());
}

TEST_F(ImageExchangeTest, AWrongAnswerCostsThatImageOnly) {
  const auto descriptors = kvltest::descriptorCount();
  for (const std::string order :
       {"number", "image", "infinite", "nan", "none", "huge", "width", "more", "version", "kind",
        "ready", "short", "long", "cut", "descriptor", "outcome 6", "outcome 5"}) {
    EXPECT_EQ(refusalOf(order), "the decoder answered wrongly") << order;
    expectTheNextOneIsWell();
  }
  for (const char* order : {"draw-width", "draw-more", "draw-fewer", "draw-number", "draw-short",
                            "draw-none", "draw-descriptor"}) {
    EXPECT_EQ(refusalOfDrawing(order), "the decoder answered wrongly") << order;
    expectTheNextOneIsWell();
  }
  // The program's and a worker's process, their sockets, and what wakes the one who waits.
  EXPECT_LE(kvltest::descriptorCount(), descriptors + 5);
}

// It could change them later.
TEST_F(ImageExchangeTest, ADecoderThatKeepsThePixelsMappedIsGivenUp) {
  EXPECT_EQ(refusalOfDrawing("mapped", {100, 100}), "the decoder answered wrongly");
  expectTheNextOneIsWell();
}

TEST_F(ImageExchangeTest, WhatWasNotAskedForReachesNoOtherImage) {
  EXPECT_EQ(decoding_->open(sourceOf("twice")), kFalseSize);
  expectTheNextOneIsWell();
}

TEST_F(ImageExchangeTest, ACrashIsLoggedAndReplaced) {
  EXPECT_EQ(refusalOf("signal 11"), "the decoder ended with signal 11");
  expectTheNextOneIsWell();
  EXPECT_EQ(refusalOfDrawing("draw-signal 6"), "the decoder ended with signal 6");
  expectTheNextOneIsWell();
  EXPECT_EQ(refusalOf("exit 7"), "the decoder ended with status 7");
  expectTheNextOneIsWell();
}

// An image that has taken a decoder over costs no other one more than a second attempt.
TEST_F(ImageExchangeTest, WhatGoesWrongAfterOthersIsTriedOnceMore) {
  EXPECT_EQ(decoding_->open(sourceOf("honest")), kFalseSize);
  const auto before = kvltest::workers();
  EXPECT_EQ(refusalOf("signal 11"), "the decoder ended with signal 11");
  EXPECT_EQ(decoding_->open(sourceOf("spoil")), kFalseSize);
  EXPECT_NE(kvltest::workers(), before);
  expectTheNextOneIsWell();
}

// It forges its own end: then it is over for it as well.
TEST_F(ImageExchangeTest, WhoClaimsToHaveEndedIsNotUsedAgain) {
  EXPECT_EQ(decoding_->open(sourceOf("honest")), kFalseSize);
  const auto before = kvltest::workers();
  EXPECT_EQ(refusalOf("ended"), "the decoder ended with signal 11");
  expectTheNextOneIsWell();
  EXPECT_NE(kvltest::workers(), before);
}

TEST_F(ImageExchangeTest, OneThatEndsBetweenTwoImagesCostsNone) {
  EXPECT_EQ(decoding_->open(sourceOf("after")), kFalseSize);
  expectTheNextOneIsWell();
  expectTheNextOneIsWell();
}

TEST_F(ImageExchangeTest, EachOutcomeHasItsReason) {
  EXPECT_EQ(refusalOf(orderOf("outcome", Outcome::kNoImage)), "there is no image inside");
  EXPECT_EQ(refusalOf(orderOf("outcome", Outcome::kTooLarge)), "it is too large");
  EXPECT_EQ(refusalOf(orderOf("outcome", Outcome::kMemory)), "it takes too much memory");
  EXPECT_EQ(refusalOf("exit 3"), "it takes too much memory");
  EXPECT_EQ(refusalOfDrawing(orderOf("draw-outcome", Outcome::kNotDrawn)), "it could not be drawn");
  expectTheNextOneIsWell();
}

TEST_F(ImageExchangeTest, WhatADecoderHasForgottenIsSentAgain) {
  const auto source = sourceOf("forget");
  EXPECT_EQ(decoding_->open(source), kFalseSize);
  for (int i = 0; i < 3; ++i) EXPECT_FALSE(decoding_->draw(source, {4, 4}).empty());
  EXPECT_EQ(log_.lines(), std::vector<std::string>());
}

// More than the host remembers to have sent.
TEST_F(ImageExchangeTest, ManyImagesAreDrawnInAnyOrder) {
  std::vector<kvltest::SourcePtr> sources(40);
  for (auto& source : sources) {
    source = sourceOf("honest");
    EXPECT_EQ(decoding_->open(source), kFalseSize);
  }
  for (const auto& source : sources) EXPECT_FALSE(decoding_->draw(source, {4, 4}).empty());
  for (const auto& source : sources) EXPECT_FALSE(decoding_->draw(source, {4, 4}).empty());
  EXPECT_EQ(log_.lines(), std::vector<std::string>());
}

// However many others want the processor.
TEST_F(ImageExchangeTest, ProcessorTimeIsLimited) {
  useShortLimits(std::chrono::seconds(20));
  EXPECT_EQ(refusalOf("spin"), "more than 60 ms of processor time");
  expectTheNextOneIsWell();
}

// Whoever sleeps takes none, so there is another limit.
TEST_F(ImageExchangeTest, WhoAnswersNothingIsGivenUp) {
  useShortLimits();
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(refusalOf("silence"), "no end within 300 ms");
  EXPECT_GE(std::chrono::steady_clock::now() - begin, milliseconds(300));
  expectTheNextOneIsWell();
}

TEST_F(ImageExchangeTest, WhatMetALimitIsNotDrawnAgainAtThatSize) {
  useShortLimits();
  const std::string order = "draw-spin";
  const auto source = sourceOf(order);
  EXPECT_EQ(decoding_->open(source), kFalseSize);
  EXPECT_TRUE(decoding_->draw(source, {20, 10}).empty());
  EXPECT_EQ(refusal(order), "more than 60 ms of processor time");
  for (const PixelSize size : {PixelSize{20, 10}, PixelSize{21, 10}}) {
    EXPECT_TRUE(decoding_->draw(source, size).empty());
    EXPECT_EQ(refusal(order), "a drawing of as few pixels met a limit before");
  }
  EXPECT_TRUE(decoding_->draw(source, {19, 10}).empty());
  EXPECT_EQ(refusal(order), "more than 60 ms of processor time");
}

TEST_F(ImageExchangeTest, ADrawingThatTakesTooMuchMemoryComesWithFewerPixels) {
  const auto once = sourceOf("draw-outcome-above 3 1048576");
  ASSERT_EQ(decoding_->open(once), kFalseSize);
  EXPECT_EQ(decoding_->draw(once, {2048, 2047}).width, 1024U);
  const auto twice = sourceOf("draw-outcome-above 3 1250000");
  ASSERT_EQ(decoding_->open(twice), kFalseSize);
  const auto bitmap = decoding_->draw(twice, {5000, 3999});
  EXPECT_EQ(bitmap.width, 1250U);
  EXPECT_EQ(bitmap.height, 1000U);
  EXPECT_EQ(log_.lines(), std::vector<std::string>());
  EXPECT_EQ(refusalOfDrawing("draw-outcome-above 3 1249999", {5000, 4000}),
            "it takes too much memory");
  // Few enough to begin with.
  EXPECT_EQ(refusalOfDrawing("draw-outcome-above 3 1048575", {1024, 1024}),
            "it takes too much memory");
}

// What a large one leaves behind goes before another image comes.
TEST_F(ImageExchangeTest, ADecoderIsReplacedAfterALargeImage) {
  const auto large = sourceOf("many", kvltest::ImageFormat::kPNG);
  ASSERT_TRUE(decoding_->open(large));
  const auto first = kvltest::workers();
  EXPECT_FALSE(decoding_->draw(large, {4, 4}).empty());
  EXPECT_EQ(kvltest::workers(), first);
  expectTheNextOneIsWell();
  const auto second = kvltest::workers();
  EXPECT_NE(second, first);
  ASSERT_TRUE(decoding_->open(sourceOf("many", kvltest::ImageFormat::kSVG)));
  expectTheNextOneIsWell();
  EXPECT_EQ(kvltest::workers(), second);
}

TEST_F(ImageExchangeTest, ADecoderIsReplacedAfterALargeDrawing) {
  const auto source = sourceOf("honest");
  EXPECT_EQ(decoding_->open(source), kFalseSize);
  const auto first = kvltest::workers();
  EXPECT_FALSE(decoding_->draw(source, {2048, 2048}).empty());
  expectTheNextOneIsWell();
  EXPECT_EQ(kvltest::workers(), first);
  EXPECT_FALSE(decoding_->draw(source, {2049, 2048}).empty());
  expectTheNextOneIsWell();
  EXPECT_NE(kvltest::workers(), first);
}

TEST_F(ImageExchangeTest, ADecoderIsReplacedAfterAThousandRequests) {
  const auto source = sourceOf("honest");
  EXPECT_EQ(decoding_->open(source), kFalseSize);
  const auto first = kvltest::workers();
  for (int i = 1; i < 1'000; ++i) ASSERT_FALSE(decoding_->draw(source, {1, 1}).empty());
  EXPECT_EQ(kvltest::workers(), first);
  EXPECT_FALSE(decoding_->draw(source, {1, 1}).empty());
  EXPECT_NE(kvltest::workers(), first);
}

// A memory file above the limit would raise a signal.
TEST_F(ImageExchangeTest, AHostWithALimitForFilesLives) {
  const auto source = sourceOf("honest");
  EXPECT_EQ(decoding_->open(source), kFalseSize);
  rlimit usual{};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &usual), 0);
  const rlimit low{kInlineBytes + 4, usual.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &low), 0);
  const std::string order = "honest" + std::string(kInlineBytes, ' ');
  EXPECT_EQ(decoding_->open(sourceOf(order)), std::nullopt);
  const bool isDrawn = !decoding_->draw(source, {65, 64}).empty();
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &usual), 0);
  EXPECT_FALSE(isDrawn);
  EXPECT_EQ(log_.lines(),
            (std::vector<std::string>{"image refused: SVG of 16390 bytes: the limit for files of "
                                      "this process is 16388 bytes",
                                      "image refused: SVG of 6 bytes: the limit for files of this "
                                      "process is 16388 bytes"}));
  log_.clear();
  expectTheNextOneIsWell();
}

TEST_F(ImageExchangeTest, AHostWithoutDescriptorsLives) {
  const auto source = sourceOf("honest");
  EXPECT_EQ(decoding_->open(source), kFalseSize);
  {
    const kvltest::NoDescriptors none;
    EXPECT_TRUE(decoding_->draw(source, {100, 100}).empty());
    EXPECT_FALSE(decoding_->draw(source, {4, 4}).empty());
  }
  EXPECT_EQ(log_.lines(), std::vector<std::string>{"image refused: SVG of 6 bytes: no descriptor "
                                                   "or memory is left"});
  EXPECT_FALSE(decoding_->draw(source, {100, 100}).empty());
}

}  // namespace
