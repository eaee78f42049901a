// What forms look like, and how the keyboard goes through them.
#include "tests/qt/host/HostFixture.h"

#include <local/qt/FormDialog.h>

#include <gmock/gmock.h>

#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QScreen>

namespace {

using kvl::qt::FormDialog;
using kvltest::eventually;

class HostFormLayoutTest : public kvltest::HostTest {
 protected:
  FormDialog& open(const kvl::Array& inputs) {
    startHost();
    const kvl::Dictionary form{{"action", "/echo"}, {"method", "post"}, {"inputs", inputs}};
    dialog_ = std::make_unique<FormDialog>(session().session(), "Form", form, "/");
    dialog_->show();
    activate(*dialog_);
    return *dialog_;
  }

  void TearDown() override {
    dialog_.reset();
    HostTest::TearDown();
  }

  static void addFiles(FormDialog& dialog, int count) {
    for (int i = 0; i < count; ++i) {
      dialog.addFile();
      const auto* field = dialog.findChildren<QLineEdit*>().back();
      ASSERT_TRUE(eventually([&] { return field->isVisible(); }));
    }
  }

  static QPushButton* buttonOf(const FormDialog& dialog, const QString& text) {
    for (auto* button : dialog.findChildren<QPushButton*>())
      if (button->text() == text) return button;
    return nullptr;
  }

  // The names of what has the focus while Tab is pressed so often.
  static std::vector<std::string> namesOnTheWay(const FormDialog& dialog, int steps) {
    std::vector<std::string> names;
    for (int i = 0; i < steps; ++i) {
      const auto* button = qobject_cast<QPushButton*>(dialog.focusWidget());
      const bool isNamed = !dialog.focusWidget()->accessibleName().isEmpty();
      names.push_back(
          (isNamed || button == nullptr ? dialog.focusWidget()->accessibleName() : button->text())
              .toStdString());
      QTest::keyClick(dialog.focusWidget(), Qt::Key_Tab);
    }
    return names;
  }

 private:
  std::unique_ptr<FormDialog> dialog_;
};

TEST_F(HostFormLayoutTest, LabelsOfTheServiceArePlainLines) {
  const auto& dialog =
      open({kvl::Dictionary{{"name", "a"}, {"label", "<b>Salt</b> & pepper\nplease"}},
            kvl::Dictionary{{"name", "b"}, {"label", std::string(10'000, 'x')}}});
  const auto* field = dialog.findChild<QLineEdit*>();
  EXPECT_EQ(field->accessibleName(), "<b>Salt</b> & pepper please");
  QStringList texts;
  for (const auto* label : dialog.findChildren<QLabel*>()) {
    EXPECT_EQ(label->textFormat(), Qt::PlainText);
    if (label->buddy() != nullptr) texts.append(label->text());
  }
  EXPECT_EQ(texts, QStringList({"<b>Salt</b> && pepper please", QString(59, 'x') + u'…'}));
  EXPECT_LE(dialog.width(), dialog.screen()->availableSize().width());
}

TEST_F(HostFormLayoutTest, AFormOfManyInputsFitsTheScreen) {
  kvl::Array inputs;
  for (int i = 0; i < 100; ++i) inputs.append(kvl::Dictionary{{"name", std::to_string(i)}});
  const auto& dialog = open(inputs);
  EXPECT_LE(dialog.height(), dialog.screen()->availableSize().height());
  const auto fields = dialog.findChildren<QLineEdit*>();
  ASSERT_EQ(fields.size(), 100);
  EXPECT_FALSE(fields.back()->visibleRegion().contains(fields.back()->rect().center()));
  fields.front()->setFocus();
  for (int i = 0; i < 99; ++i) QTest::keyClick(dialog.focusWidget(), Qt::Key_Tab);
  EXPECT_EQ(dialog.focusWidget(), fields.back());
  EXPECT_TRUE(fields.back()->visibleRegion().contains(fields.back()->rect().center()));
}

TEST_F(HostFormLayoutTest, AFormOfFewInputsNeedsNoScrolling) {
  auto& dialog = open({kvl::Dictionary{{"name", "a"}}, kvl::Dictionary{{"name", "b"}}});
  for (int i = 0; i < 4; ++i) dialog.addFile();
  EXPECT_TRUE(eventually([&] {
    return std::ranges::all_of(dialog.findChildren<QLineEdit*>(), [](const QLineEdit* field) {
      return field->visibleRegion().boundingRect() == field->rect();
    });
  }));
}

TEST_F(HostFormLayoutTest, TheKeyboardReachesAddedFilesAfterTheFields) {
  auto& dialog = open({kvl::Dictionary{{"name", "a"}}, kvl::Dictionary{{"name", "b"}}});
  addFiles(dialog, 2);
  dialog.findChild<QLineEdit*>()->setFocus();
  EXPECT_THAT(namesOnTheWay(dialog, 9),
              testing::ElementsAre("a", "b", "File", "Choose a file: File", "File",
                                   "Choose a file: File", "&Add a file…", "&Close", "&Submit"));
}

TEST_F(HostFormLayoutTest, TheKeyboardReachesAFileOfAFormWithoutInputs) {
  auto& dialog = open({});
  addFiles(dialog, 1);
  dialog.findChild<QLineEdit*>()->setFocus();
  EXPECT_THAT(namesOnTheWay(dialog, 3),
              testing::ElementsAre("File", "Choose a file: File", "&Add a file…"));
}

TEST_F(HostFormLayoutTest, TheButtonThatSubmitsHasTheFocusAgain) {
  auto& dialog = open({kvl::Dictionary{{"name", "a"}}});
  ASSERT_TRUE(eventually([&] { return session().isEstablished(); }));
  auto* submit = buttonOf(dialog, "&Submit");
  submit->setFocus();
  QTest::keyClick(submit, Qt::Key_Space);
  EXPECT_NE(dialog.focusWidget(), submit);
  ASSERT_TRUE(eventually([&] { return dialog.isAnswered(); }));
  EXPECT_EQ(dialog.focusWidget(), submit);
}

TEST_F(HostFormLayoutTest, AFocusThatTheUserHasMovedStaysWhereItIs) {
  auto& dialog = open({kvl::Dictionary{{"name", "a"}}, kvl::Dictionary{{"name", "b"}}});
  ASSERT_TRUE(eventually([&] { return session().isEstablished(); }));
  auto* submit = buttonOf(dialog, "&Submit");
  submit->setFocus();
  QTest::keyClick(submit, Qt::Key_Space);
  auto* field = dialog.findChildren<QLineEdit*>().back();
  field->setFocus();
  ASSERT_TRUE(eventually([&] { return dialog.isAnswered(); }));
  EXPECT_EQ(dialog.focusWidget(), field);
}

}  // namespace
