#include "tests/qt/Patience.h"
#include "tests/support/LogCapture.h"
#include "tests/support/QtApplication.h"

#include <local/platform/Workspace.h>
#include <local/qt/Integration.h>

#include <gmock/gmock.h>

#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QScreen>
#include <QTest>
#include <memory>
#include <string>
#include <thread>

namespace {

using kvl::Error;
using kvl::presentError;
using kvl::qt::Integration;
using kvltest::kPatience;
using kvltest::LogCapture;
using kvltest::QtApplication;
using testing::HasSubstr;
using testing::Not;

Error errorOf(const std::string& description, const std::string& reason = {}) {
  kvl::Dictionary userInfo{{std::string(kvl::NSLocalizedDescriptionKey), description}};
  if (!reason.empty()) userInfo.set(kvl::NSLocalizedFailureReasonErrorKey, reason);
  return {"Test", 1, userInfo};
}

std::vector<QMessageBox*> boxes() {
  std::vector<QMessageBox*> boxes;
  const auto widgets = QApplication::topLevelWidgets();
  for (auto* widget : widgets)
    if (auto* box = qobject_cast<QMessageBox*>(widget)) boxes.push_back(box);
  return boxes;
}

// The box that is shown; null for none.
QMessageBox* box() {
  const auto all = boxes();
  EXPECT_LE(all.size(), 1U);
  return all.empty() ? nullptr : all.front();
}

std::string shownText() {
  return box() != nullptr ? box()->text().toStdString() : "";
}

bool waitForText(const std::string& text) {
  return QTest::qWaitFor([&] { return shownText() == text; }, kPatience);
}

void dismiss() {
  ASSERT_NE(box(), nullptr);
  QTest::mouseClick(box()->button(QMessageBox::Ok), Qt::LeftButton);
}

TEST(ErrorPresentationTest, ShowsAnErrorWithoutBlocking) {
  const QtApplication application;
  const Integration integration;
  presentError(errorOf("The file is gone."));
  ASSERT_NE(box(), nullptr);
  EXPECT_TRUE(box()->isVisible());
  EXPECT_EQ(shownText(), "The file is gone.");
  EXPECT_EQ(box()->informativeText(), QString());
  dismiss();
  EXPECT_TRUE(waitForText(""));
}

TEST(ErrorPresentationTest, ShowsTheReasonWhereTheDescriptionDoesNotSayIt) {
  const QtApplication application;
  const Integration integration;
  presentError(errorOf("The file is gone.", "Somebody has deleted it."));
  ASSERT_NE(box(), nullptr);
  EXPECT_EQ(box()->informativeText(), QStringLiteral("Somebody has deleted it."));
  dismiss();
  ASSERT_TRUE(waitForText(""));
  presentError({"Test", 2, {{std::string(kvl::NSLocalizedFailureReasonErrorKey), "No."}}});
  ASSERT_NE(box(), nullptr);
  EXPECT_THAT(shownText(), HasSubstr("No."));
  EXPECT_EQ(box()->informativeText(), QString());
}

TEST(ErrorPresentationTest, NothingInAnErrorIsTakenForMarkup) {
  const QtApplication application;
  const Integration integration;
  presentError(errorOf("<h1>Big</h1>", "<a href='https://example.org'>Click</a>"));
  ASSERT_NE(box(), nullptr);
  const auto labels = box()->findChildren<QLabel*>();
  int texts = 0;
  for (const auto* label : labels) {
    if (label->text().isEmpty()) continue;
    EXPECT_EQ(label->textFormat(), Qt::PlainText) << label->text().toStdString();
    ++texts;
  }
  EXPECT_EQ(texts, 2);
}

TEST(ErrorPresentationTest, NoErrorMakesABoxLargerThanTheScreen) {
  const QtApplication application;
  const Integration integration;
  std::string dotted;
  for (int i = 0; i < 1000; ++i) dotted += "word.";
  for (const auto& text : {std::string(1 << 20, 'x'), std::string(1 << 20, '\n') + "end",
                           [] {
                             std::string lines;
                             for (int i = 0; i < 10'000; ++i) lines += "line\n";
                             return lines;
                           }(),
                           dotted}) {
    presentError(errorOf(text, text + "!"));
    ASSERT_NE(box(), nullptr);
    ASSERT_TRUE(QTest::qWaitForWindowExposed(box(), kPatience));
    const auto screen = box()->screen()->size();
    EXPECT_LT(box()->width(), screen.width());
    EXPECT_LT(box()->height(), screen.height());
    dismiss();
    ASSERT_TRUE(QTest::qWaitFor([] { return boxes().empty(); }, kPatience));
  }
}

TEST(ErrorPresentationTest, PathsAndAddressesCanBeCopied) {
  const QtApplication application;
  const Integration integration;
  std::string path = "/home/someone";
  for (int i = 0; i < 20; ++i) path += "/0f8fad5b-d9cb-469f-a165-70867728950e";
  for (const auto& text : {path, "https://service.example" + path, std::string(64, 'f')}) {
    presentError(errorOf(text));
    EXPECT_EQ(shownText(), text);
    ASSERT_NE(box(), nullptr);
    ASSERT_TRUE(QTest::qWaitForWindowExposed(box(), kPatience));
    EXPECT_LT(box()->width(), box()->screen()->size().width());
    dismiss();
    ASSERT_TRUE(waitForText(""));
  }
}

TEST(ErrorPresentationTest, ControlCharactersAreNotShown) {
  const QtApplication application;
  const Integration integration;
  presentError(errorOf("a\x01z\tb\nc"));
  EXPECT_EQ(shownText(), "a z b\nc");
}

TEST(ErrorPresentationTest, ShowsOneErrorAfterTheOther) {
  const QtApplication application;
  const Integration integration;
  presentError(errorOf("One"));
  presentError(errorOf("Two"));
  EXPECT_EQ(shownText(), "One");
  dismiss();
  ASSERT_TRUE(waitForText("Two"));
  dismiss();
  EXPECT_TRUE(waitForText(""));
}

TEST(ErrorPresentationTest, AnErrorThatIsShownOrWaitsIsNotShownAgain) {
  const QtApplication application;
  const Integration integration;
  for (const auto* text : {"One", "One", "Two", "Two", "One"}) presentError(errorOf(text));
  dismiss();
  ASSERT_TRUE(waitForText("Two"));
  dismiss();
  ASSERT_TRUE(waitForText(""));
  // But again when it happens again.
  presentError(errorOf("One"));
  EXPECT_EQ(shownText(), "One");
}

TEST(ErrorPresentationTest, WhenTooManyWaitTheRestIsOnlyLogged) {
  const QtApplication application;
  const LogCapture log;
  const Integration integration;
  for (int i = 0; i < 100; ++i) presentError(errorOf("Error " + std::to_string(i)));
  EXPECT_EQ(log.count("error not shown: "), 79U);
  EXPECT_EQ(log.count("Error 99"), 1U);
  for (int i = 0; i <= 20; ++i) {
    ASSERT_TRUE(waitForText("Error " + std::to_string(i)));
    dismiss();
  }
  EXPECT_TRUE(waitForText(""));
}

TEST(ErrorPresentationTest, ErrorsOfOtherThreadsAreShownOnTheGUIThread) {
  const QtApplication application;
  const Integration integration;
  std::thread([] { presentError(errorOf("Elsewhere")); }).join();
  EXPECT_EQ(box(), nullptr);
  EXPECT_TRUE(waitForText("Elsewhere"));
}

TEST(ErrorPresentationTest, ABoxBelongsToTheActiveWindow) {
  const QtApplication application;
  const Integration integration;
  QWidget window;
  window.show();
  window.activateWindow();
  ASSERT_TRUE(QTest::qWaitForWindowActive(&window, kPatience));
  presentError(errorOf("One"));
  ASSERT_NE(box(), nullptr);
  EXPECT_EQ(box()->parentWidget(), &window);
  EXPECT_TRUE(box()->isModal());
}

TEST(ErrorPresentationTest, WhenTheWindowIsDestroyedTheNextErrorIsShown) {
  const QtApplication application;
  const Integration integration;
  auto window = std::make_unique<QWidget>();
  window->show();
  window->activateWindow();
  ASSERT_TRUE(QTest::qWaitForWindowActive(window.get(), kPatience));
  presentError(errorOf("One"));
  presentError(errorOf("Two"));
  window.reset();
  EXPECT_EQ(box(), nullptr);
  EXPECT_TRUE(waitForText("Two"));
}

TEST(ErrorPresentationTest, TheBoxGoesWithTheIntegration) {
  const QtApplication application;
  {
    const Integration integration;
    presentError(errorOf("One"));
    presentError(errorOf("Two"));
    EXPECT_NE(box(), nullptr);
  }
  QApplication::processEvents();
  EXPECT_EQ(box(), nullptr);
}

TEST(ErrorPresentationTest, TheBoxGoesWithTheApplication) {
  QtApplication application;
  auto integration = std::make_unique<Integration>();
  presentError(errorOf("One"));
  EXPECT_NE(box(), nullptr);
  integration.reset();
  application.end();
}

TEST(ErrorPresentationTest, APresenterThatOutlivesTheIntegrationShowsNothing) {
  const QtApplication application;
  const LogCapture log;
  kvl::ErrorPresenter late;
  {
    const Integration integration;
    late = kvl::setErrorPresenter(nullptr);
    kvl::setErrorPresenter(late);
  }
  late(errorOf("Late"));
  std::thread([&] { late(errorOf("Later")); }).join();
  EXPECT_EQ(box(), nullptr);
  EXPECT_EQ(log.count("error not shown: "), 2U);
}

}  // namespace
