#include <local/KVLInputFile.h>
#include <local/qt/Conversions.h>

#include <gmock/gmock.h>

#include <QDateTime>
#include <QUrl>
#include <limits>

namespace {

using kvl::Array;
using kvl::Dictionary;
using kvl::Value;
using kvl::qt::kDeepestVariant;
using kvl::qt::value;
using kvl::qt::variant;

TEST(VariantsTest, EachKindComesBackAsItWas) {
  const std::vector<Value> values{nullptr,
                                  true,
                                  false,
                                  0,
                                  std::numeric_limits<std::int64_t>::min(),
                                  std::numeric_limits<std::int64_t>::max(),
                                  0.5,
                                  "Grüße",
                                  "",
                                  kvl::Data::fromText("a\0b"),
                                  kvl::Data(),
                                  kvl::Date::since1970(1.5),
                                  Array{1, "a", Value(Array())},
                                  Dictionary{{"a", Dictionary{{"b", nullptr}}}}};
  for (const Value& one : values) EXPECT_EQ(value(variant(one)), one) << one.description();
}

TEST(VariantsTest, ValuesHaveTheTypesThatAreSaid) {
  EXPECT_EQ(variant(nullptr).typeId(), QMetaType::Nullptr);
  EXPECT_EQ(variant(true).typeId(), QMetaType::Bool);
  EXPECT_EQ(variant(1).typeId(), QMetaType::LongLong);
  EXPECT_EQ(variant(1.0).typeId(), QMetaType::Double);
  EXPECT_EQ(variant(kvl::Date::since1970(0)), QDateTime::fromMSecsSinceEpoch(0, Qt::UTC));
  EXPECT_EQ(variant(Array{1}), QVariantList{1LL});
  EXPECT_EQ(variant(Dictionary{{"k", "v"}}), (QVariantMap{{"k", "v"}}));
  EXPECT_EQ(variant(KVLInputFile::newWithFilename("f", "text/plain", kvl::Data())).typeId(),
            QMetaType::Nullptr);
}

TEST(VariantsTest, DatesBeyondWhatQtHoldsAreInvalid) {
  for (const double seconds : {1e300, -1e300, std::numeric_limits<double>::quiet_NaN()}) {
    const QVariant date = variant(kvl::Date(seconds));
    EXPECT_EQ(date.typeId(), QMetaType::QDateTime);
    EXPECT_FALSE(date.toDateTime().isValid());
    EXPECT_TRUE(value(date).isNull());
  }
}

TEST(VariantsTest, OtherTypesAreTheirTextsOrNull) {
  EXPECT_EQ(value(QUrl("https://localhost/a")), Value("https://localhost/a"));
  EXPECT_EQ(value(QStringList{"a", "b"}), Value(Array{"a", "b"}));
  EXPECT_EQ(value(QVariantHash{{"a", 1}}), Value(Dictionary{{"a", Value(1)}}));
  EXPECT_EQ(value(std::numeric_limits<quint64>::max()), Value(18446744073709551615.0));
  EXPECT_EQ(value(QVariant::fromValue(1.5F)), Value(1.5));
  EXPECT_TRUE(value(QVariant::fromValue<void*>(nullptr)).isNull());
  EXPECT_TRUE(value(QVariant()).isNull());
}

// How many arrays are within each other.
int depthOf(Value value) {
  int depth = 0;
  for (auto array = value.array(); array; array = value.array()) {
    ++depth;
    if (array->empty()) break;
    value = Value((*array)[0]);
  }
  return depth;
}

TEST(VariantsTest, WhatIsNestedTooDeeplyIsNull) {
  Value nested(1);
  for (int i = 0; i < kDeepestVariant; ++i) nested = Array{nested};
  EXPECT_EQ(value(variant(nested)), nested);
  const Value deeper = Array{nested};
  EXPECT_EQ(depthOf(value(variant(deeper))), kDeepestVariant);
  Value endless(1);
  for (int i = 0; i < 100'000; ++i) endless = Array{endless};
  EXPECT_EQ(depthOf(value(variant(endless))), kDeepestVariant);
  QVariant list(1);
  for (int i = 0; i < kDeepestVariant + 1; ++i) list = QVariantList{list};
  EXPECT_EQ(depthOf(value(list)), kDeepestVariant);
}

}  // namespace
