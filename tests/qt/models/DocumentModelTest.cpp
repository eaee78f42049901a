#include "tests/support/QtApplication.h"

#include <local/qt/DocumentModel.h>

#include <gmock/gmock.h>

#include <QAbstractItemModelTester>
#include <QSignalSpy>
#include <QTreeView>
#include <algorithm>
#include <optional>

namespace {

using kvl::Array;
using kvl::Dictionary;
using kvl::Value;
using kvl::qt::DocumentModel;

class DocumentModelTest : public testing::Test {
 protected:
  // "key: value, kind" of the rows at the top.
  [[nodiscard]] std::vector<std::string> lines(const QModelIndex& parent = {}) const {
    std::vector<std::string> lines;
    for (int row = 0; row < model_.rowCount(parent); ++row) {
      const auto at = model_.index(row, 0, parent);
      lines.push_back((at.data().toString() + ": " + at.siblingAtColumn(1).data().toString() +
                       ", " + at.data(DocumentModel::KindRole).toString())
                          .toStdString());
    }
    return lines;
  }

  static Array numbers(int count) {
    std::vector<Value> values;
    for (int i = 0; i < count; ++i) values.emplace_back(i);
    return Array(std::move(values));
  }

  // Ends the program with a message where the model breaks the rules of item models. It fetches
  // more rows as it begins and, which no view does, within each reset.
  void test() { tester_.emplace(&model_, QAbstractItemModelTester::FailureReportingMode::Fatal); }

  const kvltest::QtApplication application_;
  DocumentModel model_;

 private:
  std::optional<QAbstractItemModelTester> tester_;
};

TEST_F(DocumentModelTest, WithoutADocumentThereAreNoRows) {
  test();
  EXPECT_EQ(model_.rowCount(), 0);
  EXPECT_FALSE(model_.hasChildren());
  model_.setDocument(Array{1});
  model_.clear();
  EXPECT_EQ(model_.rowCount(), 0);
  EXPECT_TRUE(model_.valueAt({}).isNull());
}

TEST_F(DocumentModelTest, EachKindOfValueHasARow) {
  test();
  model_.setDocument(Dictionary{{"a", nullptr},
                                {"b", true},
                                {"c", 1},
                                {"d", 0.5},
                                {"e", "two\nlines"},
                                {"f", kvl::Data::fromText("12345")},
                                {"g", Array{1, 2}},
                                {"h", Dictionary{{"x", Value(1)}}},
                                {"i", kvl::Date::since1970(0)}});
  EXPECT_THAT(lines(), testing::ElementsAre(
                           "a: null, null", "b: true, boolean", "c: 1, integer", "d: 0.5, real",
                           "e: two lines, string", "f: 5 bytes, data", "g: 2 elements, array",
                           "h: 1 key, dictionary", "i: 1970-01-01 00:00:00 +0000, date"));
  EXPECT_THAT(lines(model_.index(6, 0)), testing::ElementsAre("0: 1, integer", "1: 2, integer"));
}

TEST_F(DocumentModelTest, RolesHaveTheValuesAsTheyStand) {
  test();
  model_.setDocument(Dictionary{{"two\nlines", "a\nb"}, {"list", Array{1}}});
  const auto at = model_.index(0, 1);
  EXPECT_EQ(at.data(DocumentModel::KeyRole), "two\nlines");
  EXPECT_EQ(at.data(DocumentModel::ValueRole), "a\nb");
  EXPECT_EQ(at.data(DocumentModel::TextRole), "a b");
  EXPECT_EQ(at.siblingAtColumn(0).data(), "two lines");
  const auto list = model_.index(1, 0);
  EXPECT_FALSE(list.data(DocumentModel::ValueRole).isValid());
  EXPECT_EQ(model_.valueAt(list), Value(Array{1}));
  EXPECT_EQ(model_.valueAt(model_.index(0, 0, list)), Value(1));
  for (const char* name : {"key", "value", "kind", "text", "display"})
    EXPECT_TRUE(model_.roleNames().values().contains(name)) << name;
}

TEST_F(DocumentModelTest, ABareValueIsOneRowWithoutAKey) {
  test();
  model_.setDocument("text");
  EXPECT_THAT(lines(), testing::ElementsAre(": text, string"));
  model_.setDocument(nullptr);
  EXPECT_THAT(lines(), testing::ElementsAre(": null, null"));
  model_.setDocument(Array());
  EXPECT_THAT(lines(), testing::IsEmpty());
}

class LargeDocumentModelTest : public DocumentModelTest, public testing::WithParamInterface<int> {};

TEST_P(LargeDocumentModelTest, RowsComeAThousandAtATime) {
  const int count = GetParam();
  model_.setDocument(numbers(count));
  EXPECT_EQ(model_.rowCount(), std::min(count, DocumentModel::kFetched));
  EXPECT_EQ(model_.canFetchMore({}), count > DocumentModel::kFetched);
  const QSignalSpy inserted(&model_, &DocumentModel::rowsInserted);
  test();
  while (model_.canFetchMore({})) model_.fetchMore({});
  EXPECT_EQ(model_.rowCount(), count);
  EXPECT_EQ(inserted.size(), (count - 1) / DocumentModel::kFetched);
  EXPECT_EQ(model_.index(count - 1, 1).data(), QString::number(count - 1));
  model_.fetchMore({});
  EXPECT_EQ(model_.rowCount(), count);
}

INSTANTIATE_TEST_SUITE_P(OnBothSidesOfTheLimit, LargeDocumentModelTest,
                         testing::Values(1, 999, 1000, 1001, 2500));

TEST_F(DocumentModelTest, AViewFetchesMoreAtItsEnd) {
  model_.setDocument(Dictionary{{"list", Value(numbers(2500))}});
  QTreeView view;
  view.setModel(&model_);
  view.expandAll();
  view.resize(200, 200);
  view.show();
  const auto list = model_.index(0, 0);
  for (int turn = 0; turn < 5; ++turn) {
    view.scrollToBottom();
    QCoreApplication::processEvents();
  }
  EXPECT_EQ(model_.rowCount(list), 2500);
}

TEST_F(DocumentModelTest, TextsAreShortLines) {
  test();
  const std::string huge(1 << 20, 'W');
  model_.setDocument(Dictionary{{huge, Value(huge)}});
  for (const int column : {0, 1}) {
    const QString text = model_.index(0, column).data().toString();
    EXPECT_EQ(text.size(), 1000);
    EXPECT_TRUE(text.endsWith(u'…'));
  }
}

TEST_F(DocumentModelTest, AnotherDocumentTakesThePlaceOfTheOneThatIsUnfolded) {
  test();
  QTreeView view;
  view.setModel(&model_);
  model_.setDocument(Dictionary{{"a", Array{1, 2, 3}}, {"b", Array{4}}});
  view.expandAll();
  const QPersistentModelIndex inner = model_.index(2, 0, model_.index(0, 0));
  ASSERT_TRUE(inner.isValid());
  model_.setDocument(Array{5});
  EXPECT_FALSE(inner.isValid());
  EXPECT_THAT(lines(), testing::ElementsAre("0: 5, integer"));
}

// Without the tester, which asks for rows within rows.
TEST(DeepDocumentModelTest, NestingTakesNoStack) {
  Value value(1);
  for (int i = 0; i < 200'000; ++i) value = Array{value};
  DocumentModel model;
  model.setDocument(value);
  QModelIndex index;
  for (int i = 0; i < 199'999; ++i) {
    index = model.index(0, 0, index);
    ASSERT_TRUE(index.isValid());
  }
  EXPECT_EQ(model.index(0, 1, index).data(), "1");
}

}  // namespace
