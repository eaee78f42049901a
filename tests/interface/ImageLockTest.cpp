// Who waits while a picture is drawn: a thread is stopped inside a function of the drawing library.
#include "platform/interface/ImageEntryPoint.h"
#include "tests/interface/MadeBytes.h"
#include "tests/support/Halt.h"
#include "tests/support/OtherThread.h"

#include <cairo.h>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <poppler.h>

#include <atomic>
#include <functional>
#include <memory>
#include <string_view>
#include <vector>

extern "C" const KVLImageFunctions* kvlImageFunctions(std::uint32_t version);

namespace {

using Place = std::function<void()>;

std::atomic<const Place*> beforeScaling = nullptr;
std::atomic<const Place*> beforeRendering = nullptr;

void passBy(const std::atomic<const Place*>& place) {
  if (const Place* const reached = place) (*reached)();
}

}  // namespace

// In the place of the libraries' own, which they call in the end.
extern "C" {

void cairo_scale(cairo_t* context, double x, double y) {
  passBy(beforeScaling);
  static const auto next =
      reinterpret_cast<decltype(&cairo_scale)>(dlsym(RTLD_NEXT, "cairo_scale"));
  next(context, x, y);
}

void poppler_page_render(PopplerPage* page, cairo_t* context) {
  passBy(beforeRendering);
  static const auto next =
      reinterpret_cast<decltype(&poppler_page_render)>(dlsym(RTLD_NEXT, "poppler_page_render"));
  next(page, context);
}

}  // extern "C"

namespace {

using kvltest::Halt;
using kvltest::OtherThread;

constexpr std::string_view kSVG =
    "<svg xmlns='http://www.w3.org/2000/svg' width='8' height='8'></svg>";
constexpr std::string_view kPDF =
    "%PDF-1.4\n1 0 obj<</Type/Catalog/Pages 2 0 R>>endobj\n"
    "2 0 obj<</Type/Pages/Kids[3 0 R]/Count 1>>endobj\n"
    "3 0 obj<</Type/Page/Parent 2 0 R/MediaBox[0 0 8 8]>>endobj\n"
    "trailer<</Root 1 0 R/Size 4>>\n%%EOF";

const KVLImageFunctions& functions() {
  return *kvlImageFunctions(kvl::interface::kImageModuleVersion);
}

struct Release {
  void operator()(KVLImagePicture* picture) const { functions().release(picture); }
};
using Picture = std::unique_ptr<KVLImagePicture, Release>;

Picture decoded(std::string_view text) {
  const auto bytes = kvltest::spanOf(text);
  KVLImageDescription description{};
  return Picture(functions().decode(bytes.data(), bytes.size(), &description));
}

void draw(const Picture& picture) {
  std::vector<std::uint8_t> pixels(std::size_t{4} * 8 * 8);
  EXPECT_TRUE(functions().draw(picture.get(), 8, 8, pixels.data()));
}

// Where the first thread stops.
class ImageLockTest : public testing::Test {
 protected:
  ~ImageLockTest() override {
    beforeScaling = nullptr;
    beforeRendering = nullptr;
  }

  const Halt halt_;
  const Place place_ = halt_.place();
};

TEST_F(ImageLockTest, OnePictureIsDrawnOnceAtATimeAndOthersMeanwhile) {
  const auto picture = decoded(kSVG);
  const auto other = decoded(kSVG);
  ASSERT_TRUE(picture && other);
  beforeScaling = &place_;
  const OtherThread first([&] { draw(picture); });
  ASSERT_TRUE(halt_.isReached());
  const OtherThread second([&] { draw(picture); });
  EXPECT_TRUE(second.isWaiting());
  draw(other);
  halt_.letGo();
}

TEST_F(ImageLockTest, WhileADocumentIsDrawnNoneIsDrawnOpenedOrClosed) {
  const auto picture = decoded(kPDF);
  const auto other = decoded(kPDF);
  auto closed = decoded(kPDF);
  Picture opened;
  ASSERT_TRUE(picture && other && closed);
  beforeRendering = &place_;
  const OtherThread first([&] { draw(picture); });
  ASSERT_TRUE(halt_.isReached());
  const OtherThread second([&] { draw(other); });
  EXPECT_TRUE(second.isWaiting());
  const OtherThread opening([&] { opened = decoded(kPDF); });
  EXPECT_TRUE(opening.isWaiting());
  const OtherThread closing([&] { closed.reset(); });
  EXPECT_TRUE(closing.isWaiting());
  halt_.letGo();
}

}  // namespace
