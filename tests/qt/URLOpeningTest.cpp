#include "tests/qt/Patience.h"
#include "tests/support/LogCapture.h"
#include "tests/support/QtApplication.h"

#include <local/platform/Workspace.h>
#include <local/qt/Integration.h>

#include <gmock/gmock.h>

#include <QDesktopServices>
#include <QTest>
#include <QThread>
#include <QUrl>
#include <array>
#include <string>
#include <thread>
#include <vector>

namespace {

using kvl::qt::Integration;
using kvltest::kPatience;
using kvltest::LogCapture;
using kvltest::QtApplication;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::array kHandledSchemes{"http", "https", "file", "mailto"};

// The host's handler for addresses of these schemes, as long as it lives.
class Browser : public QObject {
  Q_OBJECT

 public:
  Browser() {
    for (const auto* scheme : kHandledSchemes)
      QDesktopServices::setUrlHandler(QLatin1String(scheme), this, "open");
  }
  ~Browser() override {
    for (const auto* scheme : kHandledSchemes)
      QDesktopServices::unsetUrlHandler(QLatin1String(scheme));
  }
  Q_INVOKABLE void open(const QUrl& url) {
    opened.push_back(url.toString(QUrl::FullyEncoded).toStdString());
    onGUIThread = onGUIThread && QThread::currentThread() == qApp->thread();
  }

  std::vector<std::string> opened;
  bool onGUIThread = true;
};

bool openOnAnotherThread(const std::string& url) {
  bool answer = false;
  std::thread([&] { answer = kvl::openURL(url); }).join();
  return answer;
}

TEST(URLOpeningTest, OpensAnAddressWhereTheHostWantsItOpened) {
  const QtApplication application;
  Browser browser;
  const Integration integration;
  EXPECT_TRUE(kvl::openURL("https://example.org/a%20b?q=%C3%BC#end"));
  EXPECT_THAT(browser.opened, ElementsAre("https://example.org/a%20b?q=%C3%BC#end"));
}

TEST(URLOpeningTest, OpensOnTheGUIThreadWhateverThreadAsks) {
  const QtApplication application;
  Browser browser;
  const Integration integration;
  EXPECT_TRUE(openOnAnotherThread("https://example.org/"));
  EXPECT_THAT(browser.opened, IsEmpty());
  ASSERT_TRUE(QTest::qWaitFor([&] { return !browser.opened.empty(); }, kPatience));
  EXPECT_THAT(browser.opened, ElementsAre("https://example.org/"));
  EXPECT_TRUE(browser.onGUIThread);
}

TEST(URLOpeningTest, OpensInTheOrderInWhichAddressesCame) {
  const QtApplication application;
  Browser browser;
  const Integration integration;
  std::thread([&] {
    for (const auto* url : {"https://a/", "https://b/", "https://c/"})
      EXPECT_TRUE(kvl::openURL(url));
  }).join();
  ASSERT_TRUE(QTest::qWaitFor([&] { return browser.opened.size() == 3; }, kPatience));
  EXPECT_THAT(browser.opened, ElementsAre("https://a/", "https://b/", "https://c/"));
}

TEST(URLOpeningTest, WhatIsNoURLIsNotHandedOn) {
  const QtApplication application;
  Browser browser;
  const Integration integration;
  EXPECT_FALSE(kvl::openURL("https://example.org/a b"));
  EXPECT_THAT(browser.opened, IsEmpty());
}

TEST(URLOpeningTest, ARelativeReferenceIsNotOpenedAsAFile) {
  const QtApplication application;
  Browser browser;
  const LogCapture log;
  const Integration integration;
  for (const auto* url : {"etc/passwd", "/etc/passwd", "//example.org/", ""})
    EXPECT_FALSE(kvl::openURL(url)) << url;
  EXPECT_THAT(browser.opened, IsEmpty());
  EXPECT_EQ(log.count("error opening URL: "), 4U);
}

TEST(URLOpeningTest, OnlyAddressesOfTheWebAreOpened) {
  const QtApplication application;
  Browser browser;
  const LogCapture log;
  const Integration integration;
  for (const auto* url : {"file:///etc/passwd", "FILE:///etc/passwd", "mailto:someone@example.org",
                          "javascript:alert(1)", "smb://example.org/", "httpss://example.org/"})
    EXPECT_FALSE(kvl::openURL(url)) << url;
  EXPECT_THAT(browser.opened, IsEmpty());
  EXPECT_EQ(log.count("error opening URL: "), 6U);
  EXPECT_TRUE(kvl::openURL("HTTPS://example.org/"));
  EXPECT_TRUE(kvl::openURL("http://example.org/"));
  EXPECT_THAT(browser.opened, ElementsAre("https://example.org/", "http://example.org/"));
}

TEST(URLOpeningTest, AFailureOnAnotherThreadIsOneLineInTheLog) {
  const QtApplication application;
  const LogCapture log;
  const Integration integration;
  EXPECT_TRUE(openOnAnotherThread("relative"));
  ASSERT_TRUE(
      QTest::qWaitFor([&] { return log.count("error opening URL: relative") > 0; }, kPatience));
  EXPECT_EQ(log.count("error opening URL: relative"), 1U);
}

TEST(URLOpeningTest, MoreThanAPersonCanWantAreNotKeptWaiting) {
  const QtApplication application;
  Browser browser;
  const LogCapture log;
  const Integration integration;
  int accepted = 0;
  std::thread([&] {
    for (int i = 0; i < 1000; ++i) accepted += kvl::openURL("https://example.org/") ? 1 : 0;
  }).join();
  EXPECT_LE(accepted, 100);
  EXPECT_EQ(log.count("error opening URL: "), 1000U - accepted);
  ASSERT_TRUE(QTest::qWaitFor(
      [&] { return browser.opened.size() == static_cast<std::size_t>(accepted); }, kPatience));
}

TEST(URLOpeningTest, WhatStillWaitsAtTheEndIsForgotten) {
  const QtApplication application;
  Browser browser;
  {
    const Integration integration;
    EXPECT_TRUE(openOnAnotherThread("https://example.org/"));
  }
  QApplication::processEvents();
  EXPECT_THAT(browser.opened, IsEmpty());
}

TEST(URLOpeningTest, AnOpenerThatOutlivesTheIntegrationOpensNothing) {
  const QtApplication application;
  Browser browser;
  const LogCapture log;
  kvl::URLOpener late;
  {
    const Integration integration;
    late = kvl::setURLOpener(nullptr);
    kvl::setURLOpener(late);
  }
  bool answer = true;
  std::thread([&] { answer = late("https://example.org/"); }).join();
  EXPECT_FALSE(answer);
  EXPECT_THAT(browser.opened, IsEmpty());
  EXPECT_EQ(log.count("error opening URL: https://example.org/"), 1U);
}

}  // namespace

#include "URLOpeningTest.moc"
