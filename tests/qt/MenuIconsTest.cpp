#include "qt/menu/MenuIcons.h"
#include "tests/qt/DrawnImage.h"
#include "tests/qt/MenuScene.h"
#include "tests/support/WaitUntil.h"

#include <gmock/gmock.h>

#include <limits>
#include <list>
#include <string>
#include <vector>

namespace {

using kvl::qt::MenuIcons;
using kvltest::DrawnImage;
using kvltest::eventually;
using testing::ElementsAre;
using testing::Le;

class MenuIconsTest : public testing::Test {
 protected:
  [[nodiscard]] std::unique_ptr<MenuIcons> makeIcons() {
    return std::make_unique<MenuIcons>([this](const auto& image) { arrived.push_back(image); });
  }
  // The picture once it is there.
  [[nodiscard]] QImage drawn(const std::shared_ptr<DrawnImage>& image, double scale = 1) {
    EXPECT_TRUE(eventually([&] { return !icons->picture(image, scale).isNull(); }));
    return icons->picture(image, scale);
  }
  // Nobody works with the image any more.
  [[nodiscard]] static bool isAlone(const std::shared_ptr<DrawnImage>& image) {
    return eventually([&] { return image.use_count() == 1; });
  }

  std::unique_ptr<kvltest::QtApplication> application = std::make_unique<kvltest::QtApplication>();
  std::vector<std::shared_ptr<kvl::Image>> arrived;
  std::unique_ptr<MenuIcons> icons = makeIcons();
};

TEST_F(MenuIconsTest, APictureComesLaterAndSaysWhoseItIs) {
  const auto image = std::make_shared<DrawnImage>();
  EXPECT_TRUE(icons->picture(image, 1).isNull());
  EXPECT_TRUE(eventually([&] { return !arrived.empty(); }));
  EXPECT_THAT(arrived, ElementsAre(image));
  EXPECT_FALSE(icons->picture(image, 1).isNull());
}

TEST_F(MenuIconsTest, NoImageHasNoPicture) {
  EXPECT_TRUE(icons->picture(nullptr, 1).isNull());
}

TEST_F(MenuIconsTest, AnImageIsDrawnOnceAndItsPictureKept) {
  const auto image = std::make_shared<DrawnImage>();
  const auto first = drawn(image).cacheKey();
  EXPECT_EQ(drawn(image).cacheKey(), first);
  EXPECT_EQ(image->drawings(), 1);
}

TEST_F(MenuIconsTest, ASizeThatWasSetIsSeenAtTheNextRequest) {
  const auto image = std::make_shared<DrawnImage>(kvl::Size{8, 8});
  EXPECT_EQ(drawn(image).size(), QSize(8, 8));
  image->setSize({10, 6});
  EXPECT_EQ(drawn(image).size(), QSize(10, 6));
}

TEST_F(MenuIconsTest, EachScaleHasItsOwnPicture) {
  const auto image = std::make_shared<DrawnImage>(kvl::Size{8, 8});
  EXPECT_EQ(drawn(image, 1).size(), QSize(8, 8));
  EXPECT_EQ(drawn(image, 2).size(), QSize(16, 16));
  EXPECT_EQ(drawn(image, 2).deviceIndependentSize(), QSizeF(8, 8));
  EXPECT_EQ(image->drawings(), 2);
}

TEST_F(MenuIconsTest, ALargeImageIsDrawnToFit) {
  const auto image = std::make_shared<DrawnImage>(kvl::Size{4000, 2000});
  EXPECT_EQ(drawn(image, 2).width(), 2 * MenuIcons::side());
  EXPECT_THAT(drawn(image, 2).height(), Le(MenuIcons::side() + 1));
}

TEST_F(MenuIconsTest, AnImageThatGrowsWhileItIsDrawnFitsAllTheSame) {
  const auto image = std::make_shared<DrawnImage>(kvl::Size{8, 8});
  image->growsTo({500, 500});
  (void)icons->picture(image, 1);
  ASSERT_TRUE(eventually([&] { return !arrived.empty(); }));
  image->setSize({8, 8});
  EXPECT_EQ(drawn(image).size(), QSize(MenuIcons::side(), MenuIcons::side()));
}

TEST_F(MenuIconsTest, AnImageThatCannotBeDrawnHasNoPictureAndIsNotAskedAgain) {
  const auto image = std::make_shared<DrawnImage>(kvl::Size{0, 0});
  (void)icons->picture(image, 1);
  ASSERT_TRUE(eventually([&] { return !arrived.empty(); }));
  EXPECT_TRUE(icons->picture(image, 1).isNull());
  EXPECT_EQ(image->drawings(), 1);
}

TEST_F(MenuIconsTest, AnImageWhoseSizeIsNoNumberIsDrawnOnce) {
  const double none = std::numeric_limits<double>::quiet_NaN();
  const auto image = std::make_shared<DrawnImage>(kvl::Size{none, 12});
  (void)icons->picture(image, 1);
  ASSERT_TRUE(eventually([&] { return !arrived.empty(); }));
  (void)icons->picture(image, 1);
  for (int worker = 0; worker < 2; ++worker) (void)drawn(std::make_shared<DrawnImage>());
  EXPECT_EQ(image->drawings(), 1);
}

TEST_F(MenuIconsTest, ASlowDrawingDoesNotHoldUpTheNext) {
  const auto slow = std::make_shared<DrawnImage>();
  const DrawnImage::Held held(*slow);
  (void)icons->picture(slow, 1);
  EXPECT_FALSE(drawn(std::make_shared<DrawnImage>()).isNull());
  EXPECT_TRUE(icons->picture(slow, 1).isNull());
}

TEST_F(MenuIconsTest, SlowDrawingsDoNotHoldUpTheRest) {
  std::vector<std::shared_ptr<DrawnImage>> slow(MenuIcons::kMostDrawings - 1);
  std::list<DrawnImage::Held> held;
  for (auto& image : slow) held.emplace_back(*(image = std::make_shared<DrawnImage>()));
  for (const auto& image : slow) (void)icons->picture(image, 1);
  std::vector<std::shared_ptr<DrawnImage>> rest(20);
  for (auto& image : rest) (void)icons->picture(image = std::make_shared<DrawnImage>(), 1);
  EXPECT_TRUE(eventually([&] { return arrived.size() == rest.size(); }));
  for (const auto& image : rest) EXPECT_FALSE(icons->picture(image, 1).isNull());
  for (const auto& image : slow) EXPECT_TRUE(icons->picture(image, 1).isNull());
}

TEST_F(MenuIconsTest, TheIconsMayGoAwayWhileTheyAreDrawn) {
  const auto image = std::make_shared<DrawnImage>();
  {
    const DrawnImage::Held held(*image);
    (void)icons->picture(image, 1);
    ASSERT_TRUE(eventually([&] { return image->drawings() == 1; }));
    icons.reset();
  }
  EXPECT_TRUE(isAlone(image));
  EXPECT_TRUE(arrived.empty());
}

TEST_F(MenuIconsTest, TheApplicationMayGoAwayWhileTheyAreDrawn) {
  auto image = std::make_shared<DrawnImage>();
  const std::weak_ptr<DrawnImage> watched = image;
  {
    const DrawnImage::Held held(*image);
    (void)icons->picture(image, 1);
    ASSERT_TRUE(eventually([&] { return image->drawings() == 1; }));
    application.reset();
  }
  image.reset();
  icons.reset();
  EXPECT_TRUE(kvltest::waitUntil([&] { return watched.expired(); }));
  EXPECT_TRUE(arrived.empty());
}

TEST_F(MenuIconsTest, NobodyDrawsWhatNobodyWaitsFor) {
  const auto late = std::make_shared<DrawnImage>();
  {
    // However long they take, no more are drawn at a time.
    std::vector<std::shared_ptr<DrawnImage>> images(MenuIcons::kMostDrawings);
    std::list<DrawnImage::Held> held;
    for (auto& image : images) held.emplace_back(*(image = std::make_shared<DrawnImage>()));
    for (const auto& image : images) (void)icons->picture(image, 1);
    (void)icons->picture(late, 1);
    icons.reset();
  }
  EXPECT_TRUE(isAlone(late));
  EXPECT_EQ(late->drawings(), 0);
}

TEST_F(MenuIconsTest, PicturesDoNotKeepImages) {
  auto image = std::make_shared<DrawnImage>();
  (void)drawn(image);
  arrived.clear();
  EXPECT_TRUE(isAlone(image));
}

TEST_F(MenuIconsTest, AnImageThatIsLetGoWhileItIsDrawnIsGoneAtOnce) {
  // Drawn for a second: each element shows the one before it twice.
  std::string svg =
      "<svg xmlns='http://www.w3.org/2000/svg' width='16' height='16'><defs>"
      "<path id='a0' d='M0 0h9v9z'/>";
  for (int i = 1; i < 18; ++i) {
    const auto used = "<use href='#a" + std::to_string(i - 1) + "'/>";
    svg.append("<g id='a").append(std::to_string(i)).append("'>");
    svg.append(used).append(used).append("</g>");
  }
  auto image =
      kvl::Image::imageWithData(kvl::Data::fromText(svg + "</defs><use href='#a17'/></svg>"));
  ASSERT_NE(image, nullptr);
  const std::weak_ptr<kvl::Image> watched = image;
  (void)icons->picture(image, 1);
  image.reset();
  EXPECT_TRUE(watched.expired());
  EXPECT_FALSE(drawn(std::make_shared<DrawnImage>()).isNull());
}

TEST_F(MenuIconsTest, ThosePicturesGoThatWereNotAskedForLongest) {
  const auto first = std::make_shared<DrawnImage>();
  const auto second = std::make_shared<DrawnImage>();
  (void)drawn(first);
  (void)drawn(second);
  (void)drawn(first);
  std::vector<std::shared_ptr<DrawnImage>> others(MenuIcons::kMostPictures - 1);
  for (auto& image : others) (void)icons->picture(image = std::make_shared<DrawnImage>(), 1);
  (void)drawn(first);
  (void)drawn(second);
  EXPECT_EQ(first->drawings(), 1);
  EXPECT_EQ(second->drawings(), 2);
}

}  // namespace
