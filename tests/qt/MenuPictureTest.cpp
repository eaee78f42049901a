// Menus as they are shown, compared with the pictures in docs/images. With KVL_WRITE_PICTURES=1 in
// the environment the tests write those pictures instead: look at each before it is kept.
#include "tests/qt/PictureMenu.h"
#include "tests/support/PictureComparison.h"
#include "tests/support/QtApplication.h"

#include <gmock/gmock.h>

namespace {

using kvltest::MenuLanguage;
using kvltest::QtApplication;
using testing::IsEmpty;

QString fileOf(const char* name) {
  return QStringLiteral(KVL_PICTURES "/menu-%1.png").arg(QLatin1String(name));
}

void expectLooksLike(const char* name, MenuLanguage language = MenuLanguage::english) {
  kvl::qt::MenuView view(kvltest::pictureMenu(language));
  kvltest::openAll(view);
  EXPECT_THAT(kvltest::differenceFromFile(kvltest::pictureOf(view), fileOf(name)), IsEmpty());
}

// Black and yellow, and what is highlighted in a colour that white cannot be read on.
QPalette contrastPalette() {
  QPalette palette(Qt::black);
  for (const auto role : {QPalette::Window, QPalette::Base, QPalette::Button})
    palette.setColor(role, Qt::black);
  for (const auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText})
    palette.setColor(role, Qt::white);
  for (const auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText})
    palette.setColor(QPalette::Disabled, role, QColor(0x3f, 0xf2, 0x3f));
  palette.setColor(QPalette::Highlight, QColor(0x1a, 0xeb, 0xff));
  palette.setColor(QPalette::HighlightedText, Qt::white);
  return palette;
}

TEST(MenuPictureTest, LooksRightOnALightDesktop) {
  const QtApplication application;
  expectLooksLike("light");
}

TEST(MenuPictureTest, LooksRightOnADarkDesktop) {
  const QtApplication application({.dark = true});
  expectLooksLike("dark");
}

TEST(MenuPictureTest, LooksRightFromRightToLeft) {
  const QtApplication application({.locale = "he_IL.UTF-8", .rightToLeft = true});
  expectLooksLike("rtl", MenuLanguage::hebrew);
}

TEST(MenuPictureTest, LooksRightWithTwoPixelsToThePoint) {
  const QtApplication application({.scale = "2"});
  expectLooksLike("2x");
}

TEST(MenuPictureTest, LooksRightInHighContrast) {
  const QtApplication application;
  QApplication::setPalette(contrastPalette());
  expectLooksLike("contrast");
}

}  // namespace
