// Texts that the host has from others, wherever it shows them.
#include "examples/qthost/DocumentTree.h"
#include "examples/qthost/EventLog.h"
#include "examples/qthost/FormField.h"
#include "examples/qthost/Outcome.h"
#include "examples/qthost/ServiceMenus.h"
#include "examples/qthost/Texts.h"
#include "tests/support/QtApplication.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <QDir>
#include <QFile>
#include <QHeaderView>
#include <QLineEdit>
#include <QTemporaryDir>

namespace {

using qthost::kLongestLine;
using qthost::lineOf;

TEST(HostTextsTest, ALineHasNoBreaksAndAnEnd) {
  EXPECT_EQ(lineOf("a\nb\tc\r\u2028d\x01"), "a b c  d ");
  EXPECT_EQ(lineOf(std::string(500, 'x')), QString(500, 'x'));
  EXPECT_EQ(lineOf(std::string(501, 'x')), QString(499, 'x') + u'…');
  EXPECT_EQ(lineOf("abcdef", 4), "abc…");
  EXPECT_EQ(lineOf("ab\U0001F600def", 4), "ab…");
  EXPECT_EQ(lineOf("ab\U0001F600", 4), "ab\U0001F600");
  EXPECT_EQ(lineOf(""), "");
}

TEST(HostTextsTest, AmpersandsAreReadAsTheyWereWritten) {
  for (const char* text : {"", "a&b", "a && b", "&", "&&&", "a&"})
    EXPECT_EQ(qthost::readText(qthost::withoutMnemonic(text)), text);
  EXPECT_EQ(qthost::readText("D&ocuments && &more"), "Documents & more");
  const auto menu = std::make_shared<kvl::Menu>();
  menu->addItem(kvl::MenuItem::itemWithTitle("&a\n&&"));
  menu->items().front()->setSubmenu(std::make_shared<kvl::Menu>());
  EXPECT_EQ(qthost::readText(qthost::barMenus(menu, {}).front().title), "&a &&");
}

TEST(HostTextsTest, CellsOfADocumentAreShortLines) {
  const kvltest::QtApplication application;
  qthost::DocumentTree tree;
  const std::string huge(1 << 20, 'W');
  tree.setDocument(kvl::Dictionary{{huge, kvl::Value(huge)}});
  tree.show();
  const auto* row = tree.topLevelItem(0);
  for (const int column : {0, 1}) EXPECT_EQ(row->text(column).size(), kLongestLine);
  EXPECT_LE(tree.header()->sectionSize(0), 300);
  tree.setDocument("two\nlines");
  EXPECT_EQ(tree.topLevelItem(0)->text(1), "two lines");
}

TEST(HostTextsTest, CellsOfTheLogAreShortLines) {
  const kvltest::QtApplication application;
  qthost::EventLog log;
  const std::string huge = "a\nb" + std::string(1 << 20, 'W');
  log.add({std::make_shared<KVLEvent>(huge, huge, huge)});
  for (const int column : {0, 1, 2}) {
    const QString text = log.topLevelItem(0)->text(column);
    EXPECT_EQ(text.size(), kLongestLine);
    EXPECT_TRUE(text.startsWith("a b") && text.endsWith(u'…'));
  }
}

// The middle of what is painted, from 0 at the left to 1 at the right.
double middleOf(const QImage& image) {
  int left = image.width();
  int right = 0;
  for (int x = 0; x < image.width(); ++x)
    for (int y = 0; y < image.height(); ++y)
      if (image.pixelColor(x, y).lightness() < 128) {
        left = std::min(left, x);
        right = std::max(right, x);
      }
  EXPECT_LT(left, right);
  return (left + right) / 2.0 / image.width();
}

// The only cell of a document.
QImage cellWith(const std::string& text) {
  qthost::DocumentTree tree;
  tree.setAlternatingRowColors(false);
  tree.setDocument(kvl::Value(text));
  tree.resize(600, 100);
  tree.show();
  const QRect row = tree.visualItemRect(tree.topLevelItem(0));
  const QRect cell(tree.columnViewportPosition(1), row.y(), tree.columnWidth(1), row.height());
  return tree.viewport()->grab(cell.adjusted(1, 1, -1, -1)).toImage();
}

QImage noticeWith(const char* text) {
  qthost::Notice notice;
  notice.showOutcome(QString::fromUtf8(text));
  notice.resize(600, 30);
  return notice.grab().toImage();
}

TEST(HostTextsTest, AnAnswerStandsAtTheSideWhereItBegins) {
  const kvltest::QtApplication application;
  for (const QImage& image : {cellWith("answer"), noticeWith("answer")})
    EXPECT_LT(middleOf(image), 0.4);
  for (const QImage& image : {cellWith("תשובה"), noticeWith("תשובה")})
    EXPECT_GT(middleOf(image), 0.6);
}

TEST(HostTextsTest, FromRightToLeftEveryAnswerStandsAtTheRight) {
  const kvltest::QtApplication application({.rightToLeft = true});
  for (const char* text : {"answer", "תשובה"})
    for (const QImage& image : {cellWith(text), noticeWith(text)})
      EXPECT_GT(middleOf(image), 0.6) << text;
}

class HostFileTest : public testing::Test {
 protected:
  // What is wrong with a file, without its path in front.
  QString faultOf(const QString& name) const {
    const QString path = folder_.filePath(name);
    QWidget parent;
    qthost::FileField field({{"name", "n"}}, &parent);
    field.setPath(path);
    QString fault;
    const bool isSent = field.input(fault).has_value();
    EXPECT_EQ(isSent, fault.isEmpty());
    return fault.remove(path + ": ");
  }

  [[nodiscard]] QString path(const char* name) const { return folder_.filePath(name); }

 private:
  const kvltest::QtApplication application_;
  const QTemporaryDir folder_;
};

TEST_F(HostFileTest, PipesAndFoldersAreNotRead) {
  ASSERT_EQ(mkfifo(path("pipe").toUtf8(), 0600), 0);
  EXPECT_EQ(faultOf("pipe"), "This is no file.");
  EXPECT_EQ(faultOf("."), "This is no file.");
  EXPECT_EQ(faultOf("none"), "No such file or directory");
}

TEST_F(HostFileTest, AFileWhoseNameHasALineEndIsNotSent) {
  for (const char* name : {"two\nlines", "two\rlines", "two\r\nlines", "\nlines"}) {
    QFile file(path(name));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    EXPECT_THAT(faultOf(name).toStdString(),
                testing::EndsWith("lines: There is a line end in the name of the file."));
  }
}

TEST_F(HostFileTest, AFolderMayHaveALineEndInItsName) {
  ASSERT_TRUE(QDir(path("")).mkpath("two\nlines"));
  QFile file(path("two\nlines/name"));
  ASSERT_TRUE(file.open(QIODevice::WriteOnly));
  EXPECT_EQ(faultOf("two\nlines/name"), "");
}

TEST_F(HostFileTest, APathIsToldAsItIs) {
  EXPECT_EQ(faultOf("100%2 %1"), "No such file or directory");
}

TEST_F(HostFileTest, AFileThatIsTooLargeIsNotSent) {
  QFile file(path("large"));
  ASSERT_TRUE(file.open(QIODevice::WriteOnly));
  ASSERT_TRUE(file.resize(qthost::FileField::kMostBytes + 1));
  EXPECT_EQ(faultOf("large"), "The file is larger than 256 MiB.");
  ASSERT_TRUE(file.resize(5));
  EXPECT_EQ(faultOf("large"), "");
}

}  // namespace
