#include "tests/qt/host/HostFixture.h"

#include <local/qt/ImageSource.h>

#include <gmock/gmock.h>

#include <QThread>
#include <atomic>
#include <thread>

namespace {

using kvl::qt::ImageSource;
using kvltest::eventually;
using ImageRef = std::shared_ptr<kvl::Image>;

class ImageSourceTest : public kvltest::HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    startHost({}, {});
    ASSERT_TRUE(eventually([&] { return session().isEstablished(); }));
  }

  // The image at that size, when it has come.
  static ImageRef imageFrom(ImageSource& source, double side,
                            const char* path = "/image?format=png") {
    std::optional<ImageRef> result;
    source.imageWithRelativePath(KVLEncoding::RelativePath(path), {side, side},
                                 [&](const ImageRef& image) { result = image; });
    EXPECT_TRUE(eventually([&] { return result.has_value(); }));
    return result.value_or(nullptr);
  }

  // Whether the service has been asked for so many images. It logs what it has answered.
  void expectRequests(int count) {
    EXPECT_TRUE(waitForServiceLog("GET /image", count));
    session().json("/status", nullptr, nullptr);
    EXPECT_TRUE(waitForServiceLog("GET /status", ++checks_));
    EXPECT_EQ(QString::fromStdString(serviceLog()).count("GET /image"), count);
  }

 private:
  int checks_ = 0;
};

TEST_F(ImageSourceTest, AsksOnceForTwo) {
  ImageSource source(session().session());
  std::vector<ImageRef> images;
  for (int i = 0; i < 2; ++i) {
    source.imageWithRelativePath(KVLEncoding::RelativePath("/image?format=png"), {8, 8},
                                 [&](const ImageRef& image) {
                                   EXPECT_EQ(QThread::currentThread(), session().thread());
                                   images.push_back(image);
                                 });
  }
  EXPECT_TRUE(eventually([&] { return images.size() == 2; }));
  EXPECT_TRUE(images.at(0) != nullptr && images.at(0) == images.at(1));
  EXPECT_EQ(imageFrom(source, 8), images.at(0));
  expectRequests(1);
}

TEST_F(ImageSourceTest, WhatIsKeptComesInsideTheRequest) {
  ImageSource source(session().session());
  const auto image = imageFrom(source, 8);
  ImageRef again;
  source.imageWithRelativePath(KVLEncoding::RelativePath("/image?format=png"), {8, 8},
                               [&](const ImageRef& kept) { again = kept; });
  EXPECT_TRUE(again != nullptr && again == image);
}

TEST_F(ImageSourceTest, KeepsAsManyAsAreAskedFor) {
  ImageSource source(session().session(), 2);
  (void)imageFrom(source, 1);
  (void)imageFrom(source, 2);
  (void)imageFrom(source, 1);
  expectRequests(2);
  (void)imageFrom(source, 3);  // in the place of 2
  (void)imageFrom(source, 1);
  (void)imageFrom(source, 3);
  expectRequests(3);
  (void)imageFrom(source, 2);
  expectRequests(4);
}

TEST_F(ImageSourceTest, AFailedOneIsAskedForAgain) {
  ImageSource source(session().session());
  EXPECT_EQ(imageFrom(source, 8, "/code?status=404"), nullptr);
  EXPECT_EQ(imageFrom(source, 8, "/code?status=404"), nullptr);
  EXPECT_TRUE(waitForServiceLog("GET /code", 2));
}

TEST_F(ImageSourceTest, ForgottenOnesAreAskedForAgain) {
  ImageSource source(session().session());
  const auto image = imageFrom(source, 8);
  source.forget();
  EXPECT_NE(imageFrom(source, 8), image);
  expectRequests(2);
}

TEST_F(ImageSourceTest, OneThatComesAfterwardsIsForgottenToo) {
  ImageSource source(session().session());
  bool hasCome = false;
  source.imageWithRelativePath(KVLEncoding::RelativePath("/image?format=png"), {8, 8},
                               [&](const ImageRef&) { hasCome = true; });
  source.forget();
  EXPECT_TRUE(eventually([&] { return hasCome; }));
  (void)imageFrom(source, 8);
  expectRequests(2);
}

TEST_F(ImageSourceTest, WhoeverAsksAfterwardsGetsAnother) {
  ImageSource source(session().session());
  std::vector<ImageRef> images;
  const auto ask = [&] {
    source.imageWithRelativePath(KVLEncoding::RelativePath("/image?format=png"), {8, 8},
                                 [&](const ImageRef& image) { images.push_back(image); });
  };
  ask();
  source.forget();
  ask();
  EXPECT_TRUE(eventually([&] { return images.size() == 2; }));
  ASSERT_TRUE(images.at(0) != nullptr && images.at(1) != nullptr);
  EXPECT_NE(images.at(0), images.at(1));
  expectRequests(2);
}

TEST_F(ImageSourceTest, WhoeverAsksOnAnotherThreadIsCalledBackHere) {
  ImageSource source(session().session());
  (void)imageFrom(source, 8);
  int calls = 0;
  std::thread([&] {
    for (const double side : {8.0, 9.0}) {
      source.imageWithRelativePath(KVLEncoding::RelativePath("/image?format=png"), {side, side},
                                   [&](const ImageRef& image) {
                                     EXPECT_EQ(QThread::currentThread(), session().thread());
                                     EXPECT_NE(image, nullptr);
                                     ++calls;
                                   });
    }
  }).join();
  EXPECT_EQ(calls, 0);
  EXPECT_TRUE(eventually([&] { return calls == 2; }));
}

TEST_F(ImageSourceTest, DestroyedWhileWaiting) {
  auto source = std::make_unique<ImageSource>(session().session());
  auto held = std::make_shared<int>();
  source->imageWithRelativePath(KVLEncoding::RelativePath("/slow?ms=50"), {8, 8},
                                [held](const ImageRef&) { ADD_FAILURE(); });
  source.reset();
  EXPECT_EQ(held.use_count(), 1);
  ImageSource other(session().session());
  EXPECT_NE(imageFrom(other, 8), nullptr);
}

TEST_F(ImageSourceTest, DestroyedByItsOwnAnswerItGivesNoOther) {
  auto source = std::make_unique<ImageSource>(session().session());
  const auto held = std::make_shared<int>();
  source->imageWithRelativePath(KVLEncoding::RelativePath("/image?format=png"), {8, 8},
                                [&](const ImageRef&) { source.reset(); });
  source->imageWithRelativePath(KVLEncoding::RelativePath("/image?format=png"), {8, 8},
                                [held](const ImageRef&) { ADD_FAILURE(); });
  EXPECT_TRUE(eventually([&] { return source == nullptr && held.use_count() == 1; }));
}

TEST_F(ImageSourceTest, DestroyedOnAnotherThreadItLeavesWhatWaitsToItsOwn) {
  auto source = std::make_unique<ImageSource>(session().session());
  (void)imageFrom(*source, 8);
  std::atomic<QThread*> where = nullptr;
  std::thread([&] {
    const std::shared_ptr<int> held(new int, [&](const int* number) {
      delete number;
      where = QThread::currentThread();
    });
    source->imageWithRelativePath(KVLEncoding::RelativePath("/image?format=png"), {8, 8},
                                  [held](const ImageRef&) { ADD_FAILURE(); });
    source.reset();
  }).join();
  EXPECT_TRUE(eventually([&] { return where == session().thread(); }));
}

}  // namespace
