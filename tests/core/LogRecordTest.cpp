#include "tests/support/LogCapture.h"

#include <local/platform/Log.h>

#include <gtest/gtest.h>

#include <array>
#include <set>
#include <string>
#include <vector>

namespace {

using kvl::LogCategory;
using kvl::LogLevel;

struct KeptRecord {
  std::string line;
  LogCategory category;
  LogLevel level;
  friend bool operator==(const KeptRecord&, const KeptRecord&) = default;
};

// Collects records while it lives.
class RecordCapture {
 public:
  RecordCapture()
      : previous_(kvl::setLogRecordSink([this](const kvl::LogRecord& record) {
          records.push_back({std::string(record.line), record.category, record.level});
        })) {}
  ~RecordCapture() { kvl::setLogRecordSink(std::move(previous_)); }
  RecordCapture(const RecordCapture&) = delete;
  RecordCapture& operator=(const RecordCapture&) = delete;

  std::vector<KeptRecord> records;

 private:
  kvl::LogRecordSink previous_;
};

TEST(LogRecordTest, TellsCategoryAndLevelBesideTheLine) {
  const RecordCapture capture;
  kvl::log(LogCategory::keys, LogLevel::error, "no key: %@", "why");
  EXPECT_EQ(capture.records,
            (std::vector<KeptRecord>{{"no key: why", LogCategory::keys, LogLevel::error}}));
}

TEST(LogRecordTest, ALineWithoutACategoryIsAGeneralNotice) {
  const RecordCapture capture;
  kvl::log("a %@", "b");
  kvl::logLine("c");
  EXPECT_EQ(capture.records,
            (std::vector<KeptRecord>{{"a b", LogCategory::general, LogLevel::notice},
                                     {"c", LogCategory::general, LogLevel::notice}}));
}

TEST(LogRecordTest, LinesAreUnchanged) {
  const kvltest::LogCapture lines;
  const RecordCapture capture;
  kvl::log(LogCategory::menus, LogLevel::debug, "a\n%@", "\r\x1b");
  ASSERT_EQ(capture.records.size(), 1U);
  EXPECT_EQ(lines.lines(), (std::vector<std::string>{"a\\n\\r\x1b"}));
  EXPECT_EQ(capture.records[0].line, "a\\n\\r\x1b");
}

TEST(LogRecordTest, TheSinkOfLinesComesFirst) {
  std::vector<std::string> calls;
  const auto lines = kvl::setLogSink([&calls](std::string_view) { calls.emplace_back("line"); });
  const auto records =
      kvl::setLogRecordSink([&calls](const kvl::LogRecord&) { calls.emplace_back("record"); });
  kvl::log("x");
  kvl::setLogRecordSink(records);
  kvl::setLogSink(lines);
  EXPECT_EQ(calls, (std::vector<std::string>{"line", "record"}));
}

TEST(LogRecordTest, StandsInForTheSystemLog) {
  testing::internal::CaptureStderr();
  {
    const RecordCapture capture;
    kvl::logLine(LogCategory::session, LogLevel::info, "for the records alone");
    EXPECT_EQ(capture.records.size(), 1U);
  }
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(LogRecordTest, TheSinkBeforeIsSetAgain) {
  const RecordCapture outer;
  {
    const RecordCapture inner;
    kvl::log("inside");
    EXPECT_EQ(inner.records.size(), 1U);
  }
  kvl::log("outside");
  ASSERT_EQ(outer.records.size(), 1U);
  EXPECT_EQ(outer.records[0].line, "outside");
}

TEST(LogRecordTest, EveryCategoryHasANameOfItsOwn) {
  constexpr std::array kAll = {LogCategory::general, LogCategory::session, LogCategory::notary,
                               LogCategory::events,  LogCategory::loading, LogCategory::documents,
                               LogCategory::menus,   LogCategory::images,  LogCategory::keys,
                               LogCategory::desktop};
  std::set<std::string_view> names;
  for (const LogCategory category : kAll) names.insert(kvl::nameOf(category));
  EXPECT_EQ(names.size(), kAll.size());
  EXPECT_EQ(kvl::nameOf(LogCategory::session), "session");
}

}  // namespace
