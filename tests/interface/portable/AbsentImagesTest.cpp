// Images where nothing can confine the program that decodes them.
#include "platform/interface/client/ImageDecoding.h"

#include <local/platform/Log.h>
#include <local/platform/Semaphore.h>

#include <gtest/gtest.h>

#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace {

using kvl::interface::ImageDecoding;
using kvl::interface::ImageFormat;
using kvl::interface::ImageSource;

std::shared_ptr<ImageSource> picture() {
  return std::make_shared<ImageSource>(kvl::Data::fromText("<svg/>"), ImageFormat::kSVG);
}

class AbsentImagesTest : public testing::Test {
 protected:
  AbsentImagesTest() {
    kvl::setLogSink([this](std::string_view line) {
      const std::lock_guard lock(mutex_);
      lines.emplace_back(line);
    });
  }
  ~AbsentImagesTest() override { kvl::setLogSink(nullptr); }

  std::mutex mutex_;
  std::vector<std::string> lines;
  ImageDecoding decoding{{}};
};

TEST_F(AbsentImagesTest, AreNotThereAndTheLogSaysSoOnce) {
  EXPECT_FALSE(decoding.open(picture()));
  EXPECT_TRUE(decoding.draw(picture(), {1, 1}).empty());
  EXPECT_FALSE(decoding.open(picture()));
  EXPECT_EQ(lines, std::vector<std::string>{
                       "no images: this system has nothing that confines their decoder"});
}

TEST_F(AbsentImagesTest, HandlersAreCalledOnAnotherThread) {
  kvl::Semaphore done;
  const auto here = std::this_thread::get_id();
  decoding.open(picture(), [&](auto size) {
    EXPECT_FALSE(size);
    EXPECT_NE(std::this_thread::get_id(), here);
    done.signal();
  });
  decoding.draw(picture(), {1, 1}, [&](const kvl::Bitmap& bitmap) {
    EXPECT_TRUE(bitmap.empty());
    done.signal();
  });
  EXPECT_TRUE(done.waitFor(std::chrono::seconds(30)));
  EXPECT_TRUE(done.waitFor(std::chrono::seconds(30)));
}

TEST_F(AbsentImagesTest, OfOnesThatWereLetGoNobodyHears) {
  const auto source = picture();
  source->letGo();
  const auto held = std::make_shared<int>();
  decoding.open(source, [held](auto) { FAIL(); });
  decoding.draw(source, {1, 1}, [held](const auto&) { FAIL(); });
  EXPECT_EQ(held.use_count(), 1);
}

}  // namespace
