// Models that are changed by whoever hears of their changes.
#include "tests/support/QtApplication.h"

#include <local/qt/DocumentModel.h>
#include <local/qt/EventListModel.h>

#include <gtest/gtest.h>

#include <QAbstractItemModelTester>
#include <QTreeView>
#include <utility>
#include <vector>

namespace {

using kvl::Array;
using kvl::Value;
using kvl::qt::DocumentModel;
using kvl::qt::EventListModel;
using Mode = QAbstractItemModelTester::FailureReportingMode;

Array manyZeros() {
  return Array(std::vector<Value>(3 * DocumentModel::kFetched, Value(0)));
}

TEST(ModelSignalTest, ADocumentMayBeReplacedByWhoeverHearsOfIt) {
  const kvltest::QtApplication application;
  DocumentModel model;
  QTreeView view;
  view.setModel(&model);
  const QAbstractItemModelTester tester(&model, Mode::Fatal);
  bool isReplaced = false;
  QObject::connect(&model, &QAbstractItemModel::modelReset, &model, [&] {
    if (!std::exchange(isReplaced, true)) model.setDocument(Array(std::vector<Value>{Array{1, 2}}));
  });
  model.setDocument(Array{3, 4, 5});
  EXPECT_EQ(model.rowCount(), 1);
  EXPECT_EQ(model.rowCount(model.index(0, 0)), 2);
}

TEST(ModelSignalTest, ADocumentMayBeReplacedByWhoeverHearsOfItsRows) {
  const kvltest::QtApplication application;
  DocumentModel model;
  QTreeView view;
  view.setModel(&model);
  model.setDocument(manyZeros());
  bool isReplaced = false;
  QObject::connect(&model, &QAbstractItemModel::rowsInserted, &model, [&] {
    if (!std::exchange(isReplaced, true)) model.setDocument(Array{1});
  });
  while (!isReplaced && model.canFetchMore({})) model.fetchMore({});
  EXPECT_TRUE(isReplaced);
  EXPECT_EQ(model.rowCount(), 1);
  EXPECT_FALSE(model.canFetchMore({}));
}

TEST(ModelSignalTest, EventsMayBeClearedByWhoeverHearsOfTheirCount) {
  const kvltest::QtApplication application;
  EventListModel model;
  const QAbstractItemModelTester tester(&model, Mode::Fatal);
  int told = 0;
  QObject::connect(&model, &EventListModel::countChanged, &model, [&] {
    ++told;
    model.clear();
  });
  model.append({{"a", "b", "1"}, {"a", "b", "2"}});
  EXPECT_EQ(model.count(), 0);
  EXPECT_EQ(told, 2) << "that they came, and that they went";
}

}  // namespace
