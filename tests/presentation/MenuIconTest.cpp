#include "tests/presentation/MenuFixture.h"

#include <local/platform/FontMeasurement.h>

#include <atomic>
#include <thread>
#include <utility>

namespace {

using kvl::Dictionary;
using kvl::MenuItem;
using kvltest::PlainImage;
using testing::IsEmpty;

constexpr double kHeight = 17.25;

// Measures for the whole program from its start on, and counts.
class CountingMeasurement final : public kvl::FontMeasurement {
 public:
  CountingMeasurement() = default;

  [[nodiscard]] kvl::Size menuBarTextSize(std::string_view text) override {
    ++count_;
    onlyTheLetter_ = onlyTheLetter_ && text == "A";
    return {3 * kHeight, kHeight};
  }
  [[nodiscard]] int count() const { return count_; }
  [[nodiscard]] bool onlyTheLetter() const { return onlyTheLetter_; }

 private:
  std::atomic<int> count_ = 0;
  std::atomic<bool> onlyTheLetter_ = true;
};

const std::shared_ptr<CountingMeasurement> measurement = [] {
  auto made = std::make_shared<CountingMeasurement>();
  kvl::setFontMeasurement(made);
  return made;
}();

TEST(MenuIconSizeTest, IsTheHeightOfTheLetterAInBothDirectionsMeasuredOnce) {
  {
    std::vector<std::jthread> threads;
    for (int i = 0; i < 4; ++i) {
      threads.emplace_back(
          [] { EXPECT_EQ(KVLEncoding::menuIconSize(), (kvl::Size{kHeight, kHeight})); });
    }
  }
  EXPECT_EQ(KVLEncoding::menuIconSize(), (kvl::Size{kHeight, kHeight}));
  EXPECT_EQ(measurement->count(), 1);
  EXPECT_TRUE(measurement->onlyTheLetter());
}

class MenuIconTest : public kvltest::MenuFixture {
 protected:
  [[nodiscard]] std::shared_ptr<MenuItem> buildWithIcon() const {
    return buildItem({{"icon", "icons/a b.png"}});
  }
};

TEST_F(MenuIconTest, IsRequestedByPathAtTheIconSizeAndComesLater) {
  const auto item = buildWithIcon();
  ASSERT_EQ(images_->requests.size(), 1U);
  EXPECT_EQ(images_->requests[0].path, "icons/a b.png");
  EXPECT_EQ(images_->requests[0].size, KVLEncoding::menuIconSize());
  EXPECT_EQ(item->image(), nullptr);
  const auto image = std::make_shared<PlainImage>();
  images_->requests[0].completion(image);
  EXPECT_EQ(item->image(), image);
}

TEST_F(MenuIconTest, IsExpectedFromTheRequestOnWhateverComes) {
  const auto item = buildWithIcon();
  EXPECT_TRUE(item->expectsImage());
  images_->requests[0].completion(std::make_shared<PlainImage>());
  EXPECT_TRUE(item->expectsImage());
  images_->requests[0].completion(nullptr);
  EXPECT_TRUE(item->expectsImage());
}

TEST_F(MenuIconTest, IsNotExpectedWhereNoneIsRequested) {
  EXPECT_FALSE(buildItem({{"icon", ""}})->expectsImage());
  EXPECT_FALSE(buildItem({})->expectsImage());
  const Dictionary description{{"type", "item"}, {"icon", "a.png"}};
  EXPECT_FALSE(KVLEncoding::menuItem(description, nullptr, action_, target_)->expectsImage());
}

TEST_F(MenuIconTest, NoImageClearsTheItemsImageWithoutALine) {
  const auto item = buildWithIcon();
  item->setImage(std::make_shared<PlainImage>());
  images_->requests[0].completion(nullptr);
  EXPECT_EQ(item->image(), nullptr);
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(MenuIconTest, EmptyPathAndNoPathAreNotRequested) {
  static_cast<void>(buildItem({{"icon", ""}}));
  static_cast<void>(buildItem({}));
  EXPECT_THAT(images_->requests, IsEmpty());
}

TEST_F(MenuIconTest, WithoutASourceThereAreNoIcons) {
  const Dictionary description{{"type", "item"}, {"icon", "a.png"}};
  EXPECT_EQ(KVLEncoding::menuItem(description, nullptr, action_, target_)->image(), nullptr);
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(MenuIconTest, MayComeInsideTheRequest) {
  class PromptSource final : public KVLEncodingImageSource {
   public:
    void imageWithRelativePath(const KVLEncoding::RelativePath&, kvl::Size,
                               Completion completionHandler) override {
      completionHandler(image);
    }
    const std::shared_ptr<PlainImage> image = std::make_shared<PlainImage>();
  };
  const auto source = std::make_shared<PromptSource>();
  const Dictionary description{{"type", "item"}, {"icon", "a.png"}};
  const auto item = KVLEncoding::menuItem(description, source, action_, target_);
  EXPECT_EQ(item->image(), source->image);
  EXPECT_TRUE(item->expectsImage());
}

TEST_F(MenuIconTest, PendingIconKeepsItsItem) {
  auto item = buildWithIcon();
  const std::weak_ptr<MenuItem> watched = item;
  item.reset();
  EXPECT_FALSE(watched.expired());
  images_->requests[0].completion(std::make_shared<PlainImage>());
  EXPECT_NE(watched.lock()->image(), nullptr);
  images_->requests.clear();
  EXPECT_TRUE(watched.expired());
}

TEST_F(MenuIconTest, SourceThatNeverAnswersLetsGoOfTheItem) {
  auto item = buildWithIcon();
  const std::weak_ptr<MenuItem> watched = item;
  item.reset();
  images_->requests.clear();
  EXPECT_TRUE(watched.expired());
}

TEST_F(MenuIconTest, SourceIsNotKept) {
  auto source = std::make_shared<kvltest::RecordingImageSource>();
  const Dictionary description{{"type", "item"}, {"icon", "a.png"}};
  const auto item = KVLEncoding::menuItem(description, source, action_, target_);
  EXPECT_EQ(source.use_count(), 1);
}

TEST_F(MenuIconTest, MayComeOnAnyThreadWhileTheMenuIsDestroyed) {
  const auto image = std::make_shared<PlainImage>();
  for (int round = 0; round < 50; ++round) {
    auto menu = std::make_unique<kvl::Menu>();
    addItems(kvl::Array{Dictionary{{"type", "item"}, {"icon", "a.png"}}}, *menu);
    const std::weak_ptr<MenuItem> watched = menu->items().front();
    // Every other item outlives its menu and gets its icon all the same.
    auto kept = round % 2 == 0 ? watched.lock() : nullptr;
    auto completion = std::move(images_->requests.back().completion);
    images_->requests.clear();
    // A function that was moved away may still hold what it held.
    std::thread other(
        [&image, completion = std::exchange(completion, nullptr)] { completion(image); });
    menu.reset();
    other.join();
    if (kept) EXPECT_EQ(kept->image(), image) << round;
    kept.reset();
    EXPECT_TRUE(watched.expired()) << round;
  }
  EXPECT_EQ(image.use_count(), 1);
}

TEST_F(MenuIconTest, IsSetOnTheThreadOnWhichItComes) {
  const auto item = buildWithIcon();
  std::thread::id told;
  const auto observation = item->observe([&] { told = std::this_thread::get_id(); });
  std::thread other([&] { images_->requests[0].completion(std::make_shared<PlainImage>()); });
  const auto expected = other.get_id();
  other.join();
  EXPECT_EQ(told, expected);
}

}  // namespace
