#include "tests/support/LogCapture.h"
#include "tests/support/UserEnvironment.h"

#include <local/KVLEncodingLocale.h>

#include <gmock/gmock.h>

#include <string>
#include <vector>

namespace {

using kvl::Array;
using kvl::Dictionary;
using kvl::Value;
using KVLEncoding::stringWithLocales;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kValidDate = "2024-05-01T14:34:56Z";

class LocaleMistakeTest : public testing::Test {
 protected:
  // What is logged for an entry that leaves its token in place, and the entry after it untouched.
  std::vector<std::string> linesOf(const Value& entry) {
    log_.clear();
    const Dictionary good{{"find", "%L"}, {"type", "duration"}, {"seconds", 5}};
    EXPECT_EQ(stringWithLocales("%D %L", Array{entry, good}), "%D 5 Sekunden");
    return log_.lines();
  }

 private:
  const kvltest::UserEnvironment user_{"de_DE.UTF-8", "Europe/Berlin"};
  kvltest::LogCapture log_;
};

TEST_F(LocaleMistakeTest, NoToken) {
  EXPECT_THAT(linesOf(Dictionary{{"type", "time"}}), ElementsAre("locale missing find"));
  EXPECT_THAT(linesOf(Dictionary{{"find", ""}, {"type", "time"}}),
              ElementsAre("locale missing find"));
  EXPECT_THAT(linesOf(Dictionary{{"find", Value()}, {"type", "time"}}),
              ElementsAre("locale missing find"));
  EXPECT_THAT(linesOf(Dictionary()), ElementsAre("locale missing find"));
}

TEST_F(LocaleMistakeTest, ATokenThatIsNoString) {
  EXPECT_THAT(linesOf(Dictionary{{"find", 5}}),
              ElementsAre("expect find as string in dictionary {find = 5}", "locale missing find"));
}

TEST_F(LocaleMistakeTest, AnEntryThatIsNoDictionary) {
  for (const Value& entry : {Value("%D"), Value(5), Value(), Value(Array())}) {
    EXPECT_THAT(linesOf(entry), ElementsAre("locale missing find")) << entry.description();
  }
}

TEST_F(LocaleMistakeTest, ADateThatCannotBeRead) {
  for (const char* date : {"yesterday", "2024-05-01", "2024-02-30T00:00:00Z", " "}) {
    EXPECT_THAT(linesOf(Dictionary{{"find", "%D"}, {"type", "date"}, {"date", date}}),
                ElementsAre("invalid locale date: " + std::string(date)));
  }
}

TEST_F(LocaleMistakeTest, ADateThatCannotBeReadIsAllThatIsReportedOfItsEntry) {
  EXPECT_THAT(
      linesOf(Dictionary{{"find", "%D"}, {"type", "never"}, {"date", "x"}, {"seconds", "many"}}),
      ElementsAre("invalid locale date: x"));
}

TEST_F(LocaleMistakeTest, DateTypesWithoutADate) {
  EXPECT_THAT(
      linesOf(Dictionary{{"find", "%D"}, {"type", "date"}}),
      ElementsAre(R"(unknown or misconfigured locale type: date in {find = "%D"; type = date})"));
  EXPECT_THAT(linesOf(Dictionary{{"find", "%D"}, {"type", "date time"}, {"seconds", 5}}),
              ElementsAre("unknown or misconfigured locale type: date time in "
                          R"({find = "%D"; type = "date time"; seconds = 5})"));
}

TEST_F(LocaleMistakeTest, DurationWithADate) {
  const Dictionary entry{
      {"find", "%D"}, {"type", "duration"}, {"date", kValidDate}, {"seconds", 5}};
  EXPECT_THAT(linesOf(entry),
              ElementsAre("unknown or misconfigured locale type: duration in "
                          R"({find = "%D"; type = duration; date = 2024-05-01T14:34:56Z; )"
                          "seconds = 5}"));
}

TEST_F(LocaleMistakeTest, TypesNobodyKnows) {
  EXPECT_THAT(linesOf(Dictionary{{"find", "%D"}, {"type", "Date"}, {"date", kValidDate}}),
              ElementsAre("unknown or misconfigured locale type: Date in "
                          R"({find = "%D"; type = Date; date = 2024-05-01T14:34:56Z})"));
  EXPECT_THAT(linesOf(Dictionary{{"find", "%D"}, {"type", "week"}}),
              ElementsAre("unknown or misconfigured locale type: week in "
                          R"({find = "%D"; type = week})"));
}

TEST_F(LocaleMistakeTest, ATextThatEntriesMultiplyStaysShort) {
  const Dictionary midnight{{"find", "0"}, {"type", "time"}};
  const auto text = stringWithLocales("0", Array(std::vector<Value>(40, midnight)));
  EXPECT_LE(text.size(), std::size_t{1} << 20);
  EXPECT_EQ(text.size(), 349'525U);  // one more replacement of each 0 would be too much
  EXPECT_EQ(linesOf(Dictionary{{"find", "%none"}, {"type", "time"}}).size(), 0U);
}

TEST_F(LocaleMistakeTest, NoType) {
  EXPECT_THAT(linesOf(Dictionary{{"find", "%D"}}),
              ElementsAre(R"(unknown or misconfigured locale type:  in {find = "%D"})"));
  EXPECT_THAT(linesOf(Dictionary{{"find", "%D"}, {"date", kValidDate}}),
              ElementsAre("unknown or misconfigured locale type:  in "
                          R"({find = "%D"; date = 2024-05-01T14:34:56Z})"));
}

TEST_F(LocaleMistakeTest, ATypeThatIsNoString) {
  EXPECT_THAT(linesOf(Dictionary{{"find", "%D"}, {"type", 1}}),
              ElementsAre(R"(expect type as string in dictionary {find = "%D"; type = 1})",
                          "unknown or misconfigured locale type:  in "
                          R"({find = "%D"; type = 1})"));
}

TEST_F(LocaleMistakeTest, ADateThatIsNoStringIsAbsent) {
  EXPECT_THAT(
      linesOf(Dictionary{{"find", "%D"}, {"type", "date"}, {"date", 0}}),
      ElementsAre(R"(expect date as string in dictionary {find = "%D"; type = date; date = 0})",
                  "unknown or misconfigured locale type: date in "
                  R"({find = "%D"; type = date; date = 0})"));
}

TEST_F(LocaleMistakeTest, SecondsThatAreNoNumberBesideATypeThatIsNotAllowed) {
  EXPECT_THAT(
      linesOf(Dictionary{{"find", "%D"}, {"type", "date"}, {"seconds", "x"}}),
      ElementsAre(
          R"(expect seconds as integer in dictionary {find = "%D"; type = date; seconds = x})",
          "unknown or misconfigured locale type: date in "
          R"({find = "%D"; type = date; seconds = x})"));
}

class LocaleSecondsTest : public testing::Test {
 protected:
  const kvltest::UserEnvironment user{"de_DE.UTF-8", "Europe/Berlin"};
  const kvltest::LogCapture log;
};

TEST_F(LocaleSecondsTest, SecondsThatAreNoNumberAreZeroAndReported) {
  const Dictionary entry{{"find", "%T"}, {"type", "time"}, {"seconds", "3600"}};
  EXPECT_EQ(stringWithLocales("%T", Array{entry}), "00:00");
  EXPECT_THAT(log.lines(), ElementsAre("expect seconds as integer in dictionary "
                                       R"({find = "%T"; type = time; seconds = 3600})"));
}

// Each midnight takes the place of two bytes and has five.
TEST_F(LocaleSecondsTest, ATextGrowsToAMebibyteAndNotAByteFurther) {
  constexpr std::size_t kLongest = std::size_t{1} << 20;
  const Array midnight{Dictionary{{"find", "%T"}, {"type", "time"}}};
  const std::string once(kLongest - 5, 'x');
  EXPECT_TRUE(stringWithLocales(once + "%T", midnight) == once + "00:00");
  EXPECT_TRUE(stringWithLocales(once + "x%T", midnight) == once + "x%T");
  const std::string twice(kLongest - 10, 'x');
  EXPECT_TRUE(stringWithLocales("%T" + twice + "%T", midnight) == "00:00" + twice + "00:00");
  EXPECT_TRUE(stringWithLocales("%T" + twice + "x%T", midnight) == "%T" + twice + "x%T");
  EXPECT_EQ(log.count("locale text too long: '%T'"), 2U);
}

TEST_F(LocaleSecondsTest, ATextThatIsTooLongAlreadyMayBecomeShorter) {
  const std::string filling(std::size_t{1} << 20, 'x');
  const auto midnight = [](const char* token) {
    return Array{Dictionary{{"find", token}, {"type", "time"}}};
  };
  EXPECT_TRUE(stringWithLocales(filling + "%Time%", midnight("%Time%")) == filling + "00:00");
  EXPECT_TRUE(stringWithLocales(filling + "%Time", midnight("%Time")) == filling + "00:00");
  EXPECT_TRUE(stringWithLocales(filling + "%Tim", midnight("%Tim")) == filling + "%Tim");
  EXPECT_EQ(log.lines(), std::vector<std::string>{"locale text too long: '%Tim'"});
}

TEST_F(LocaleSecondsTest, SecondsBesideADateAreReadWithoutUse) {
  const auto entry = [](const Value& seconds) {
    return Array{
        Dictionary{{"find", "%T"}, {"type", "time"}, {"date", kValidDate}, {"seconds", seconds}}};
  };
  EXPECT_EQ(stringWithLocales("%T", entry(3600)), "16:34");
  EXPECT_THAT(log.lines(), IsEmpty());
  EXPECT_EQ(stringWithLocales("%T", entry("x")), "16:34");
  EXPECT_EQ(log.count("expect seconds as integer in dictionary"), 1U);
}

}  // namespace
