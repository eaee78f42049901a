#include "qt/controls/Painting.h"
#include "qt/menu/MenuPainter.h"

#include <gmock/gmock.h>

#include <QPalette>
#include <QStyleOption>
#include <algorithm>
#include <vector>

namespace {

using kvl::qt::blended;
using kvl::qt::coloursOf;
using kvl::qt::contrast;
using kvl::qt::kReadableContrast;
using kvl::qt::readableOn;
using kvl::qt::tonedDown;
using testing::AllOf;
using testing::DoubleNear;
using testing::Ge;
using testing::Lt;

// Colours from all over the cube.
std::vector<QColor> someColours() {
  constexpr int kStep = 51;
  std::vector<QColor> colours;
  for (int red = 0; red <= 255; red += kStep)
    for (int green = 0; green <= 255; green += kStep)
      for (int blue = 0; blue <= 255; blue += kStep) colours.emplace_back(red, green, blue);
  return colours;
}

TEST(MenuContrastTest, IsWhatTheGuidelinesComputeInBothDirections) {
  EXPECT_THAT(contrast(Qt::black, Qt::white), DoubleNear(21, 1e-6));
  EXPECT_THAT(contrast(Qt::white, Qt::black), DoubleNear(21, 1e-6));
  EXPECT_THAT(contrast(Qt::red, Qt::red), DoubleNear(1, 1e-9));
  EXPECT_THAT(contrast(QColor(0x77, 0x77, 0x77), Qt::white), DoubleNear(4.48, 0.005));
  EXPECT_THAT(contrast(Qt::blue, Qt::white), DoubleNear(8.59, 0.005));
}

TEST(MenuContrastTest, TheFirstColourThatCanBeReadIsTaken) {
  EXPECT_EQ(readableOn(Qt::white, {Qt::yellow, Qt::darkBlue, Qt::black}), QColor(Qt::darkBlue));
  EXPECT_EQ(readableOn(Qt::darkBlue, {Qt::yellow, Qt::white}), QColor(Qt::yellow));
}

TEST(MenuContrastTest, WhereNoneCanBeReadItIsBlackOrWhite) {
  EXPECT_EQ(readableOn(Qt::cyan, {Qt::white, Qt::yellow}), QColor(Qt::black));
  EXPECT_EQ(readableOn(Qt::darkBlue, {Qt::black, Qt::blue}), QColor(Qt::white));
}

TEST(MenuContrastTest, SomethingCanBeReadOnEveryColour) {
  for (const QColor& background : someColours())
    EXPECT_THAT(contrast(readableOn(background, {background}), background), Ge(kReadableContrast))
        << background.name().toStdString();
}

TEST(MenuContrastTest, BlendsFromOneColourToTheOther) {
  EXPECT_EQ(blended(Qt::black, Qt::white, 0), QColor(Qt::black));
  EXPECT_EQ(blended(Qt::black, Qt::white, 1), QColor(Qt::white));
  EXPECT_EQ(blended(QColor(0, 100, 200), QColor(100, 200, 0), 0.5), QColor(50, 150, 100));
}

TEST(MenuContrastTest, WhatIsTonedDownIsFainterButCanBeRead) {
  const double faint = contrast(tonedDown(Qt::black, Qt::white, 0.7), Qt::white);
  EXPECT_THAT(faint, AllOf(Ge(kReadableContrast), Lt(contrast(Qt::black, Qt::white))));
  for (const QColor& background : someColours()) {
    const QColor text = readableOn(background, {});
    EXPECT_THAT(contrast(tonedDown(text, background, 0.7), background), Ge(kReadableContrast));
  }
}

TEST(MenuContrastTest, WhatCannotBeReadAnywayIsNotTonedDown) {
  EXPECT_EQ(tonedDown(Qt::yellow, Qt::white, 0.7), QColor(Qt::yellow));
}

class MenuColoursTest : public testing::Test {
 protected:
  MenuColoursTest() {
    option.palette = QPalette(QColor(0xf0, 0xf0, 0xf0));
    option.palette.setColor(QPalette::Text, Qt::black);
    option.palette.setColor(QPalette::HighlightedText, Qt::white);
    option.palette.setColor(QPalette::Disabled, QPalette::Text, Qt::gray);
    option.state = QStyle::State_Enabled | QStyle::State_Active;
  }

  QStyleOptionMenuItem option;
};

TEST_F(MenuColoursTest, ThePalettesTextIsTakenWhereItCanBeRead) {
  EXPECT_EQ(coloursOf(option, Qt::white).text, QColor(Qt::black));
  option.state |= QStyle::State_Selected;
  EXPECT_EQ(coloursOf(option, Qt::darkBlue).text, QColor(Qt::white));
}

TEST_F(MenuColoursTest, TheThemeDecidesDownToAContrastOfTwo) {
  const QColor lightBlue(0x3d, 0xae, 0xe9);
  ASSERT_THAT(contrast(Qt::white, lightBlue), AllOf(Ge(2), Lt(kReadableContrast)));
  option.palette.setColor(QPalette::Text, QColor(0x83, 0x94, 0x96));
  EXPECT_EQ(coloursOf(option, Qt::white).text, QColor(0x83, 0x94, 0x96));
  option.state |= QStyle::State_Selected;
  EXPECT_EQ(coloursOf(option, lightBlue).text, QColor(Qt::white));
  EXPECT_EQ(coloursOf(option, lightBlue).secondary, QColor(Qt::white));
}

TEST_F(MenuColoursTest, OnALightHighlightTheTextIsDark) {
  option.state |= QStyle::State_Selected;
  EXPECT_EQ(coloursOf(option, Qt::yellow).text, QColor(Qt::black));
}

// As well as the theme has it where that is not too little, and never worse than that.
TEST_F(MenuColoursTest, EverythingOfAnEntryCanBeReadOnEveryBackground) {
  const auto& palette = option.palette;
  for (const auto state : {QStyle::State_None, QStyle::State_Selected})
    for (const QColor& background : someColours()) {
      option.state = QStyle::State_Enabled | state;
      const auto colours = coloursOf(option, background);
      const double themes =
          contrast(palette.color(state ? QPalette::HighlightedText : QPalette::Text), background);
      const double least = themes < 2 ? kReadableContrast : std::min(themes, kReadableContrast);
      EXPECT_THAT(contrast(colours.text, background), Ge(least));
      EXPECT_THAT(contrast(colours.secondary, background), Ge(least));
      EXPECT_THAT(contrast(colours.text, colours.badge), Ge(least))
          << background.name().toStdString();
      EXPECT_NE(colours.badge, background);
    }
}

TEST_F(MenuColoursTest, WhatIsDisabledIsInThePalettesColourAllOver) {
  option.state = QStyle::State_None;
  option.palette.setCurrentColorGroup(QPalette::Disabled);
  const auto colours = coloursOf(option, Qt::white);
  EXPECT_EQ(colours.text, QColor(Qt::gray));
  EXPECT_EQ(colours.secondary, QColor(Qt::gray));
}

}  // namespace
