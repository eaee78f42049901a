// The notes application beside the development service.
#include "examples/notes/qt/Notes.h"
#include "tests/qt/host/HostFixture.h"

#include <gmock/gmock.h>

#include <QLineEdit>

namespace {

using kvltest::eventually;

class NotesTest : public kvltest::HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    startHost({}, {});
    ASSERT_TRUE(eventually([&] { return session().isEstablished(); }));
    window_ = std::make_unique<notes::Window>();
    window_->show();
    activate(*window_);
  }
  void TearDown() override {
    window_.reset();
    HostTest::TearDown();
  }

  [[nodiscard]] QStringList shown() const {
    QStringList texts;
    const auto* list = window_->findChild<QListWidget*>();
    for (int row = 0; row < list->count(); ++row) texts.append(list->item(row)->text());
    return texts;
  }

  // Another client of the service.
  void addElsewhere(const char* text) {
    session().submit(kvl::Dictionary{{"text", text}}, "/notes", nullptr, nullptr);
  }

  [[nodiscard]] QAction* action(const char* text) const {
    for (auto* one : window_->findChildren<QAction*>())
      if (one->text() == text) return one;
    return nullptr;
  }

  std::unique_ptr<notes::Window> window_;
};

TEST_F(NotesTest, ANoteIsAddedByKeyboard) {
  ASSERT_TRUE(eventually([&] { return action("&New note…")->isEnabled(); }));
  QTest::keyClick(window_.get(), Qt::Key_N, Qt::ControlModifier);
  const QPointer<kvl::qt::FormDialog> dialog = window_->findChild<kvl::qt::FormDialog*>();
  ASSERT_NE(dialog, nullptr);
  auto* line = dialog->findChild<QLineEdit*>();
  QTest::keyClicks(line, "milk");
  QTest::keyClick(line, Qt::Key_Return);
  EXPECT_TRUE(eventually([&] { return shown() == QStringList("milk"); }));
  EXPECT_TRUE(eventually([&] { return dialog.isNull(); }));
}

TEST_F(NotesTest, NotesOfOthersComeAndGo) {
  addElsewhere("bread");
  ASSERT_TRUE(eventually([&] { return shown() == QStringList("bread"); }));
  addElsewhere("eggs");
  ASSERT_TRUE(eventually([&] { return shown() == QStringList({"bread", "eggs"}); }));
  EXPECT_FALSE(action("&Delete")->isEnabled());
  auto* list = window_->findChild<QListWidget*>();
  list->setCurrentRow(0);
  list->setFocus();
  QTest::keyClick(list, Qt::Key_Delete);
  EXPECT_TRUE(eventually([&] { return shown() == QStringList("eggs"); }));
}

TEST_F(NotesTest, WithoutTheServiceNothingCanBeChosen) {
  ASSERT_TRUE(eventually([&] { return action("&New note…")->isEnabled(); }));
  killService();
  EXPECT_TRUE(eventually([&] { return !action("&New note…")->isEnabled(); }));
  EXPECT_TRUE(eventually([&] { return !window_->statusBar()->currentMessage().isEmpty(); }));
}

}  // namespace
