// Texts that the host has from others, wherever it shows them.
#include "examples/qthost/DocumentTree.h"
#include "examples/qthost/EventLog.h"
#include "examples/qthost/FormField.h"
#include "examples/qthost/ServiceMenus.h"
#include "examples/qthost/Texts.h"
#include "tests/support/QtApplication.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

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

TEST_F(HostFileTest, AFileThatIsTooLargeIsNotSent) {
  QFile file(path("large"));
  ASSERT_TRUE(file.open(QIODevice::WriteOnly));
  ASSERT_TRUE(file.resize(qthost::FileField::kMostBytes + 1));
  EXPECT_EQ(faultOf("large"), "The file is larger than 256 MiB.");
  ASSERT_TRUE(file.resize(5));
  EXPECT_EQ(faultOf("large"), "");
}

}  // namespace
