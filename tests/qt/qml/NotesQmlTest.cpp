// The notes application in QML beside the development service.
#include "tests/qt/qml/QmlFixture.h"
#include "tests/support/PictureComparison.h"

#include <QQuickItem>
#include <QQuickWindow>

namespace {

using kvltest::eventually;

class NotesQmlTest : public kvltest::QmlTest {
 protected:
  void SetUp() override {
    QmlTest::SetUp();
    ASSERT_TRUE(load(QStringLiteral(KVL_NOTES)));
    window_ = qobject_cast<QQuickWindow*>(root.get());
    ASSERT_NE(window_, nullptr);
    window_->requestActivate();
    ASSERT_TRUE(QTest::qWaitForWindowActive(window_, kvltest::kPatience));
  }

  // The items below `item` of that type, from top to bottom.
  static void collect(const QQuickItem* item, const char* type, QList<QQuickItem*>& found) {
    for (auto* child : item->childItems()) {
      if (child->inherits(type)) found.append(child);
      collect(child, type, found);
    }
  }
  [[nodiscard]] QList<QQuickItem*> items(const char* type) const {
    QList<QQuickItem*> found;
    collect(window_->contentItem(), type, found);
    return found;
  }

  // The texts of labels and of buttons, but for what is empty.
  [[nodiscard]] QStringList shown() const {
    QStringList texts;
    for (const char* type : {"QQuickLabel", "QQuickButton"}) {
      for (const auto* item : items(type))
        if (const QString text = item->property("text").toString(); !text.isEmpty())
          texts.append(text);
    }
    return texts;
  }
  [[nodiscard]] bool canWrite() const {
    const auto fields = items("QQuickTextField");
    return !fields.isEmpty() && fields.front()->isEnabled();
  }
  // Writes a note with the keyboard.
  void write(const QString& text) {
    ASSERT_TRUE(eventually([&] { return canWrite(); }));
    items("QQuickTextField").front()->forceActiveFocus();
    for (const QChar letter : text) QTest::keyClick(window_, letter.toLatin1());
    QTest::keyClick(window_, Qt::Key_Return);
  }

  [[nodiscard]] QQuickWindow& window() const { return *window_; }

 private:
  QQuickWindow* window_ = nullptr;
};

TEST_F(NotesQmlTest, ANoteIsAddedAndDeletedByKeyboard) {
  write(QStringLiteral("milk"));
  ASSERT_TRUE(eventually([&] {
    return shown() == QStringList({"milk", "Delete", "Add"}) ||
           shown() == QStringList({"milk", "Add", "Delete"});
  })) << shown().join(' ').toStdString();
  EXPECT_TRUE(items("QQuickTextField").front()->property("text").toString().isEmpty());
  for (auto* button : items("QQuickButton"))
    if (button->property("text") == QStringLiteral("Delete")) button->forceActiveFocus();
  QTest::keyClick(&window(), Qt::Key_Space);
  EXPECT_TRUE(eventually([&] { return shown() == QStringList("Add"); }));
}

TEST_F(NotesQmlTest, ARefusalIsTold) {
  write(QStringLiteral(" "));
  EXPECT_TRUE(eventually([&] { return shown().contains(QStringLiteral("400 Bad Request")); }))
      << shown().join(' ').toStdString();
}

TEST_F(NotesQmlTest, WithoutTheServiceNothingCanBeWritten) {
  ASSERT_TRUE(eventually([&] { return canWrite(); }));
  killService();
  EXPECT_TRUE(eventually([&] { return !canWrite(); }));
}

// With KVL_WRITE_PICTURES=1 in the environment it writes the picture instead.
TEST_F(NotesQmlTest, LooksAsItDid) {
  for (const char* text : {"Buy milk and bread", "Call the harbour office", "Water the plants"}) {
    write(QString::fromLatin1(text));
    ASSERT_TRUE(eventually([&] { return shown().contains(QLatin1String(text)); }));
  }
  const auto images = items("QQuickImage");
  ASSERT_FALSE(images.isEmpty());
  ASSERT_TRUE(eventually([&] { return images.front()->implicitWidth() == 16; }));
  items("QQuickButton").front()->forceActiveFocus();  // no cursor that blinks
  const QString file = QStringLiteral(KVL_PICTURES "/notes-qml.png");
  std::string difference;
  EXPECT_TRUE(eventually([&] {
    const QImage picture = window().grabWindow().convertToFormat(QImage::Format_RGB32);
    difference = kvltest::differenceFromFile(picture, file);
    return difference.empty();
  })) << difference;
}

}  // namespace
