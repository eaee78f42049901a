#include "platform/interface/protocol/ImageMessage.h"

#include <local/platform/Image.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

namespace {

using namespace kvl::interface;
using kvl::Bytes;

template <class Message>
Bytes written(const Message& message) {
  Bytes bytes{1, 2, 3};
  write(message, bytes);
  return bytes;
}

template <class T>
Bytes changed(Bytes message, std::size_t offset, T value) {
  std::memcpy(message.data() + offset, &value, sizeof value);
  return message;
}

// Of another length, which its head states.
Bytes resized(Bytes message, std::size_t size) {
  message.resize(size);
  return changed(std::move(message), 0, static_cast<std::uint32_t>(size));
}

const Bytes kPayload(100, 7);

ImageRequest opening() {
  return {.number = 5,
          .image = 6,
          .format = ImageFormat::kSVG,
          .byteCount = kPayload.size(),
          .inlineBytes = kPayload};
}

ImageRequest drawing(PixelSize size, bool inFile = false) {
  return {.number = 5,
          .image = 6,
          .format = ImageFormat::kPDF,
          .drawing = size,
          .pixelsInFile = inFile};
}

ImageAnswer done() {
  return {.number = 5, .image = 6, .outcome = Outcome::kDone, .naturalSize = {12.5, 7}};
}

ImageAnswer drawn(PixelSize size, const Bytes& pixels) {
  auto answer = done();
  answer.pixelSize = size;
  answer.inlinePixels = pixels;
  return answer;
}

TEST(ImageMessageTest, ARequestReadsBackAsItWasWritten) {
  auto request = opening();
  request.drawing = PixelSize{32, 16};
  const auto message = written(request);
  const auto read = readRequest(message, 0);
  ASSERT_TRUE(read);
  EXPECT_EQ(read->number, 5U);
  EXPECT_EQ(read->image, 6U);
  EXPECT_EQ(read->format, ImageFormat::kSVG);
  EXPECT_EQ(read->byteCount, 100U);
  EXPECT_TRUE(std::ranges::equal(read->inlineBytes, kPayload));
  EXPECT_EQ(read->inlineBytes.data(), message.data() + 48);
  EXPECT_EQ(read->drawing, (PixelSize{32, 16}));
  EXPECT_FALSE(read->pixelsInFile);
}

TEST(ImageMessageTest, ARequestWithFilesReadsBackAsItWasWritten) {
  auto request = drawing({8000, 4000}, true);
  request.byteCount = kvl::kMaximumImageBytes;
  const auto message = written(request);
  const auto read = readRequest(message, 2);
  ASSERT_TRUE(read);
  EXPECT_EQ(read->byteCount, kvl::kMaximumImageBytes);
  EXPECT_TRUE(read->inlineBytes.empty());
  EXPECT_EQ(read->drawing, (PixelSize{8000, 4000}));
  EXPECT_TRUE(read->pixelsInFile);
}

TEST(ImageMessageTest, AnAnswerReadsBackAsItWasWritten) {
  const Bytes pixels(32, 9);
  auto answer = drawn({2, 4}, pixels);
  const auto message = written(answer);
  const auto read = readAnswer(message);
  ASSERT_TRUE(read);
  EXPECT_EQ(read->number, 5U);
  EXPECT_EQ(read->image, 6U);
  EXPECT_EQ(read->outcome, Outcome::kDone);
  EXPECT_EQ(read->naturalSize, (kvl::Size{12.5, 7}));
  EXPECT_EQ(read->pixelSize, (PixelSize{2, 4}));
  EXPECT_TRUE(std::ranges::equal(read->inlinePixels, pixels));
}

TEST(ImageMessageTest, TheOthersReadBackAsTheyWereWritten) {
  const auto ready = readReady(written(WorkerReady{3, 4711}), 1);
  ASSERT_TRUE(ready);
  EXPECT_EQ(ready->number, 3U);
  EXPECT_EQ(ready->process, 4711);
  const auto ended = readEnded(written(WorkerEnded{3, 0x8B, 11, 4096}));
  ASSERT_TRUE(ended);
  EXPECT_EQ(ended->number, 3U);
  EXPECT_EQ(ended->status, 0x8B);
  EXPECT_EQ(ended->error, 11);
  EXPECT_EQ(ended->peakKiB, 4096U);
  const auto endedWell = readEnded(written(WorkerEnded{.number = 3}));
  ASSERT_TRUE(endedWell);
  EXPECT_EQ(endedWell->error, 0);
  const auto hello = readHello(written(Hello{kNoLandlock | kNoLimits, 7}));
  ASSERT_TRUE(hello);
  EXPECT_EQ(hello->lacks, kNoLandlock | kNoLimits);
  EXPECT_EQ(hello->landlockVersion, 7U);
  const auto start = readStart(written(Start{9}), 1);
  ASSERT_TRUE(start);
  EXPECT_EQ(start->worker, 9U);
}

// Whichever reader it is meant for.
bool isRead(const Bytes& message, std::size_t descriptors) {
  return readRequest(message, descriptors) || readAnswer(message) ||
         readReady(message, descriptors) || readEnded(message) || readHello(message) ||
         readStart(message, descriptors);
}

struct Sample {
  const char* name;
  Bytes message;
  std::size_t descriptors;
};

std::vector<Sample> samples() {
  return {{"request", written(opening()), 0},
          {"drawing", written(drawing({8, 8}, true)), 1},
          {"answer", written(done()), 0},
          {"ready", written(WorkerReady{3, 4711}), 1},
          {"ended", written(WorkerEnded{3, 9, 0, 1}), 0},
          {"hello", written(Hello{1, 1}), 0},
          {"start", written(Start{9}), 1}};
}

TEST(ImageMessageTest, AHeadThatIsNotAsItShouldBeIsRefused) {
  for (const auto& [name, message, descriptors] : samples()) {
    const auto size = static_cast<std::uint32_t>(message.size());
    ASSERT_TRUE(isRead(message, descriptors)) << name;
    EXPECT_FALSE(isRead(changed(message, 0, size - 1), descriptors)) << name;
    EXPECT_FALSE(isRead(changed(message, 0, size + 1), descriptors)) << name;
    EXPECT_FALSE(isRead(changed(message, 4, std::uint16_t{kProtocolVersion + 1}), descriptors))
        << name;
    EXPECT_FALSE(isRead(changed(message, 4, std::uint16_t{0}), descriptors)) << name;
    for (const std::uint16_t kind : std::initializer_list<std::uint16_t>{0, 5, 15, 18, 0xFFFF}) {
      EXPECT_FALSE(isRead(changed(message, 6, kind), descriptors)) << name;
      EXPECT_FALSE(kindOf(changed(message, 6, kind))) << kind;
    }
  }
}

TEST(ImageMessageTest, AnotherLengthIsRefused) {
  for (const auto& [name, message, descriptors] : samples()) {
    for (std::size_t size = 0; size < message.size(); ++size) {
      const Bytes cut(message.begin(), message.begin() + static_cast<std::ptrdiff_t>(size));
      EXPECT_FALSE(isRead(cut, descriptors)) << name << " of " << size;
      if (size < 4) continue;
      EXPECT_FALSE(isRead(resized(message, size), descriptors)) << name << " of " << size;
    }
    EXPECT_FALSE(isRead(resized(message, message.size() + 1), descriptors)) << name;
    EXPECT_FALSE(isRead(resized(message, message.size() + 4), descriptors)) << name;
  }
}

TEST(ImageMessageTest, NoMessageIsLongerThanTheLongest) {
  EXPECT_TRUE(kindOf(resized(written(opening()), kLongestMessage)));
  EXPECT_FALSE(kindOf(resized(written(opening()), kLongestMessage + 1)));
}

TEST(ImageMessageTest, DescriptorsAreAsManyAsTheMessageNeeds) {
  for (const auto& [name, message, descriptors] : samples()) {
    const auto kind = kindOf(message);
    if (kind == MessageKind::kAnswer || kind == MessageKind::kEnded || kind == MessageKind::kHello)
      continue;
    for (std::size_t count = 0; count <= 3; ++count) {
      EXPECT_EQ(isRead(message, count), count == descriptors) << name << " with " << count;
    }
  }
  auto both = drawing({8, 8}, true);
  both.byteCount = 100;
  for (std::size_t count = 0; count <= 3; ++count) {
    EXPECT_EQ(readRequest(written(both), count).has_value(), count == 2) << count;
  }
}

TEST(ImageMessageTest, ARequestsFieldsAreWithinTheirLimits) {
  const auto message = written(opening());
  const auto refused = [](const Bytes& other) { return !readRequest(other, 0); };
  EXPECT_TRUE(refused(changed(message, 16, std::uint64_t{0}))) << "image 0";
  EXPECT_FALSE(refused(changed(message, 24, std::uint32_t{9}))) << "the last format";
  EXPECT_TRUE(refused(changed(message, 24, std::uint32_t{10}))) << "no format";
  EXPECT_TRUE(refused(changed(message, 32, std::uint64_t{99}))) << "more bytes than stated";
  EXPECT_TRUE(refused(changed(message, 32, std::uint64_t{101}))) << "fewer bytes than stated";
  EXPECT_TRUE(refused(changed(message, 40, std::uint32_t{1}))) << "a width without drawing";
  EXPECT_TRUE(refused(changed(message, 44, std::uint32_t{1}))) << "a height without drawing";
  for (const std::uint32_t flags : {0U, 2U, 3U, 5U, 9U, 13U, 16U, 17U, 33U}) {
    EXPECT_TRUE(refused(changed(message, 28, flags))) << flags;
    EXPECT_FALSE(readRequest(changed(message, 28, flags), 1)) << flags << " with a descriptor";
  }
}

TEST(ImageMessageTest, BytesFollowUpToTheLongestMessage) {
  const Bytes longest(kInlineBytes, 1);
  auto request = opening();
  request.byteCount = longest.size();
  request.inlineBytes = longest;
  EXPECT_TRUE(readRequest(written(request), 0));
  const Bytes longer(kInlineBytes + 1, 1);
  request.byteCount = longer.size();
  request.inlineBytes = longer;
  EXPECT_FALSE(readRequest(written(request), 0));
}

TEST(ImageMessageTest, AFileHoldsUpToTheLongestImage) {
  ImageRequest request{.number = 1, .image = 1};
  for (const auto& [count, good] : {std::pair(std::size_t{1}, true),
                                    {kvl::kMaximumImageBytes, true},
                                    {kvl::kMaximumImageBytes + 1, false},
                                    {std::numeric_limits<std::size_t>::max(), false}}) {
    request.byteCount = count;
    EXPECT_EQ(readRequest(written(request), 1).has_value(), good) << count;
  }
  EXPECT_FALSE(readRequest(changed(written(request), 32, std::uint64_t{0}), 1));
}

TEST(ImageMessageTest, WhatIsDrawnHasSidesWithinTheirLimits) {
  for (const auto& [size, good] : {std::pair(PixelSize{1, 1}, true),
                                   {{65'535, 1}, true},
                                   {{1, 65'535}, true},
                                   {{65'536, 1}, false},
                                   {{1, 65'536}, false},
                                   {{0, 1}, false},
                                   {{1, 0}, false},
                                   {{0, 0}, false}}) {
    EXPECT_EQ(readRequest(written(drawing(size, true)), 1).has_value(), good)
        << size.width << " x " << size.height;
  }
}

TEST(ImageMessageTest, PixelsThatDoNotFitAMessageNeedAFile) {
  EXPECT_TRUE(readRequest(written(drawing({64, 64})), 0));
  EXPECT_FALSE(readRequest(written(drawing({64, 65})), 0));
  EXPECT_TRUE(readRequest(written(drawing({64, 65}, true)), 1));
  // Four bytes for each of these are more than 32 bits count.
  EXPECT_FALSE(readRequest(written(drawing({32'768, 32'768})), 0));
}

TEST(ImageMessageTest, AnAnswersFieldsAreWithinTheirLimits) {
  const auto message = written(done());
  EXPECT_FALSE(readAnswer(changed(message, 16, std::uint64_t{0}))) << "image 0";
  EXPECT_TRUE(readAnswer(changed(message, 24, std::uint32_t{5}))) << "the last outcome";
  EXPECT_FALSE(readAnswer(changed(message, 24, std::uint32_t{6}))) << "no outcome";
  EXPECT_FALSE(readAnswer(changed(message, 28, std::uint32_t{1}))) << "pixels that do not follow";
  EXPECT_FALSE(readAnswer(changed(message, 28, std::uint32_t{2}))) << "no flag";
  EXPECT_FALSE(readAnswer(changed(message, 48, std::uint32_t{1}))) << "a width only";
  EXPECT_FALSE(readAnswer(changed(message, 52, std::uint32_t{1}))) << "a height only";
  EXPECT_FALSE(readAnswer(changed(message, 56, std::uint64_t{1}))) << "room that is not used";
  for (const std::size_t side : {32, 40}) {
    EXPECT_TRUE(readAnswer(changed(message, side, 0.0)));
    EXPECT_TRUE(readAnswer(changed(message, side, 65'535.0)));
    for (const double wrong : {65'535.5, -1.0, -0.001, std::nan(""), HUGE_VAL, -HUGE_VAL}) {
      EXPECT_FALSE(readAnswer(changed(message, side, wrong))) << wrong;
    }
  }
}

TEST(ImageMessageTest, PixelsAreAsManyAsTheAnswerStates) {
  const Bytes pixels(32, 9);
  const auto message = written(drawn({2, 4}, pixels));
  ASSERT_TRUE(readAnswer(message));
  EXPECT_FALSE(readAnswer(changed(message, 48, std::uint32_t{1})));
  EXPECT_FALSE(readAnswer(changed(message, 48, std::uint32_t{3})));
  EXPECT_FALSE(readAnswer(changed(message, 52, std::uint32_t{5})));
  EXPECT_FALSE(readAnswer(changed(message, 28, std::uint32_t{0})));
  EXPECT_FALSE(readAnswer(changed(message, 28, std::uint32_t{3})));
  EXPECT_FALSE(readAnswer(changed(message, 48, PixelSize{})));
  // Their count has the same lowest 32 bits.
  EXPECT_FALSE(readAnswer(changed(message, 48, PixelSize{32'768 + 2, 32'768 + 4})));
  EXPECT_FALSE(readAnswer(resized(message, message.size() - 4)));
}

TEST(ImageMessageTest, ReservedFieldsAreZero) {
  EXPECT_FALSE(readReady(changed(written(WorkerReady{3, 4}), 20, std::uint32_t{1}), 1));
  EXPECT_FALSE(readReady(written(WorkerReady{3, 0}), 1));
  EXPECT_FALSE(readReady(written(WorkerReady{3, -1}), 1));
  EXPECT_FALSE(readEnded(written(WorkerEnded{3, 0, -1, 0})));
  EXPECT_TRUE(readHello(written(Hello{15, 0})));
  EXPECT_FALSE(readHello(written(Hello{16, 0})));
  EXPECT_FALSE(readHello(changed(written(Hello{}), 8, std::uint64_t{1})));
}

TEST(ImageMessageTest, AnAnswerIsOfItsRequestOnly) {
  EXPECT_TRUE(answers(done(), opening()));
  auto other = done();
  other.number = 6;
  EXPECT_FALSE(answers(other, opening()));
  other = done();
  other.image = 5;
  EXPECT_FALSE(answers(other, opening()));
  other = done();
  other.naturalSize.width = 0;
  EXPECT_FALSE(answers(other, opening()));
  other = done();
  other.naturalSize.height = 0;
  EXPECT_FALSE(answers(other, opening()));
}

TEST(ImageMessageTest, AnAnswerHasThePixelsThatWereAskedFor) {
  const Bytes pixels(32, 9);
  EXPECT_TRUE(answers(drawn({2, 4}, pixels), drawing({2, 4})));
  EXPECT_FALSE(answers(drawn({2, 4}, pixels), drawing({4, 2})));
  EXPECT_FALSE(answers(drawn({2, 4}, pixels), drawing({2, 4}, true)));
  EXPECT_FALSE(answers(drawn({2, 4}, pixels), opening()));
  EXPECT_FALSE(answers(done(), drawing({2, 4})));
  EXPECT_FALSE(answers(drawn({2, 4}, {}), drawing({2, 4})));
  EXPECT_TRUE(answers(drawn({2, 4}, {}), drawing({2, 4}, true)));
  EXPECT_FALSE(answers(drawn({2, 5}, {}), drawing({2, 4}, true)));
}

TEST(ImageMessageTest, AFailureBringsNoPixels) {
  const Bytes pixels(32, 9);
  for (const auto outcome : {Outcome::kNoImage, Outcome::kTooLarge, Outcome::kMemory,
                             Outcome::kNotDrawn, Outcome::kUnknownImage}) {
    auto answer = done();
    answer.outcome = outcome;
    EXPECT_TRUE(answers(answer, drawing({2, 4})));
    // Whoever got the bytes knows the image.
    EXPECT_EQ(answers(answer, opening()), outcome != Outcome::kUnknownImage);
    answer.pixelSize = {2, 4};
    EXPECT_FALSE(answers(answer, drawing({2, 4})));
    EXPECT_FALSE(answers(answer, drawing({2, 4}, true)));
    answer.inlinePixels = pixels;
    EXPECT_FALSE(answers(answer, drawing({2, 4})));
  }
}

}  // namespace
