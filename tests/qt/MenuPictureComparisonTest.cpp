#include "tests/qt/MenuScene.h"
#include "tests/qt/PictureMenu.h"
#include "tests/support/PictureComparison.h"

#include <gmock/gmock.h>

#include <QAction>
#include <QPainter>

namespace {

using kvltest::differenceOf;
using kvltest::pictureOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

// Compares a menu with one that is not quite the same.
class MenuPictureComparisonTest : public testing::Test {
 protected:
  MenuPictureComparisonTest() { kvltest::openAll(view); }

  [[nodiscard]] kvltest::MenuItemRef item(const char* title) const {
    for (const auto& item : menu->items())
      if (item->title() == title) return item;
    throw std::out_of_range(title);
  }
  // The picture after the model has changed.
  [[nodiscard]] QImage refreshed() {
    view.refresh();
    return pictureOf(view);
  }
  // Where a row is in the picture.
  [[nodiscard]] QRect placeOf(const char* title) {
    const QPoint margin(12, 12);
    return view.actionGeometry(view.actionOf(*item(title))).translated(margin);
  }

  const kvltest::QtApplication application;
  const std::shared_ptr<kvl::Menu> menu = kvltest::pictureMenu();
  kvl::qt::MenuView view{menu};
};

TEST_F(MenuPictureComparisonTest, ThePictureIsLikeItself) {
  EXPECT_THAT(differenceOf(pictureOf(view), pictureOf(view)), IsEmpty());
}

TEST_F(MenuPictureComparisonTest, LettersMayMoveByPartOfAPixel) {
  const QImage picture = pictureOf(view);
  QImage moved = picture;
  QPainter painter(&moved);
  painter.setRenderHint(QPainter::SmoothPixmapTransform);
  painter.drawImage(QPointF(0.4, 0.2), picture);
  painter.end();
  EXPECT_THAT(differenceOf(moved, picture), IsEmpty());
}

TEST_F(MenuPictureComparisonTest, TheSizeMayDifferALittle) {
  const QImage picture = pictureOf(view);
  const auto resized = [&](int more) {
    return picture.scaled(picture.width() + more, picture.height() + more, Qt::IgnoreAspectRatio,
                          Qt::SmoothTransformation);
  };
  EXPECT_THAT(differenceOf(resized(1), picture), IsEmpty());
  EXPECT_THAT(differenceOf(resized(40), picture), HasSubstr("the size is"));
}

TEST_F(MenuPictureComparisonTest, AMissingBadgeIsSeen) {
  const QImage picture = pictureOf(view);
  item("Look for updates")->setBadge(std::nullopt);
  EXPECT_THAT(differenceOf(refreshed(), picture), Not(IsEmpty()));
}

TEST_F(MenuPictureComparisonTest, AMissingCheckMarkIsSeen) {
  const QImage picture = pictureOf(view);
  item("All languages")->setState(kvl::MenuItem::State::off);
  EXPECT_THAT(differenceOf(refreshed(), picture), Not(IsEmpty()));
}

TEST_F(MenuPictureComparisonTest, ADashInsteadOfACheckMarkIsSeen) {
  const QImage picture = pictureOf(view);
  item("All languages")->setState(kvl::MenuItem::State::mixed);
  EXPECT_THAT(differenceOf(refreshed(), picture), Not(IsEmpty()));
}

TEST_F(MenuPictureComparisonTest, AnIconThatIsMissingIsSeen) {
  const QImage picture = pictureOf(view);
  item("Install now")->setImage(nullptr);
  EXPECT_THAT(differenceOf(refreshed(), picture), Not(IsEmpty()));
}

TEST_F(MenuPictureComparisonTest, AnotherTitleIsSeen) {
  const QImage picture = pictureOf(view);
  item("Release notes")->setTitle("Rolling stocks");
  EXPECT_THAT(differenceOf(refreshed(), picture), Not(IsEmpty()));
}

TEST_F(MenuPictureComparisonTest, AnItemThatIsDisabledIsSeen) {
  const QImage picture = pictureOf(view);
  item("Release notes")->setEnabled(false);
  EXPECT_THAT(differenceOf(refreshed(), picture), Not(IsEmpty()));
}

TEST_F(MenuPictureComparisonTest, SwappedColoursAreSeen) {
  const QImage picture = pictureOf(view);
  EXPECT_THAT(differenceOf(picture.rgbSwapped(), picture), Not(IsEmpty()));
}

TEST_F(MenuPictureComparisonTest, AShiftedLineIsSeen) {
  const QImage picture = pictureOf(view);
  QImage shifted = picture;
  const QRect line = placeOf("Release notes");
  QPainter painter(&shifted);
  painter.drawImage(line.topLeft() + QPoint(0, 4), picture, line);
  painter.end();
  EXPECT_THAT(differenceOf(shifted, picture), Not(IsEmpty()));
}

TEST_F(MenuPictureComparisonTest, NoPictureIsLikeNone) {
  EXPECT_THAT(differenceOf(QImage(), pictureOf(view)), HasSubstr("no picture"));
  EXPECT_THAT(differenceOf(pictureOf(view), QImage()), HasSubstr("no picture"));
}

}  // namespace
