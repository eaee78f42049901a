// Images that would take a decoder's time, its memory or the decoder itself, through real decoders.
// They have a part of the time that an image usually may take; KVL_HOSTILE=all gives them all of
// it.
#include "platform/interface/client/ImageDecoding.h"
#include "tests/images/DecoderProcesses.h"
#include "tests/images/HostileFiles.h"
#include "tests/support/LogCapture.h"
#include "tests/support/Sanitized.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace {

using namespace kvltest;
using namespace std::chrono_literals;
using kvl::interface::ImageDecoding;
using kvl::interface::ImageSource;
using kvl::interface::PixelSize;
using Clock = std::chrono::steady_clock;

constexpr std::string_view kRefused = "image refused: ";
constexpr std::chrono::milliseconds kShortTime = kSanitized ? 600ms : 200ms;
constexpr std::chrono::milliseconds kPatience = 60s;  // twenty seconds of them may be the image's
constexpr std::int64_t kMostMemory = 8LL << 20;
constexpr double kLongestSide = 16'384;
// What nobody has drawn yet.
constexpr std::string_view kEndless[] = {"05-nested-masks.svg", "23-many-scans.jpg",
                                         "36-tiling-pattern.pdf", "40-form-tree.pdf"};

constexpr std::string_view kIcon =
    R"(<svg xmlns="http://www.w3.org/2000/svg" width="32" height="32"><path d="M0 0h32v32z"/></svg>)";

std::int64_t memoryStatus(std::string_view field) {
  std::ifstream status("/proc/self/status");
  for (std::string word; status >> word;) {
    std::int64_t kilobytes = 0;
    if (word == field && status >> kilobytes) return kilobytes * 1024;
  }
  return 0;
}

