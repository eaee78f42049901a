#include <local/platform/Log.h>
#include <local/qt/LogBridge.h>

#include <gmock/gmock.h>

#include <QLoggingCategory>
#include <QString>
#include <string>
#include <thread>
#include <vector>

namespace {

using kvl::LogCategory;
using kvl::LogLevel;
using kvl::logLine;
using kvl::qt::LogBridge;
using testing::ElementsAre;
using testing::IsEmpty;

class LogBridgeTest : public testing::Test {
 protected:
  LogBridgeTest() : before_(qInstallMessageHandler(note)) { messages.clear(); }
  ~LogBridgeTest() override {
    qInstallMessageHandler(before_);
    QLoggingCategory::setFilterRules({});
  }

  // "category/type: text"
  static inline std::vector<std::string> messages;

 private:
  static void note(QtMsgType type, const QMessageLogContext& context, const QString& text) {
    messages.push_back(std::string(context.category) + "/" + std::to_string(type) + ": " +
                       text.toStdString());
  }

  const QtMessageHandler before_;
};

TEST_F(LogBridgeTest, LinesHaveTheirCategoryAndType) {
  const LogBridge bridge;
  logLine(LogCategory::session, LogLevel::debug, "one");
  logLine(LogCategory::notary, LogLevel::info, "two");
  logLine(LogCategory::events, LogLevel::notice, "Grüße %1");
  logLine(LogCategory::keys, LogLevel::warning, "four");
  logLine(LogCategory::general, LogLevel::error, "five");
  EXPECT_THAT(messages, ElementsAre("kvlocal.session/0: one", "kvlocal.notary/4: two",
                                    "kvlocal.events/4: Grüße %1", "kvlocal.keys/1: four",
                                    "kvlocal.general/2: five"));
}

TEST_F(LogBridgeTest, RulesDecideWhatIsSeen) {
  const LogBridge bridge;
  QLoggingCategory::setFilterRules("kvlocal.*.info=false\nkvlocal.menus.info=true");
  logLine(LogCategory::session, LogLevel::notice, "hidden");
  logLine(LogCategory::menus, LogLevel::notice, "seen");
  logLine(LogCategory::session, LogLevel::warning, "seen, too");
  EXPECT_THAT(messages, ElementsAre("kvlocal.menus/4: seen", "kvlocal.session/1: seen, too"));
}

TEST_F(LogBridgeTest, TheSinkBeforeIsSetAgain) {
  std::vector<std::string> records;
  auto replaced = kvl::setLogRecordSink(
      [&](const kvl::LogRecord& record) { records.emplace_back(record.line); });
  {
    const LogBridge outer;
    {
      const LogBridge inner;
      logLine(LogCategory::images, LogLevel::info, "inner");
    }
    logLine(LogCategory::images, LogLevel::info, "outer");
    EXPECT_THAT(records, IsEmpty());
  }
  logLine(LogCategory::images, LogLevel::info, "after");
  kvl::setLogRecordSink(std::move(replaced));
  EXPECT_THAT(messages, ElementsAre("kvlocal.images/4: inner", "kvlocal.images/4: outer"));
  EXPECT_THAT(records, ElementsAre("after"));
}

TEST_F(LogBridgeTest, AnyThreadMayLogMeanwhile) {
  qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([i] {
      for (int k = 0; k < 200; ++k)
        logLine(static_cast<LogCategory>(k % 10), LogLevel::warning, std::to_string(i));
    });
  }
  for (int i = 0; i < 50; ++i) const LogBridge bridge;
  for (auto& thread : threads) thread.join();
}

}  // namespace
