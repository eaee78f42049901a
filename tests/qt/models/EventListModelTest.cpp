#include "tests/support/QtApplication.h"

#include <local/qt/EventListModel.h>

#include <gmock/gmock.h>

#include <QAbstractItemModelTester>
#include <QDateTime>
#include <QSignalSpy>

namespace {

using kvl::qt::Event;
using kvl::qt::EventListModel;

class EventListModelTest : public testing::Test {
 protected:
  static QList<Event> events(int first, int last) {
    QList<Event> events;
    for (int i = first; i <= last; ++i)
      events.append({QStringLiteral("tick"), QString::number(i), QString::number(i)});
    return events;
  }

  [[nodiscard]] std::vector<int> numbers() const {
    std::vector<int> numbers;
    for (int row = 0; row < model_.rowCount(); ++row)
      numbers.push_back(model_.index(row).data(EventListModel::IdentifierRole).toInt());
    return numbers;
  }

  const kvltest::QtApplication application_;
  EventListModel model_;
  const QAbstractItemModelTester tester_{&model_,
                                         QAbstractItemModelTester::FailureReportingMode::Fatal};
};

TEST_F(EventListModelTest, RolesAndColumnsHaveTheTexts) {
  const auto before = QDateTime::currentDateTime();
  model_.append({{"first\nname", "a\tb", "7"}});
  const auto at = model_.index(0);
  EXPECT_EQ(at.data(EventListModel::NameRole), "first\nname");
  EXPECT_EQ(at.data(EventListModel::DataRole), "a\tb");
  EXPECT_EQ(at.data(EventListModel::IdentifierRole), "7");
  EXPECT_GE(at.data(EventListModel::TimeRole).toDateTime(), before);
  EXPECT_EQ(model_.index(0, 0).data(), "7");
  EXPECT_EQ(model_.index(0, 1).data(), "first name");
  EXPECT_EQ(model_.index(0, 2).data(), "a b");
  for (const char* name : {"name", "data", "identifier", "time"})
    EXPECT_TRUE(model_.roleNames().values().contains(name)) << name;
}

TEST_F(EventListModelTest, TextsAreShortLines) {
  const QString huge = "a\nb" + QString(1 << 20, 'W');
  model_.append({{huge, huge, huge}});
  for (const int column : {0, 1, 2}) {
    const QString text = model_.index(0, column).data().toString();
    EXPECT_EQ(text.size(), 1000);
    EXPECT_TRUE(text.startsWith("a b") && text.endsWith(u'…'));
  }
}

TEST_F(EventListModelTest, TheOldestGoBeyondTheMost) {
  model_.setMost(3);
  model_.append(events(1, 3));
  EXPECT_THAT(numbers(), testing::ElementsAre(1, 2, 3));
  const QPersistentModelIndex third(model_.index(2));
  model_.append(events(4, 4));
  EXPECT_THAT(numbers(), testing::ElementsAre(2, 3, 4));
  EXPECT_EQ(third.row(), 1);
  model_.append(events(5, 20));
  EXPECT_FALSE(third.isValid());
  EXPECT_THAT(numbers(), testing::ElementsAre(18, 19, 20));
}

TEST_F(EventListModelTest, AsManyAsThereMayBeAreReplacedAtOnce) {
  EXPECT_EQ(model_.most(), 1000);
  model_.append(events(1, 999));
  model_.append(events(1000, 1000));
  EXPECT_EQ(numbers().front(), 1);
  model_.append(events(1001, 1001));
  EXPECT_EQ(numbers().front(), 2);
  EXPECT_EQ(model_.count(), 1000);
}

TEST_F(EventListModelTest, FewerMayBeAskedForLater) {
  model_.append(events(1, 5));
  const QSignalSpy most(&model_, &EventListModel::mostChanged);
  const QSignalSpy count(&model_, &EventListModel::countChanged);
  model_.setMost(2);
  EXPECT_THAT(numbers(), testing::ElementsAre(4, 5));
  model_.setMost(2);
  EXPECT_EQ(most.size(), 1);
  EXPECT_EQ(count.size(), 1);
  model_.setMost(-1);
  EXPECT_EQ(model_.most(), 0);
  model_.append(events(6, 7));
  EXPECT_EQ(model_.count(), 0);
}

TEST_F(EventListModelTest, ChangesOfTheCountAreTold) {
  const QSignalSpy count(&model_, &EventListModel::countChanged);
  model_.append({});
  model_.clear();
  EXPECT_EQ(count.size(), 0);
  model_.setMost(2);
  model_.append(events(1, 2));
  EXPECT_EQ(count.size(), 1);
  model_.append(events(3, 3));
  EXPECT_EQ(count.size(), 1);
  model_.clear();
  EXPECT_EQ(count.size(), 2);
  EXPECT_EQ(model_.count(), 0);
}

TEST(QtEventTest, AbsentTextsAreNull) {
  const Event event = kvl::qt::eventOf(KVLEvent("name", "", std::nullopt));
  EXPECT_EQ(event.name, "name");
  EXPECT_TRUE(event.data.isEmpty());
  EXPECT_FALSE(event.data.isNull());
  EXPECT_TRUE(event.identifier.isNull());
  EXPECT_EQ(QVariant::fromValue(event).value<Event>(), event);
}

}  // namespace
