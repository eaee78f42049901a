#include "tests/support/QtApplication.h"

#include <local/qt/Conversions.h>

#include <gmock/gmock.h>

#include <array>
#include <memory>

namespace {

using kvl::qt::isolated;
using kvl::qt::qImage;
using kvl::qt::qString;
using kvl::qt::utf8;

kvl::Bitmap bitmapOf(std::uint32_t width, std::uint32_t height, kvl::Data pixels) {
  return {width, height, std::move(pixels)};
}

TEST(ConversionsTest, TextComesBackAsItWas) {
  const std::string text = "Grüße, 日本 \xF0\x9F\x98\x80";
  EXPECT_EQ(utf8(qString(text)), text);
}

QString betweenIsolates(const QString& text) {
  return QChar(0x2068) + text + QChar(0x2069);
}

TEST(ConversionsTest, TextThatRunsOrTurnsLeftwardsIsIsolated) {
  for (const char* text : {"שלום", "تحديث (3)", "a \u202e b", "a \u200f", "\u0661"})
    EXPECT_EQ(isolated(qString(text)), betweenIsolates(qString(text))) << text;
  for (const char* text : {"", "Install now", "C++ (3)", "日本語 100%", "e\u0301"})
    EXPECT_EQ(isolated(qString(text)), qString(text)) << text;
}

TEST(ConversionsTest, AnIsolatedTextCannotEndItsIsolation) {
  EXPECT_EQ(isolated(qString("ש\u2069\u2069a")), betweenIsolates(qString("שa")));
  EXPECT_EQ(isolated(qString("\u2067ש\u2069a")), betweenIsolates(qString("\u2067ש\u2069a")));
  EXPECT_EQ(isolated(qString("\u2066\u2067ש")),
            betweenIsolates(qString("\u2066\u2067ש\u2069\u2069")));
}

TEST(ConversionsTest, WhereTheApplicationRunsLeftwardsEveryTextIsIsolated) {
  const kvltest::QtApplication application({.rightToLeft = true});
  EXPECT_EQ(isolated(qString("C++")), betweenIsolates(qString("C++")));
  EXPECT_EQ(isolated(QString()), QString());
}

TEST(ConversionsTest, TextMayHoldNulCharacters) {
  const std::string text("a\0b", 3);
  EXPECT_EQ(qString(text).size(), 3);
  EXPECT_EQ(utf8(qString(text)), text);
}

TEST(ConversionsTest, NoTextIsEmpty) {
  EXPECT_TRUE(qString({}).isEmpty());
  EXPECT_EQ(utf8(QString()), "");
}

TEST(ConversionsTest, BytesThatAreNoUTF8BecomeReplacementCharacters) {
  EXPECT_EQ(qString("a\xFFz"), QStringLiteral(u"a\uFFFDz"));
  EXPECT_EQ(qString("a\xC3"), QStringLiteral(u"a\uFFFD"));
  // A surrogate in UTF-8's clothes.
  EXPECT_FALSE(qString("\xED\xA0\x80").contains(QChar(0xD800)));
}

TEST(ConversionsTest, LoneSurrogatesBecomeReplacementCharacters) {
  const std::array<QChar, 2> loneHigh{QChar(0xD83D), QChar(u'x')};
  const std::array<QChar, 2> loneLow{QChar(u'x'), QChar(0xDE00)};
  EXPECT_EQ(utf8(QString(loneHigh.data(), 2)), "\xEF\xBF\xBDx");
  EXPECT_EQ(utf8(QString(loneLow.data(), 2)), "x\xEF\xBF\xBD");
}

TEST(ConversionsTest, AnEmptyBitmapGivesNoPicture) {
  EXPECT_TRUE(qImage({}).isNull());
  EXPECT_TRUE(qImage(bitmapOf(4, 4, {})).isNull());
}

TEST(ConversionsTest, ABitmapWithFewerPixelsThanItSaysGivesNoPicture) {
  EXPECT_TRUE(qImage(bitmapOf(2, 2, kvl::Data({1, 2, 3, 4}))).isNull());
}

TEST(ConversionsTest, APictureHasThePixelsAndTheRatioAskedFor) {
  const auto bitmap = bitmapOf(2, 1, kvl::Data({255, 0, 0, 255, 0, 0, 128, 128}));
  const QImage picture = qImage(bitmap, 2);
  EXPECT_EQ(picture.size(), QSize(2, 1));
  EXPECT_EQ(picture.devicePixelRatio(), 2);
  EXPECT_EQ(picture.deviceIndependentSize(), QSizeF(1, 0.5));
  EXPECT_EQ(picture.pixel(0, 0), qRgba(255, 0, 0, 255));
  EXPECT_EQ(picture.pixelColor(1, 0).blue(), 255);
  EXPECT_EQ(picture.pixelColor(1, 0).alpha(), 128);
}

TEST(ConversionsTest, APictureSharesThePixelsAndLetsGoOfThemOnce) {
  const auto owner = std::make_shared<std::array<std::uint8_t, 4>>();
  auto bitmap = bitmapOf(1, 1, kvl::Data(owner, *owner));
  QImage picture = qImage(bitmap);
  EXPECT_EQ(picture.constBits(), owner->data());
  bitmap = {};
  EXPECT_EQ(owner.use_count(), 2);
  QImage copy = picture;
  picture = {};
  EXPECT_EQ(owner.use_count(), 2);
  copy = {};
  EXPECT_EQ(owner.use_count(), 1);
}

TEST(ConversionsTest, WhoeverPaintsOnAPictureLeavesTheBitmapAlone) {
  const auto bitmap = bitmapOf(1, 1, kvl::Data({255, 0, 0, 255}));
  QImage picture = qImage(bitmap);
  picture.fill(Qt::blue);
  EXPECT_EQ(qImage(bitmap).pixelColor(0, 0), QColor(Qt::red));
}

}  // namespace
