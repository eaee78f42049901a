#include "platform/core/NoDestructor.h"

#include <local/platform/Log.h>
#include <local/platform/Mutex.h>
#include <local/qt/Conversions.h>
#include <local/qt/LogBridge.h>

#include <QDebug>
#include <QLoggingCategory>
#include <map>
#include <string>
#include <utility>

namespace kvl::qt {
namespace {

// Qt's categories, each made with its first line. Threads may log to the end of the process.
class QtCategories {
 public:
  const QLoggingCategory& of(LogCategory category) {
    const MutexLock lock(mutex_);
    auto& made = categories_[category];
    if (!made) made = std::make_unique<Named>("kvlocal." + std::string(nameOf(category)));
    return made->category;
  }

  static QtCategories& shared() {
    static NoDestructor<QtCategories> categories;
    return *categories;
  }

 private:
  struct Named {
    explicit Named(std::string text) : name(std::move(text)), category(name.c_str()) {}
    const std::string name;  // which the category does not copy
    const QLoggingCategory category;
  };

  Mutex mutex_;
  std::map<LogCategory, std::unique_ptr<Named>> categories_ KVL_GUARDED_BY(mutex_);
};

QtMsgType typeOf(LogLevel level) {
  switch (level) {
    case LogLevel::debug:
      return QtDebugMsg;
    case LogLevel::info:
    case LogLevel::notice:
      return QtInfoMsg;
    case LogLevel::warning:
      return QtWarningMsg;
    case LogLevel::error:
      return QtCriticalMsg;
  }
  return QtInfoMsg;
}

void tellQt(const LogRecord& record) {
  const QLoggingCategory& category = QtCategories::shared().of(record.category);
  const QtMsgType type = typeOf(record.level);
  if (!category.isEnabled(type)) return;
  const QMessageLogContext context(nullptr, 0, nullptr, category.categoryName());
  qt_message_output(type, context, qString(record.line));
}

}  // namespace

class LogBridge::Implementation {
 public:
  Implementation() : before_(setLogRecordSink(tellQt)) {}
  ~Implementation() { setLogRecordSink(std::move(before_)); }
  Implementation(const Implementation&) = delete;
  Implementation& operator=(const Implementation&) = delete;

 private:
  LogRecordSink before_;
};

LogBridge::LogBridge() : implementation_(std::make_unique<Implementation>()) {}

LogBridge::~LogBridge() = default;

}  // namespace kvl::qt
