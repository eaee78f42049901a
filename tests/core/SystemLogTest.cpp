// What the operating system's log gets. The program is linked so that the journal and syslog are
// this test's.
#include <local/platform/Log.h>

#include <glib.h>
#include <gtest/gtest.h>
#include <syslog.h>
#include <unistd.h>

#include <cstdarg>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

using kvl::LogCategory;
using kvl::LogLevel;

using Fields = std::map<std::string, std::string>;

struct SystemLog {
  bool hasJournal = true;
  bool hasSyslog = true;
  std::vector<Fields> journal;
  std::vector<std::pair<int, std::string>> syslog;
};
SystemLog systemLog;

void takeSyslog(int priority, std::string_view format, std::va_list arguments) {
  ASSERT_EQ(format, "%s") << "what a line holds steers the format";
  systemLog.syslog.emplace_back(priority, va_arg(arguments, const char*));
}

}  // namespace

extern "C" {

GLogWriterOutput __wrap_g_log_writer_journald(GLogLevelFlags /*level*/, const GLogField* fields,
                                              gsize count, gpointer /*data*/) {
  if (!systemLog.hasJournal) return G_LOG_WRITER_UNHANDLED;
  Fields taken;
  for (gsize i = 0; i < count; ++i) {
    EXPECT_EQ(fields[i].length, -1) << "not the length of a text";
    EXPECT_TRUE(taken.emplace(fields[i].key, static_cast<const char*>(fields[i].value)).second);
  }
  systemLog.journal.push_back(taken);
  return G_LOG_WRITER_HANDLED;
}

int __real_access(const char* path, int mode);
int __wrap_access(const char* path, int mode) {
  if (std::string_view(path) != "/dev/log") return __real_access(path, mode);
  return systemLog.hasSyslog && mode == W_OK ? 0 : -1;
}

void __wrap_syslog(int priority, const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  takeSyslog(priority, format, arguments);
  va_end(arguments);
}
// What the C library makes of it where the compiler checks calls.
void __wrap___syslog_chk(int priority, int /*flag*/, const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  takeSyslog(priority, format, arguments);
  va_end(arguments);
}

}  // extern "C"

namespace {

class SystemLogTest : public testing::Test {
 protected:
  SystemLogTest() { systemLog = {}; }
};

struct LevelCase {
  LogLevel level;
  int priority;
};
constexpr LevelCase kLevels[] = {{LogLevel::debug, LOG_DEBUG},
                                 {LogLevel::info, LOG_INFO},
                                 {LogLevel::notice, LOG_NOTICE},
                                 {LogLevel::warning, LOG_WARNING},
                                 {LogLevel::error, LOG_ERR}};

TEST_F(SystemLogTest, TheJournalGetsTheLineItsPriorityAndItsCategory) {
  for (const auto& [level, priority] : kLevels) {
    kvl::log(LogCategory::keys, level, "a 100%% line: %@", "%s");
    ASSERT_EQ(systemLog.journal.size(), 1U);
    EXPECT_EQ(systemLog.journal.front(), (Fields{{"MESSAGE", "a 100% line: %s"},
                                                 {"PRIORITY", std::to_string(priority)},
                                                 {"GLIB_DOMAIN", "korvale.local"},
                                                 {"KVL_CATEGORY", "keys"}}));
    systemLog.journal.clear();
  }
  EXPECT_TRUE(systemLog.syslog.empty());
}

TEST_F(SystemLogTest, TheJournalGetsEveryCategoryByItsName) {
  const std::pair<LogCategory, std::string> names[] = {
      {LogCategory::general, "general"}, {LogCategory::session, "session"},
      {LogCategory::notary, "notary"},   {LogCategory::events, "events"},
      {LogCategory::loading, "loading"}, {LogCategory::documents, "documents"},
      {LogCategory::menus, "menus"},     {LogCategory::images, "images"},
      {LogCategory::keys, "keys"},       {LogCategory::desktop, "desktop"}};
  for (const auto& [category, name] : names) {
    kvl::log(category, LogLevel::info, "line");
    EXPECT_EQ(systemLog.journal.back()["KVL_CATEGORY"], name);
  }
}

TEST_F(SystemLogTest, WithoutAJournalSyslogGetsTheLineAndItsPriority) {
  systemLog.hasJournal = false;
  for (const auto& [level, priority] : kLevels) {
    kvl::log(LogCategory::keys, level, "a line: %@", "%n\n");
    ASSERT_EQ(systemLog.syslog.size(), 1U);
    EXPECT_EQ(systemLog.syslog.front(),
              std::pair(LOG_USER | priority, std::string("a line: %n\\n")));
    systemLog.syslog.clear();
  }
}

TEST_F(SystemLogTest, WithoutEitherTheErrorStreamGetsTheLine) {
  systemLog.hasJournal = false;
  systemLog.hasSyslog = false;
  testing::internal::CaptureStderr();
  kvl::log(LogCategory::keys, LogLevel::error, "a line: %@", "%n");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "a line: %n\n");
  EXPECT_TRUE(systemLog.syslog.empty());
}

TEST_F(SystemLogTest, ASinkLeavesNothingForIt) {
  const auto before = kvl::setLogRecordSink([](const kvl::LogRecord&) {});
  kvl::log(LogCategory::keys, LogLevel::error, "line");
  kvl::setLogRecordSink(before);
  EXPECT_TRUE(systemLog.journal.empty());
}

}  // namespace
