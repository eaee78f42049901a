// The example program that shows a page, beside the development notary and service.
#include "tests/tools/ServiceFixture.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <QImage>
#include <QSet>
#include <QString>

namespace {

class WebViewExampleTest : public kvltest::ServiceTest {
 protected:
  // Nothing is drawn on a display, and there is neither a graphics card nor, for root, a sandbox.
  void SetUp() override {
    ServiceTest::SetUp();
    for (const char* variable : {"QT_QPA_PLATFORM=offscreen", "QT_QUICK_BACKEND=software",
                                 "QTWEBENGINE_CHROMIUM_FLAGS=--disable-gpu"})
      environment.emplace_back(variable);
    if (getuid() == 0) environment.emplace_back("QTWEBENGINE_DISABLE_SANDBOX=1");
  }
};

// How many colours there are: of an empty window, few.
qsizetype coloursIn(const QImage& picture) {
  QSet<QRgb> colours;
  for (int y = 0; y < picture.height(); ++y)
    for (int x = 0; x < picture.width(); ++x) colours.insert(picture.pixel(x, y));
  return colours.size();
}

TEST_F(WebViewExampleTest, ShowsAPageWhoseScriptFollowsTheService) {
  const auto file = directory.path() / "page.png";
  const auto outcome = run({"--picture", file, "/notes/page"});
  EXPECT_EQ(outcome.exitCode, 0) << outcome.errors;
  const QImage picture(QString::fromStdString(file.string()));
  EXPECT_EQ(picture.size(), QSize(640, 480));
  EXPECT_GT(coloursIn(picture), 20);
  EXPECT_TRUE(waitForServiceLog("GET /notes/page 200"));
  EXPECT_TRUE(waitForServiceLog("GET /image 200"));
  EXPECT_TRUE(waitForServiceLog("GET /feed 200"));
}

}  // namespace
