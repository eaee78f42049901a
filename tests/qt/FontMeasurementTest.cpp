#include "tests/support/QtApplication.h"

#include <local/platform/FontMeasurement.h>
#include <local/qt/Integration.h>

#include <gmock/gmock.h>

#include <QFontMetricsF>
#include <atomic>
#include <memory>
#include <thread>

namespace {

using kvl::kDefaultMenuBarTextHeight;
using kvl::menuBarTextHeight;
using kvl::qt::Integration;
using kvltest::QtApplication;

double heightOf(const QFont& font) {
  return QFontMetricsF(font).height();
}

QFont large() {
  return {QStringLiteral("DejaVu Sans"), 40};
}

TEST(FontMeasurementTest, MeasuresInTheFontOfMenuBars) {
  const QtApplication application;
  QApplication::setFont(large(), "QMenuBar");
  const Integration integration;
  EXPECT_DOUBLE_EQ(menuBarTextHeight("A"), heightOf(large()));
}

TEST(FontMeasurementTest, FollowsTheFontsOfTheApplication) {
  const QtApplication application;
  const Integration integration;
  QApplication::setFont(large());
  EXPECT_DOUBLE_EQ(menuBarTextHeight("A"), heightOf(QApplication::font("QMenuBar")));
  QApplication::setFont(QFont(QStringLiteral("DejaVu Sans"), 30), "QMenuBar");
  EXPECT_DOUBLE_EQ(menuBarTextHeight("A"), heightOf(QApplication::font("QMenuBar")));
}

TEST(FontMeasurementTest, OtherThreadsFollowOnceTheLoopRuns) {
  const QtApplication application;
  const Integration integration;
  QApplication::setFont(large());
  QApplication::processEvents();
  double elsewhere = 0;
  std::thread([&] { elsewhere = menuBarTextHeight("A"); }).join();
  EXPECT_DOUBLE_EQ(elsewhere, heightOf(QApplication::font("QMenuBar")));
}

TEST(FontMeasurementTest, ALineFeedMakesNoSecondLine) {
  const QtApplication application;
  const Integration integration;
  EXPECT_DOUBLE_EQ(menuBarTextHeight("A\nB"), menuBarTextHeight("A"));
  EXPECT_DOUBLE_EQ(menuBarTextHeight(""), menuBarTextHeight("A"));
  EXPECT_DOUBLE_EQ(menuBarTextHeight(std::string(1 << 20, 'x')), menuBarTextHeight("A"));
}

TEST(FontMeasurementTest, AnyThreadMeasuresTheSame) {
  const QtApplication application;
  const Integration integration;
  double elsewhere = 0;
  std::thread([&] { elsewhere = menuBarTextHeight("A"); }).join();
  EXPECT_DOUBLE_EQ(elsewhere, menuBarTextHeight("A"));
}

TEST(FontMeasurementTest, FontsMayChangeAndTheIntegrationMayEndWhileOthersMeasure) {
  const QtApplication application;
  auto integration = std::make_unique<Integration>();
  std::atomic<bool> stop = false;
  std::thread measurer([&] {
    while (!stop) EXPECT_GT(menuBarTextHeight("A"), 0);
  });
  for (int i = 10; i < 30; ++i) QApplication::setFont(QFont(QStringLiteral("DejaVu Sans"), i));
  integration.reset();
  EXPECT_DOUBLE_EQ(menuBarTextHeight("A"), kDefaultMenuBarTextHeight);
  stop = true;
  measurer.join();
}

TEST(FontMeasurementTest, AfterTheIntegrationTheDefaultHeightHolds) {
  const QtApplication application;
  {
    const Integration integration;
  }
  EXPECT_DOUBLE_EQ(menuBarTextHeight("A"), kDefaultMenuBarTextHeight);
}

}  // namespace
