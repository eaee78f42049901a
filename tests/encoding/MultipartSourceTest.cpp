#include "encoding/MultipartSource.h"
#include "tests/encoding/MultipartSupport.h"
#include "tests/encoding/OpenFile.h"
#include "tests/support/ProcessFigures.h"
#include "tests/support/Sanitized.h"

#include <local/platform/Date.h>

#include <gtest/gtest.h>

#include <limits>
#include <random>
#include <string>
#include <vector>

namespace {

using namespace kvltest;
using kvl::encoding::MultipartSource;
using kvl::encoding::writeMultipartBody;

constexpr std::size_t kBlockSize = std::size_t{256} << 10;

bool isWanted() {
  return false;
}

kvl::Value fileOf(const OpenFile& file) {
  return std::shared_ptr<kvl::Object>(
      KVLInputFile::newWithDescriptor("f", "t/t", file.descriptor()));
}

std::string readAll(kvl::BodySource& source, std::mt19937& random) {
  std::string content;
  for (;;) {
    std::vector<std::uint8_t> room(1 + random() % 70'000);
    const std::size_t count = source.read(room, nullptr);
    if (count == 0) return content;
    content.append(room.begin(), room.begin() + static_cast<std::ptrdiff_t>(count));
  }
}

std::string randomText(std::mt19937& random, std::size_t size) {
  std::string text;
  while (text.size() < size) text += "abcdefABCDEF\n-"[random() % 14];
  return text;
}

// Inputs of every kind, most of them open files, with the boundary in some.
class RandomForm {
 public:
  explicit RandomForm(std::mt19937& random) : random_(&random) {
    addFile();
    for (auto count = random() % 5; count > 0; --count) add();
  }
  [[nodiscard]] const kvl::Array& inputs() const { return inputs_; }

 private:
  void add() {
    auto& random = *random_;
    const auto text = randomText(random, random() % 5000);
    switch (random() % 6) {
      case 0:
        return append(text);
      case 1:
        return append(static_cast<std::int64_t>(random()));
      case 2:
        return append(kvl::Data::fromText(text));
      case 3:
        return append(file("name", std::nullopt, text));
      case 4:
        return inputs_.append(kvl::Dictionary{{"name", "none"}});
      default:
        return addFile();
    }
  }
  void addFile() {
    auto& random = *random_;
    auto content = randomText(random, random() % (2 * kBlockSize));
    if (random() % 2 == 0) content.insert(random() % (content.size() + 1), kBoundary);
    files_.push_back(std::make_unique<OpenFile>(content));
    append(fileOf(*files_.back()));
  }
  void append(const kvl::Value& value) { inputs_.append(input("name", value)); }

  std::mt19937* random_;
  kvl::Array inputs_;
  std::vector<std::unique_ptr<OpenFile>> files_;
};

TEST(MultipartSourceTest, BytesAndFieldsAreThoseOfTheBuffer) {
  std::mt19937 random(5);
  std::size_t drawn = 0;
  for (int round = 0; round < 40; ++round) {
    const RandomForm form(random);
    Boundaries forSource({std::string(kBoundary), std::string(kOtherBoundary)});
    Boundaries forBuffer({std::string(kBoundary), std::string(kOtherBoundary)});
    auto streamed = filledRequest();
    auto buffered = filledRequest();
    ASSERT_EQ(writeMultipartBody(buffered, form.inputs(), forBuffer.source()), std::nullopt);
    const auto source = MultipartSource::make(form.inputs(), nullptr);
    ASSERT_NE(source, nullptr);
    ASSERT_EQ(source->findBoundary(forSource.source(), isWanted), std::nullopt);
    MultipartSource::setBody(streamed, source);
    EXPECT_EQ(streamed.headers(), buffered.headers());
    EXPECT_EQ(streamed.method(), buffered.method());
    EXPECT_FALSE(streamed.body());
    EXPECT_EQ(streamed.bodySource(), source);
    EXPECT_EQ(source->length(), buffered.body()->size());
    EXPECT_TRUE(readAll(*source, random) == buffered.body()->text()) << round;
    EXPECT_EQ(forSource.drawn(), forBuffer.drawn());
    drawn += forSource.drawn();
  }
  EXPECT_GT(drawn, 45U);
  EXPECT_LT(drawn, 80U);
}

TEST(MultipartSourceTest, BeginsAgainAfterARewind) {
  std::mt19937 random(6);
  const RandomForm form(random);
  const auto source = MultipartSource::make(form.inputs(), nullptr);
  ASSERT_EQ(source->findBoundary(always(kOtherBoundary), isWanted), std::nullopt);
  const auto whole = readAll(*source, random);
  EXPECT_EQ(source->length(), whole.size());
  for (const std::size_t count : {std::size_t{1}, whole.size() / 2, whole.size()}) {
    EXPECT_TRUE(source->rewind());
    std::vector<std::uint8_t> some(count);
    EXPECT_EQ(source->read(some, nullptr), count);
    EXPECT_TRUE(source->rewind());
    EXPECT_TRUE(readAll(*source, random) == whole);
  }
}

// Whether another boundary than the first is taken for a file that holds this.
bool isFoundIn(std::string_view content) {
  const OpenFile open(content);
  Boundaries boundaries({std::string(kBoundary), std::string(kOtherBoundary)});
  const auto source = MultipartSource::make({input("a", fileOf(open))}, nullptr);
  EXPECT_EQ(source->findBoundary(boundaries.source(), isWanted), std::nullopt);
  return boundaries.drawn() == 2;
}

TEST(MultipartSourceTest, ABoundaryThatStraddlesBlocksIsFound) {
  const std::string filling(2 * kBlockSize + 100, 'x');
  EXPECT_FALSE(isFoundIn(filling));
  for (const std::size_t block : {kBlockSize, 2 * kBlockSize}) {
    for (std::size_t before = 0; before <= kBoundary.size(); ++before) {
      auto content = filling;
      content.replace(block - before, kBoundary.size(), kBoundary);
      EXPECT_TRUE(isFoundIn(content)) << before;
      content[block - before] = 'x';
      EXPECT_FALSE(isFoundIn(content)) << before;
    }
  }
}

TEST(MultipartSourceTest, ABoundaryIsFoundAtBothEndsOfAFile) {
  const std::string filling(kBlockSize + 5, 'x');
  EXPECT_TRUE(isFoundIn(std::string(kBoundary) + filling));
  EXPECT_TRUE(isFoundIn(filling + std::string(kBoundary)));
  EXPECT_TRUE(isFoundIn(kBoundary));
  EXPECT_FALSE(isFoundIn(""));
}

TEST(MultipartSourceTest, ABoundaryIsFoundWhereHeadAndFileMeet) {
  const OpenFile open("abcdefg");
  for (const auto& [first, drawn] : {std::pair("t/t\n\nabcdefg", 2U), {"t/t\n\nabcdefx", 1U}}) {
    Boundaries boundaries({first, std::string(kOtherBoundary)});
    const auto source = MultipartSource::make({input("a", fileOf(open))}, nullptr);
    EXPECT_EQ(source->findBoundary(boundaries.source(), isWanted), std::nullopt);
    EXPECT_EQ(boundaries.drawn(), drawn);
  }
}

// Nor across two parts.
TEST(MultipartSourceTest, TheEndOfAFileMeetsNothing) {
  const OpenFile open("abcdef");
  Boundaries boundaries({"abcdefConten"});
  const auto source =
      MultipartSource::make({input("a", fileOf(open)), input("ABCDEF", "")}, nullptr);
  EXPECT_EQ(source->findBoundary(boundaries.source(), isWanted), std::nullopt);
}

TEST(MultipartSourceTest, TheTenthBoundaryIsDrawnButNeverTaken) {
  const OpenFile open(kBoundary);
  std::vector<std::string> all(9, std::string(kBoundary));
  all.emplace_back(kOtherBoundary);
  Boundaries boundaries(all);
  const auto source = MultipartSource::make({input("a", fileOf(open))}, nullptr);
  EXPECT_EQ(source->findBoundary(boundaries.source(), isWanted),
            extensionsError(400, {{"watchdog", "unable to derive unique boundary"}}));
  EXPECT_EQ(boundaries.drawn(), 10U);
}

TEST(MultipartSourceTest, IsMadeForOpenFilesAlone) {
  std::optional<kvl::Error> error;
  EXPECT_EQ(MultipartSource::make({}, &error), nullptr);
  EXPECT_EQ(MultipartSource::make({input("a", "x"), input("b", file("f", "t/t", "x"))}, &error),
            nullptr);
  EXPECT_FALSE(error);
  const OpenFile open("abc");
  EXPECT_EQ(MultipartSource::make({input("a", fileOf(open)), kvl::Dictionary{}}, &error), nullptr);
  EXPECT_EQ(error, extensionsError(404, {{"missing value", "name"}}));
}

TEST(MultipartSourceTest, ABodyWhoseLengthCannotBeSaidIsAnError) {
  const OpenFile open("");
  open.resize(std::numeric_limits<off_t>::max());
  const auto one = input("a", fileOf(open));
  for (const auto& inputs : {kvl::Array{one}, kvl::Array{one, one, one}}) {
    std::optional<kvl::Error> error;
    EXPECT_EQ(MultipartSource::make(inputs, &error), nullptr);
    EXPECT_EQ(error, kvl::Error(kvl::NSPOSIXErrorDomain, EFBIG));
  }
}

TEST(MultipartSourceTest, AFileThatHasBecomeShorterIsAnError) {
  const OpenFile open(std::string(kBlockSize, 'x'));
  const auto source = MultipartSource::make({input("a", fileOf(open))}, nullptr);
  open.resize(kBlockSize - 1);
  const auto failed = source->findBoundary(always(kBoundary), isWanted);
  ASSERT_TRUE(failed);
  EXPECT_TRUE(failed->is(kvl::NSCocoaErrorDomain, kvl::NSFileReadUnknownError));
  open.resize(kBlockSize);
  EXPECT_EQ(source->findBoundary(always(kBoundary), isWanted), std::nullopt);
  open.resize(100);
  std::optional<kvl::Error> error;
  std::vector<std::uint8_t> room(kBlockSize);
  EXPECT_EQ(source->read(room, &error), 0U);
  ASSERT_TRUE(error);
  EXPECT_TRUE(error->is(kvl::NSCocoaErrorDomain, kvl::NSFileReadUnknownError));
}

TEST(MultipartSourceTest, AFileThatGrowsIsSentAsItWas) {
  const OpenFile open("the file");
  const kvl::Array inputs{input("a", fileOf(open))};
  kvl::URLRequest request("a");
  ASSERT_EQ(writeMultipartBody(request, inputs, always(kBoundary)), std::nullopt);
  const auto source = MultipartSource::make(inputs, nullptr);
  open.resize(2 * kBlockSize);
  ASSERT_EQ(source->findBoundary(always(kBoundary), isWanted), std::nullopt);
  std::mt19937 random(8);
  EXPECT_EQ(readAll(*source, random), request.body()->text());
}

TEST(MultipartSourceTest, TheSearchStopsOnceNobodyWantsIt) {
  const OpenFile open("");
  open.resize(4 * kBlockSize);
  int asked = 0;
  const auto source = MultipartSource::make({input("a", fileOf(open))}, nullptr);
  const auto stopped = source->findBoundary(always(kBoundary), [&] { return ++asked == 3; });
  ASSERT_TRUE(stopped);
  EXPECT_TRUE(stopped->is(kvl::NSURLErrorDomain, kvl::NSURLErrorCancelled));
  EXPECT_EQ(asked, 3);
}

TEST(MultipartSourceTest, MemoryDoesNotGrowWithTheFile) {
  if (kSanitized || !forgetPeakMemory()) GTEST_SKIP() << "nothing to measure here";
  const OpenFile open("");
  open.resize(64 << 20);
  const auto before = residentMemory();
  const auto source = MultipartSource::make({input("a", fileOf(open))}, nullptr);
  ASSERT_EQ(source->findBoundary(always(kBoundary), isWanted), std::nullopt);
  std::vector<std::uint8_t> room(kBlockSize);
  while (source->read(room, nullptr) > 0) continue;
  EXPECT_LT(peakMemory() - before, 4 << 20);
}

// The caller's inputs go as soon as they like.
TEST(MultipartSourceTest, KeepsWhatItReads) {
  std::shared_ptr<MultipartSource> source;
  std::string expected;
  {
    const OpenFile open("the file");
    kvl::Array inputs{input("a", std::string(1000, 'y')), input("b", fileOf(open))};
    kvl::URLRequest request("a");
    ASSERT_EQ(writeMultipartBody(request, inputs, always(kBoundary)), std::nullopt);
    expected = request.body()->text();
    source = MultipartSource::make(inputs, nullptr);
  }
  ASSERT_EQ(source->findBoundary(always(kBoundary), isWanted), std::nullopt);
  std::mt19937 random(7);
  EXPECT_EQ(readAll(*source, random), expected);
}

}  // namespace
