#include "tests/support/QtApplication.h"

#include <local/qt/DocumentTree.h>
#include <local/qt/Notice.h>

#include <gmock/gmock.h>

#include <QHeaderView>
#include <algorithm>

namespace {

using kvl::qt::DocumentTree;

TEST(DocumentTreeTest, CellsAreShortLines) {
  const kvltest::QtApplication application;
  DocumentTree tree;
  const std::string huge(1 << 20, 'W');
  tree.setDocument(kvl::Dictionary{{huge, kvl::Value(huge)}});
  tree.show();
  EXPECT_LE(tree.header()->sectionSize(0), 300);
  tree.setDocument("two\nlines");
  EXPECT_EQ(tree.model()->index(0, 1).data(), "two lines");
}

// An array of arrays of so many elements each.
kvl::Value arrays(int count, int elements) {
  kvl::Array inner;
  for (int i = 0; i < elements; ++i) inner.append(i);
  kvl::Array outer;
  for (int i = 0; i < count; ++i) outer.append(inner);
  return outer;
}

TEST(DocumentTreeTest, TheFirstValuesAreUnfoldedUpToSomeThousandRows) {
  const kvltest::QtApplication application;
  DocumentTree tree;
  const auto unfolded = [&] {
    int count = 0;
    for (int row = 0; row < tree.model()->rowCount(); ++row)
      count += tree.isExpanded(tree.model()->index(row, 0)) ? 1 : 0;
    return count;
  };
  tree.setDocument(arrays(5, 999));
  EXPECT_EQ(unfolded(), 5);
  tree.setDocument(arrays(6, 999));
  EXPECT_EQ(unfolded(), 4);
}

TEST(DocumentTreeTest, ADeepDocumentIsShown) {
  const kvltest::QtApplication application;
  DocumentTree tree;
  kvl::Value value(1);
  for (int i = 0; i < 100'000; ++i) value = kvl::Array{value};
  tree.setDocument(value);
  tree.show();
  EXPECT_EQ(tree.model()->index(0, 1).data(), "1 element");
}

TEST(NoticeTest, AnErrorHasAColourOfItsOwnAndNothingElse) {
  const kvltest::QtApplication application;
  QWidget window;
  kvl::qt::Notice notice(&window);
  notice.showError("wrong");
  EXPECT_NE(notice.palette().windowText(), window.palette().windowText());
  QPalette colors = window.palette();
  colors.setColor(QPalette::Window, Qt::yellow);
  window.setPalette(colors);
  EXPECT_EQ(notice.palette().color(QPalette::Window), QColor(Qt::yellow));
  notice.showOutcome("right");
  EXPECT_EQ(notice.palette().windowText(), window.palette().windowText());
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
  kvl::qt::DocumentTree tree;
  tree.setAlternatingRowColors(false);
  tree.setDocument(kvl::Value(text));
  tree.resize(600, 100);
  tree.show();
  const QRect row = tree.visualRect(tree.model()->index(0, 0));
  const QRect cell(tree.columnViewportPosition(1), row.y(), tree.columnWidth(1), row.height());
  return tree.viewport()->grab(cell.adjusted(1, 1, -1, -1)).toImage();
}

QImage noticeWith(const char* text) {
  kvl::qt::Notice notice;
  notice.showOutcome(QString::fromUtf8(text));
  notice.resize(600, 30);
  return notice.grab().toImage();
}

TEST(TextSideTest, AnAnswerStandsAtTheSideWhereItBegins) {
  const kvltest::QtApplication application;
  for (const QImage& image : {cellWith("answer"), noticeWith("answer")})
    EXPECT_LT(middleOf(image), 0.4);
  for (const QImage& image : {cellWith("תשובה"), noticeWith("תשובה")})
    EXPECT_GT(middleOf(image), 0.6);
}

TEST(TextSideTest, FromRightToLeftEveryAnswerStandsAtTheRight) {
  const kvltest::QtApplication application({.rightToLeft = true});
  for (const char* text : {"answer", "תשובה"})
    for (const QImage& image : {cellWith(text), noticeWith(text)})
      EXPECT_GT(middleOf(image), 0.6) << text;
}

}  // namespace
