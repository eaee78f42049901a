// The host as it is shown, compared with the pictures in docs/images. With KVL_WRITE_PICTURES=1 in
// the environment the tests write those pictures instead: look at each before it is kept.
#include "examples/qthost/Console.h"
#include "examples/qthost/Options.h"
#include "tests/qt/host/HostFixture.h"
#include "tests/support/PictureComparison.h"

#include <local/qt/FormDialog.h>
#include <local/qt/ProgressView.h>
#include <local/qt/SegmentedControlView.h>

#include <gmock/gmock.h>

#include <QMenuBar>
#include <QSignalSpy>
#include <QStatusBar>
#include <fstream>

namespace {

using kvltest::eventually;
using kvltest::QtLook;

constexpr auto kProject =
    R"({"name":"Local service","version":3,"released":"2024-05-01","features":)"
    R"(["documents","forms","events"],"limits":{"uploads":16,"previews":true}})";

class HostPictureTest : public kvltest::HostTest {
 protected:
  // A window with some history, the same every time.
  qthost::MainWindow& openUsedWindow(const QtLook& look) {
    std::ofstream(directory.path() / "documents" / "project.json") << kProject;
    startHost(look);
    if (look.dark) QApplication::setPalette(qthost::darkPalette());
    auto& window = openWindow({.document = "/project"});
    EXPECT_TRUE(waitForMenus(window));
    QSignalSpy submitted(&window, &qthost::MainWindow::submitted);
    QTest::keyClick(&window, Qt::Key_I, Qt::ControlModifier);
    EXPECT_TRUE(waitForLine(window, "install=all"));
    Q_EMIT window.findChild<kvl::qt::SegmentedControlView*>()->segmentChosen(0);
    EXPECT_TRUE(waitForLine(window, "synchronise=now"));
    // The outcomes are told for a while.
    EXPECT_TRUE(eventually([&] { return submitted.size() == 2; }));
    window.statusBar()->clearMessage();
    const auto progress = std::make_shared<kvl::Progress>(
        kvl::ProgressState{1, 1, "Established", "Notarised for \"https://127.0.0.1:4433/\""});
    window.findChild<kvl::qt::ProgressView*>()->setProgress(progress);
    return window;
  }

  void openMenu(qthost::MainWindow& window, const QString& title) {
    auto* menu = barMenu(window, title);
    auto* bar = window.menuBar();
    bar->setActiveAction(menu->menuAction());
    ASSERT_TRUE(eventually([&] { return menu->isVisible(); }));
    QTest::keyClick(menu, Qt::Key_Down);
  }

  // Icons are drawn while the menu is shown already.
  static void expectLooksLike(qthost::MainWindow& window, const char* name) {
    const QString file = QStringLiteral(KVL_PICTURES "/host-%1.png").arg(QLatin1String(name));
    if (qEnvironmentVariableIsSet("KVL_WRITE_PICTURES")) {
      QTest::qWait(1000);
      ASSERT_TRUE(imageOf(window).save(file, nullptr, 0));
      return;
    }
    const QImage expected(file);
    std::string difference;
    EXPECT_TRUE(eventually([&] {
      difference = kvltest::differenceOf(imageOf(window), expected);
      return difference.empty();
    })) << difference;
  }

 private:
  static QImage imageOf(qthost::MainWindow& window) {
    return qthost::pictureOf(window).toImage().convertToFormat(QImage::Format_RGB32);
  }
};

TEST_F(HostPictureTest, LooksRightOnALightDesktop) {
  auto& window = openUsedWindow({});
  openMenu(window, "Updates");
  expectLooksLike(window, "light");
}

TEST_F(HostPictureTest, LooksRightOnADarkDesktop) {
  auto& window = openUsedWindow({.dark = true});
  QTest::keyClick(&window, Qt::Key_R, Qt::ControlModifier);
  ASSERT_TRUE(eventually([&] { return window.findChild<kvl::qt::FormDialog*>() != nullptr; }));
  auto* dialog = window.findChild<kvl::qt::FormDialog*>();
  // No cursor that blinks.
  for (auto* field : dialog->findChildren<QWidget*>()) field->setFocusPolicy(Qt::NoFocus);
  if (dialog->focusWidget() != nullptr) dialog->focusWidget()->clearFocus();
  dialog->submit();
  ASSERT_TRUE(eventually([&] { return logLines(window).size() == 4; }));
  ASSERT_TRUE(eventually([&] { return dialog->isAnswered(); }));
  expectLooksLike(window, "dark");
}

TEST_F(HostPictureTest, LooksRightFromRightToLeft) {
  auto& window = openUsedWindow({.rightToLeft = true});
  openMenu(window, "Documents");
  expectLooksLike(window, "rtl");
}

TEST_F(HostPictureTest, LooksRightWithTwoPixelsToThePoint) {
  auto& window = openUsedWindow({.scale = "2"});
  openMenu(window, "Documents");
  expectLooksLike(window, "2x");
}

}  // namespace
