#include "examples/qthost/DocumentView.h"
#include "tests/qt/host/HostFixture.h"

#include <local/qt/DocumentTree.h>
#include <local/qt/FormDialog.h>
#include <local/qt/Notice.h>

#include <gmock/gmock.h>

#include <QCheckBox>
#include <QFileDialog>
#include <QLineEdit>
#include <QPushButton>
#include <QSpinBox>

namespace {

using kvl::qt::FormDialog;
using kvltest::eventually;

class HostFormTest : public kvltest::HostTest {
 protected:
  FormDialog* openReport(qthost::MainWindow& window) {
    QTest::keyClick(&window, Qt::Key_R, Qt::ControlModifier);
    EXPECT_TRUE(eventually([&] { return window.findChild<FormDialog*>() != nullptr; }));
    return window.findChild<FormDialog*>();
  }

  template <class Widget>
  static Widget* fieldOf(const FormDialog& dialog, const QString& label) {
    for (auto* widget : dialog.findChildren<Widget*>())
      if (widget->accessibleName() == label) return widget;
    return nullptr;
  }

  static QString noticeOf(const FormDialog& dialog) {
    return dialog.findChild<kvl::qt::Notice*>()->text();
  }
};

TEST_F(HostFormTest, AFormIsFilledInAndSentWithAFile) {
  auto& window = openCompleteWindow();
  FormDialog* dialog = openReport(window);
  ASSERT_NE(dialog, nullptr);
  EXPECT_EQ(dialog->windowTitle(), "New report");
  auto* title = fieldOf<QLineEdit>(*dialog, "Title");
  EXPECT_EQ(title->text(), "Quarterly report");
  title->clear();
  QTest::keyClicks(title, "Plans");
  EXPECT_EQ(fieldOf<QSpinBox>(*dialog, "Copies")->value(), 2);
  fieldOf<QSpinBox>(*dialog, "Copies")->setValue(3);
  QTest::keyClick(fieldOf<QCheckBox>(*dialog, "Draft"), Qt::Key_Space);
  fieldOf<QLineEdit>(*dialog, "Attachment")
      ->setText(QString::fromStdString(file("notes.txt", "five!")));
  QTest::keyClick(title, Qt::Key_Return);
  EXPECT_TRUE(waitForLine(
      window, R"({"title":"Plans","copies":"3","draft":"0","attachment":"notes.txt, 5 bytes"})"));
  ASSERT_TRUE(eventually([&] { return noticeOf(*dialog).endsWith("200 OK"); }));
  const auto* answer = dialog->findChild<kvl::qt::DocumentTree*>()->model();
  EXPECT_FALSE(answer
                   ->match(answer->index(0, 1), Qt::DisplayRole, "Plans", 1,
                           Qt::MatchExactly | Qt::MatchRecursive)
                   .isEmpty());
}

TEST_F(HostFormTest, AFileIsAddedWithAChooser) {
  auto& window = openCompleteWindow();
  FormDialog* dialog = openReport(window);
  ASSERT_NE(dialog, nullptr);
  dialog->addFile();
  QPushButton* button = nullptr;
  for (auto* one : dialog->findChildren<QPushButton*>())
    if (one->accessibleName() == "Choose a file: File") button = one;
  ASSERT_NE(button, nullptr);
  button->click();
  auto* chooser = dialog->findChild<QFileDialog*>();
  ASSERT_NE(chooser, nullptr);
  Q_EMIT chooser->fileSelected(QString::fromStdString(file("more.txt", "more")));
  chooser->close();
  dialog->submit();
  EXPECT_TRUE(waitForLine(window, R"("file":"more.txt, 4 bytes")"));
}

TEST_F(HostFormTest, AFileThatCannotBeReadIsToldAndNothingIsSent) {
  auto& window = openCompleteWindow();
  FormDialog* dialog = openReport(window);
  ASSERT_NE(dialog, nullptr);
  fieldOf<QLineEdit>(*dialog, "Attachment")->setText("/nonexistent/file");
  dialog->submit();
  EXPECT_THAT(noticeOf(*dialog).toStdString(),
              testing::StartsWith("/nonexistent/file: No such file"));
  // What is sent later is logged later.
  window.documentView()->fetch("/slow?ms=1");
  ASSERT_TRUE(waitForServiceLog("GET /slow"));
  EXPECT_THAT(serviceLog(), testing::Not(testing::HasSubstr("/echo")));
}

TEST_F(HostFormTest, AFormThatCannotBeSentSaysWhy) {
  auto& window = openCompleteWindow();
  FormDialog* dialog = openReport(window);
  ASSERT_NE(dialog, nullptr);
  killService();
  ASSERT_TRUE(eventually([&] { return !session().isEstablished(); }));
  dialog->submit();
  ASSERT_TRUE(eventually([&] { return !noticeOf(*dialog).isEmpty(); }));
  EXPECT_EQ(noticeOf(*dialog), "Sending…");
  EXPECT_TRUE(eventually([&] { return noticeOf(*dialog) != "Sending…"; }));
}

TEST_F(HostFormTest, ADialogIsClosedWhileItsFormIsUnderWay) {
  auto& window = openCompleteWindow();
  const QPointer<FormDialog> dialog = new FormDialog(
      session().session(), "Slow", {{"action", "/slow?ms=300"}, {"method", "post"}}, "/", &window);
  dialog->show();
  dialog->submit();
  delete dialog.data();
  activate(window);
  QTest::keyClick(&window, Qt::Key_I, Qt::ControlModifier);
  EXPECT_TRUE(waitForLine(window, "install=all"));
}

}  // namespace
