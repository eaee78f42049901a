#include "platform/interface/decoder/Sanitizer.h"
#include "platform/interface/protocol/SealedMemory.h"
#include "tests/interface/decoder/DecoderFixture.h"
#include "tests/support/WaitUntil.h"

#include <local/platform/Image.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <fstream>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace {

using kvl::interface::Descriptor;
using kvl::interface::ImageRequest;
using kvl::interface::Outcome;
using kvl::interface::PixelSize;
using kvl::interface::Span;
using kvltest::DecoderWorker;
using kvltest::openRequest;

Span bytesOf(std::string_view text) {
  return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

// One to draw an image that the worker has opened, in the answer itself.
ImageRequest drawRequest(std::uint64_t image, PixelSize size = {2, 2}) {
  ImageRequest request;
  request.number = 1000 + image;
  request.image = image;
  request.drawing = size;
  return request;
}

// Bytes of that length which a told decoder takes for the order.
std::string padded(const std::string& order, std::size_t length) {
  return order + std::string(length - order.size(), ' ');
}

class WorkerTest : public kvltest::DecoderFixture {
 protected:
  // What becomes of the request; none when there was no answer, or not one to it.
  std::optional<Outcome> outcome(const ImageRequest& request,
                                 std::span<const int> descriptors = {}) {
    const auto answered = worker().ask(request, descriptors);
    return answered ? std::optional(answered->answer.outcome) : std::nullopt;
  }
  std::optional<Outcome> open(std::uint64_t image, const std::string& order) {
    return outcome(openRequest(image, "TELL " + order));
  }
  std::optional<Outcome> draw(std::uint64_t image) { return outcome(drawRequest(image)); }

  std::optional<Outcome> openFile(std::uint64_t image, const std::string& text) {
    const auto file = kvl::interface::sealedFile(bytesOf(text));
    auto request = openRequest(image, text);
    request.inlineBytes = {};
    const int descriptor = file ? file->get() : -1;
    return outcome(request, {&descriptor, 1});
  }
};

TEST_F(WorkerTest, DrawsIntoTheAnswerWhatCameInTheMessage) {
  auto request = openRequest(7, "TELL wide 3 x");
  request.drawing = PixelSize{5, 2};
  const auto answered = worker().ask(request);
  ASSERT_TRUE(answered);
  EXPECT_EQ(answered->answer.outcome, Outcome::kDone);
  EXPECT_EQ(answered->answer.naturalSize, (kvl::Size{3, 1}));
  EXPECT_EQ(answered->pixels, kvl::Bytes(40, 'x'));
}

TEST_F(WorkerTest, DrawsIntoAFileWhatCameInAFileAndLetsItGoBeforeItAnswers) {
  const auto text = padded("TELL wide 3 ", 100'000) + "y";
  const auto bytes = kvl::interface::sealedFile(bytesOf(text));
  const auto pixels = kvl::interface::drawableFile(std::size_t{4} * 100 * 50);
  ASSERT_TRUE(bytes && pixels);
  auto request = openRequest(7, text);
  request.inlineBytes = {};
  request.drawing = PixelSize{100, 50};
  request.pixelsInFile = true;
  const std::array<int, 2> descriptors{bytes->get(), pixels->get()};
  ASSERT_EQ(outcome(request, descriptors), Outcome::kDone);
  const auto data = kvl::interface::sealedData(*pixels, std::size_t{4} * 100 * 50);
  ASSERT_TRUE(data) << "still mapped for writing";
  EXPECT_EQ(*data, kvl::Data(kvl::Bytes(20'000, 'y')));
}

TEST_F(WorkerTest, KeepsNoDescriptorOfARequest) {
  for (std::uint64_t image = 1; image <= 3; ++image) {
    ASSERT_EQ(openFile(image, padded("TELL wide 1", 20'000)), Outcome::kDone);
  }
  EXPECT_EQ(tell("descriptors"), 4);
}

TEST_F(WorkerTest, AnswersInTurnWhatWaits) {
  for (std::uint64_t image = 1; image <= 5; ++image) {
    ASSERT_TRUE(worker().send(openRequest(image, "TELL wide " + std::to_string(image))));
  }
  for (std::uint64_t image = 1; image <= 5; ++image) {
    const auto answered = worker().answer();
    ASSERT_TRUE(answered);
    EXPECT_EQ(answered->answer.number, image);
    EXPECT_EQ(answered->answer.naturalSize.width, static_cast<double>(image));
  }
}

TEST_F(WorkerTest, ForgetsWhatWasUsedLongestAgo) {
  for (std::uint64_t image = 1; image <= 32; ++image) {
    ASSERT_EQ(open(image, "wide 1"), Outcome::kDone);
  }
  EXPECT_EQ(draw(1), Outcome::kDone);
  ASSERT_EQ(open(33, "wide 1"), Outcome::kDone);
  EXPECT_EQ(draw(1), Outcome::kDone);
  EXPECT_EQ(draw(2), Outcome::kUnknownImage);
  EXPECT_EQ(draw(3), Outcome::kDone);
  EXPECT_EQ(draw(34), Outcome::kUnknownImage);
}

TEST_F(WorkerTest, KeepsAnImageOnceThatIsOpenedAnew) {
  for (int turn = 0; turn < 40; ++turn) ASSERT_EQ(open(1, "wide 1"), Outcome::kDone);
  for (std::uint64_t image = 2; image <= 32; ++image) {
    ASSERT_EQ(open(image, "wide 1"), Outcome::kDone);
  }
  EXPECT_EQ(draw(1), Outcome::kDone);
}

TEST_F(WorkerTest, KeepsPicturesOf32MiBBesideTheLastOne) {
  ASSERT_EQ(open(1, "costly 20"), Outcome::kDone);
  ASSERT_EQ(open(2, "costly 12"), Outcome::kDone);
  ASSERT_EQ(open(3, "costly 500"), Outcome::kDone);
  EXPECT_EQ(draw(1), Outcome::kUnknownImage) << "the bytes of the two count as well";
  EXPECT_EQ(draw(2), Outcome::kDone);
  EXPECT_EQ(draw(3), Outcome::kDone);
  ASSERT_EQ(open(4, "wide 1"), Outcome::kDone);
  EXPECT_EQ(draw(3), Outcome::kUnknownImage);
}

TEST_F(WorkerTest, TellsWhyThereIsNoImage) {
  EXPECT_EQ(open(1, "none"), Outcome::kNoImage);
  EXPECT_EQ(open(1, "throw"), Outcome::kNoImage);
  EXPECT_EQ(open(1, "none-for-memory"), Outcome::kMemory);
  EXPECT_EQ(open(1, "none-after-error " + std::to_string(ENOMEM)), Outcome::kMemory);
  EXPECT_EQ(open(1, "none-after-error " + std::to_string(EPERM)), Outcome::kNoImage);
  EXPECT_EQ(open(1, "throw-for-memory"), Outcome::kMemory);
  EXPECT_EQ(open(1, "wide 0"), Outcome::kNoImage);
  EXPECT_EQ(open(1, "wide 65535"), Outcome::kDone);
  EXPECT_EQ(open(1, "wide 65536"), Outcome::kTooLarge);
  ASSERT_EQ(open(1, "undrawn"), Outcome::kDone);
  EXPECT_EQ(draw(1), Outcome::kNotDrawn);
}

TEST_F(WorkerTest, AnImageIsNotJudgedByTheOneBefore) {
  // All wait, so that nothing comes between the last two.
  for (const auto& order : {std::string("take 50"), "none-after-error " + std::to_string(ENOMEM),
                            std::string("none")}) {
    ASSERT_TRUE(worker().send(openRequest(1, "TELL " + order)));
  }
  for (const auto outcome : {Outcome::kDone, Outcome::kMemory, Outcome::kNoImage}) {
    const auto answered = worker().answer();
    ASSERT_TRUE(answered);
    EXPECT_EQ(answered->answer.outcome, outcome);
  }
}

TEST_F(WorkerTest, AnImageThatFailsIsForgotten) {
  ASSERT_EQ(open(1, "wide 1"), Outcome::kDone);
  ASSERT_EQ(open(1, "none"), Outcome::kNoImage);
  EXPECT_EQ(draw(1), Outcome::kUnknownImage);
}

TEST_F(WorkerTest, AnImageMayTake256MiBBesideItsFileAndTheBitmap) {
  if (kvl::decoder::kSanitized) GTEST_SKIP() << "the sanitizer reserves memory itself";
  constexpr std::size_t kLongest = kvl::kMaximumImageBytes;
  EXPECT_EQ(open(1, "take 240"), Outcome::kDone);
  EXPECT_EQ(open(1, "take 260"), Outcome::kMemory);
  EXPECT_EQ(openFile(2, padded("TELL take 300", kLongest)), Outcome::kMemory);
  EXPECT_EQ(open(1, "take 265"), Outcome::kMemory) << "the file has gone";
  EXPECT_EQ(openFile(2, padded("TELL take 240", kLongest)), Outcome::kDone);
  EXPECT_EQ(openFile(3, padded("TELL take 240", kLongest)), Outcome::kDone);
  EXPECT_EQ(openFile(4, padded("TELL take 260", kLongest)), Outcome::kMemory);
}

TEST_F(WorkerTest, SaysWhenALibraryEndsItForWantOfMemory) {
  ASSERT_TRUE(worker().send(openRequest(1, "TELL abort-for-memory")));
  const auto ended = worker().ended();
  ASSERT_TRUE(ended);
  ASSERT_TRUE(WIFEXITED(ended->status));
  EXPECT_EQ(WEXITSTATUS(ended->status), kvl::interface::kOutOfMemory);
}

TEST_F(WorkerTest, EndsWhenItsSocketIsClosed) {
  const Descriptor life(dup(worker().life()));
  static_cast<void>(DecoderWorker(std::move(worker())));
  EXPECT_TRUE(kvltest::becomesReadable(life.get()));
}

TEST_F(WorkerTest, SleepsWhenNothingIsAsked) {
  ASSERT_EQ(open(1, "wide 1"), Outcome::kDone);
  const auto state = "/proc/" + std::to_string(worker().process()) + "/stat";
  EXPECT_TRUE(kvltest::waitUntil([&state] {
    std::string number;
    std::string name;
    std::string how;
    std::ifstream(state) >> number >> name >> how;
    return how == "S";
  }));
}

struct WrongRequest {
  const char* name;
  std::function<bool(DecoderWorker&)> send;
};

bool sendFile(DecoderWorker& worker, const std::optional<Descriptor>& file, std::size_t size) {
  ImageRequest request;
  request.number = 1;
  request.image = 1;
  request.byteCount = size;
  const int descriptor = file ? file->get() : -1;
  return worker.send(request, {&descriptor, 1});
}

bool sendTarget(DecoderWorker& worker, const std::optional<Descriptor>& file, PixelSize size) {
  auto request = openRequest(1, "TELL wide 1");
  request.drawing = size;
  request.pixelsInFile = true;
  const int descriptor = file ? file->get() : -1;
  return worker.send(request, {&descriptor, 1});
}

// Not sealed, as the kernel makes them.
std::optional<Descriptor> openFileOf(std::size_t size) {
  Descriptor file(memfd_create("open", MFD_CLOEXEC | MFD_ALLOW_SEALING));
  if (ftruncate(file.get(), static_cast<off_t>(size)) != 0) return {};
  return file;
}

const std::vector<WrongRequest>& wrongRequests() {
  static const std::vector<WrongRequest> requests{
      {"no request", [](DecoderWorker& worker) { return worker.send(bytesOf("abcdefgh")); }},
      {"bytes that may change",
       [](DecoderWorker& worker) { return sendFile(worker, openFileOf(50'000), 50'000); }},
      {"a file that is shorter",
       [](DecoderWorker& worker) {
         return sendFile(worker, kvl::interface::sealedFile(kvl::Bytes(49'999)), 50'000);
       }},
      {"pixels whose file may shrink",
       [](DecoderWorker& worker) { return sendTarget(worker, openFileOf(40'000), {100, 100}); }},
      {"pixels of another number",
       [](DecoderWorker& worker) {
         return sendTarget(worker, kvl::interface::drawableFile(39'996), {100, 100});
       }},
      {"more pixels than there may be", [](DecoderWorker& worker) {
         const PixelSize size{65'535, kvl::kMaximumBitmapPixels / 65'535 + 1};
         return sendTarget(worker, kvl::interface::drawableFile(byteCountOf(size)), size);
       }}};
  return requests;
}

TEST_F(WorkerTest, AWrongRequestEndsIt) {
  for (const auto& wrong : wrongRequests()) {
    auto other = decoder().start();
    ASSERT_TRUE(other && wrong.send(*other)) << wrong.name;
    const auto ended = other->ended();
    ASSERT_TRUE(ended) << wrong.name;
    EXPECT_TRUE(WIFEXITED(ended->status)) << wrong.name;
    EXPECT_EQ(WEXITSTATUS(ended->status), 2) << wrong.name;
  }
}

TEST_F(WorkerTest, AsManyPixelsAsThereMayBeAreDrawn) {
  const PixelSize size{4096, kvl::kMaximumBitmapPixels / 4096};
  const auto file = kvl::interface::drawableFile(byteCountOf(size));
  ASSERT_TRUE(sendTarget(worker(), file, size));
  const auto answered = worker().answer();
  ASSERT_TRUE(answered);
  EXPECT_EQ(answered->answer.outcome, Outcome::kDone);
  EXPECT_EQ(answered->answer.pixelSize, size);
}

TEST(ImageDecoderTest, TheProgramDecodesAndDraws) {
  kvltest::DecoderProcess decoder(KVL_IMAGE_DECODER);
  ASSERT_TRUE(decoder.hello());
  auto worker = decoder.start();
  ASSERT_TRUE(worker);
  auto request = openRequest(
      1,
      "<svg xmlns='http://www.w3.org/2000/svg' width='6' height='4'><rect width='6' height='4' "
      "fill='#102030'/></svg>");
  request.drawing = PixelSize{1, 1};
  const auto answered = worker->ask(request);
  ASSERT_TRUE(answered);
  EXPECT_EQ(answered->answer.naturalSize, (kvl::Size{6, 4}));
  EXPECT_THAT(answered->pixels, testing::ElementsAre(0x10, 0x20, 0x30, 0xFF));
  EXPECT_EQ(worker->tell("spin"), -1) << "an order is not an image to it";
}

}  // namespace