std::chrono::microseconds processorTimeOfChildren() {
  rusage usage{};
  getrusage(RUSAGE_CHILDREN, &usage);
  return std::chrono::seconds(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
         std::chrono::microseconds(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec);
}

// The bytes of one file after the other, always in the same memory.
class Buffer {
 public:
  Buffer() : bytes_(std::make_shared<kvl::Bytes>(kvl::kMaximumImageBytes, std::uint8_t{1})) {}

  [[nodiscard]] kvl::Data read(const std::string& name) const {
    std::ifstream file(hostileFolder() / name, std::ios::binary);
    file.rdbuf()->pubsetbuf(nullptr, 0);
    file.read(reinterpret_cast<char*>(bytes_->data()),
              static_cast<std::streamsize>(bytes_->size()));
    return {bytes_, std::span(*bytes_).first(static_cast<std::size_t>(file.gcount()))};
  }

 private:
  const std::shared_ptr<kvl::Bytes> bytes_;
};

// As `Image::rasterised` has it.
PixelSize pixelsOf(kvl::Size size) {
  const double area = size.width * size.height;
  const double factor = std::min(1.0, std::sqrt(double{kvl::kMaximumBitmapPixels} / area));
  const auto whole = [factor](double length) {
    return static_cast<std::uint32_t>(std::clamp(std::floor(length * factor), 1.0, kLongestSide));
  };
  return {whole(size.width), whole(size.height)};
}

std::shared_ptr<ImageSource> sourceOf(const kvl::Data& data) {
  return std::make_shared<ImageSource>(data,
                                       kvl::interface::imageFormatOf({data.data(), data.size()}));
}

ImageDecoding::Options optionsWith(std::chrono::milliseconds processorTime) {
  ImageDecoding::Options options;
  options.processorTime = processorTime;
  return options;
}

class HostileImagesTest : public testing::Test {
 protected:
  HostileImagesTest() { static_cast<void>(hostileFolder()); }

  // The result of `work`, which must come in time.
  template <class Work>
  auto timed(const std::string& name, const Work& work) {
    const auto start = Clock::now();
    auto result = work();
    EXPECT_LT(Clock::now() - start, kPatience) << name;
    if (!result) ++refusals;
    return result;
  }

  // Opens it and draws it at its size and at 256 points, as a host would.
  void use(const kvl::Data& data, const std::string& name) {
    const auto source = sourceOf(data);
    const auto size = timed(name, [&] { return decoding->open(source); });
    if (!size) return;
    for (const auto pixels : {pixelsOf(*size), PixelSize{256, 256}}) {
      const auto bitmap = timed(name, [&] {
        auto drawn = decoding->draw(source, pixels);
        return drawn.empty() ? std::nullopt : std::optional(std::move(drawn));
      });
      if (!bitmap) continue;
      // A drawing that takes too much memory may come with fewer pixels.
      EXPECT_LE(bitmap->width, pixels.width) << name;
      EXPECT_LE(bitmap->height, pixels.height) << name;
    }
    source->letGo();
  }

  [[nodiscard]] std::string said() const {
    std::string text;
    for (const auto& line : log.lines()) text += "\n  " + line;
    return text;
  }

  const LogCapture log;
  const std::chrono::milliseconds limit =
      isLongRun() ? ImageDecoding::Options().processorTime : kShortTime;
  std::optional<ImageDecoding> decoding{std::in_place, optionsWith(limit)};
  std::atomic<int> refusals = 0;
};

TEST_F(HostileImagesTest, EachEndsAtItsLimitWithOneLineAndTakesNoMemoryOfTheHost) {
  const Buffer buffer;
  use(kvl::Data::fromText(kIcon), "an icon");
  const auto timeBefore = processorTimeOfChildren();
  std::ofstream("/proc/self/clear_refs") << '5';
  const auto memoryBefore = memoryStatus("VmHWM:");
  int refusedInAll = 0;
  for (const auto& name : hostileNames()) {
    log.clear();
    refusals = 0;
    use(buffer.read(name), name);
    refusedInAll += refusals;
    // What is known to take too much is refused without another line.
    EXPECT_LE(log.count(kRefused), static_cast<std::size_t>(refusals)) << name << said();
    EXPECT_EQ(log.count(kRefused) > 0, refusals > 0) << name << said();
    if (std::ranges::find(kEndless, name) == std::end(kEndless)) continue;
    EXPECT_GE(log.count("of processor time"), 1) << name << said();
  }
  const auto growth = memoryStatus("VmHWM:") - memoryBefore;
  decoding.reset();
  EXPECT_TRUE(decoderProcesses().empty());
  if (!kSanitized) EXPECT_LT(growth, kMostMemory);
  const auto time = processorTimeOfChildren() - timeBefore;
  EXPECT_LT(time, 2 * limit * refusedInAll + 20s);
  std::fprintf(stderr, "host's memory %+lld KiB, decoders' time %lld ms, %d refusals\n",
               static_cast<long long>(growth / 1024), static_cast<long long>(time / 1ms),
               refusedInAll);
}

// Two threads have the same hostile files decoded, so that all decoders there may be have one.
TEST_F(HostileImagesTest, IconsBesideTwoOfEachAreDrawn) {
  const auto some = std::span(kEndless).first(kSanitized ? 2 : std::size(kEndless));
  std::atomic<int> busy = 2;
  std::vector<std::jthread> threads;
  for (int i = 0; i < 2; ++i) {
    threads.emplace_back([&] {
      const Buffer buffer;
      for (const auto name : some) use(buffer.read(std::string(name)), std::string(name));
      --busy;
    });
  }
  int drawn = 0;
  Clock::duration longest{};
  for (; busy > 0; ++drawn) {
    const auto start = Clock::now();
    const auto source = sourceOf(kvl::Data::fromText(kIcon));
    ASSERT_TRUE(decoding->open(source)) << said();
    ASSERT_FALSE(decoding->draw(source, {32, 32}).empty()) << said();
    longest = std::max(longest, Clock::now() - start);
  }
  std::fprintf(stderr, "%d icons, at most %lld ms each\n", drawn,
               static_cast<long long>(longest / 1ms));
  // Otherwise each would wait for one that has all its time.
  EXPECT_GT(drawn, 2 * static_cast<int>(some.size()));
  EXPECT_LT(longest, kPatience);
}

}  // namespace
