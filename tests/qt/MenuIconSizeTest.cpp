// The size of icons is measured once in a process, so this stands in a program of its own.
#include "tests/support/QtApplication.h"

#include <local/KVLEncodingMenus.h>
#include <local/qt/Integration.h>

#include <gtest/gtest.h>

#include <QFontMetricsF>

namespace {

double heightOf(const QFont& font) {
  return QFontMetricsF(font).height();
}

TEST(FontMeasurementTest, IconsInMenusAreAsHighAsTheFont) {
  const kvltest::QtApplication application;
  const kvl::qt::Integration integration;
  EXPECT_DOUBLE_EQ(KVLEncoding::menuIconSize().height, heightOf(QApplication::font("QMenuBar")));
}

}  // namespace
