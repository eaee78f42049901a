// What the framework asks of the desktop, answered by Qt: addresses are opened, errors shown and
// texts measured.
#include "qt/GuiThread.h"
#include "qt/PlainText.h"
#include "qt/desktop/ErrorPresentation.h"
#include "qt/desktop/MainContextBridge.h"

#include <local/platform/FontMeasurement.h>
#include <local/platform/Log.h>
#include <local/platform/Mutex.h>
#include <local/platform/Workspace.h>
#include <local/qt/Conversions.h>
#include <local/qt/Integration.h>

#include <QApplication>
#include <QDesktopServices>
#include <QFont>
#include <QFontMetricsF>
#include <QObject>
#include <QThread>
#include <QUrl>
#include <algorithm>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kvl::qt {
namespace {

bool failToOpen(const std::string& url) {
  log(LogCategory::desktop, LogLevel::error, "error opening URL: %@", url);
  return false;
}

// Everything else would be handed to whatever program knows the scheme.
bool isOfTheWeb(const QUrl& address) {
  return address.isValid() &&
         (address.scheme() == QLatin1String("https") || address.scheme() == QLatin1String("http"));
}

bool openNow(const std::string& url) {
  const QUrl address(qString(url), QUrl::StrictMode);
  return (isOfTheWeb(address) && QDesktopServices::openUrl(address)) || failToOpen(url);
}

// An opener that asks `QDesktopServices`, and with it the handlers that the host has set there. On
// another thread than the GUI thread it hands the address over and answers true; false when there
// is nobody left to hand it to. Nothing but addresses of the schemes "http" and "https" is opened,
// and relative references are not: they would be files. Whatever is not opened is one line in the
// log.
URLOpener urlOpener(std::shared_ptr<GuiCalls> calls) {
  return [calls = std::move(calls), gui = QThread::currentThread()](std::string_view text) {
    std::string url(text);
    if (QThread::currentThread() == gui) return openNow(url);
    return calls->handOver([url] { openNow(url); }) || failToOpen(url);
  };
}

// Any thread measures; it touches no widget. On the GUI thread the font is what it is at that
// moment. On others it is what it was when the GUI thread measured last, or when the loop ran after
// the font of the whole application had changed: fonts of kinds of widgets tell nobody.
class MenuBarTextMeasurement final : public FontMeasurement {
 public:
  // GUI thread.
  MenuBarTextMeasurement();

  // Of the line that a menu would show (see `lineOf`). 0 x 0 after the end.
  [[nodiscard]] Size menuBarTextSize(std::string_view text) override;

  // GUI thread. Looks the font up again.
  void update();
  // No text is measured when it returns, and none will be.
  void end();

 private:
  const QThread* const gui_;
  Mutex mutex_;
  bool ended_ KVL_GUARDED_BY(mutex_) = false;
  QFont font_ KVL_GUARDED_BY(mutex_);
};

MenuBarTextMeasurement::MenuBarTextMeasurement() : gui_(QThread::currentThread()) {
  update();
}

Size MenuBarTextMeasurement::menuBarTextSize(std::string_view text) {
  const QString line = lineOf(text);
  if (QThread::currentThread() == gui_) update();
  const MutexLock lock(mutex_);
  if (ended_) return {};
  const QFontMetricsF metrics(font_);
  return {metrics.horizontalAdvance(line), metrics.height()};
}

void MenuBarTextMeasurement::update() {
  const MutexLock lock(mutex_);
  if (!ended_) font_ = QApplication::font("QMenuBar");
}

void MenuBarTextMeasurement::end() {
  const MutexLock lock(mutex_);
  ended_ = true;
}

// Keeps the measurement's font that of menu bars, as long as it lives. GUI thread.
class MenuBarFont final : public QObject {
 public:
  MenuBarFont();
  ~MenuBarFont() override;

  [[nodiscard]] const std::shared_ptr<MenuBarTextMeasurement>& measurement() const {
    return measurement_;
  }

 private:
  const std::shared_ptr<MenuBarTextMeasurement> measurement_ =
      std::make_shared<MenuBarTextMeasurement>();
};

MenuBarFont::MenuBarFont() {
  // Queued, since the fonts of kinds of widgets change after that of the application. What would
  // replace the signal are events, which only filters of all events see.
  QT_WARNING_PUSH
  QT_WARNING_DISABLE_DEPRECATED
  connect(
      qApp, &QGuiApplication::fontChanged, this,
      [measurement = measurement_] { measurement->update(); }, Qt::QueuedConnection);
  QT_WARNING_POP
}

MenuBarFont::~MenuBarFont() {
  measurement_->end();
}

using MeasurementRef = std::shared_ptr<FontMeasurement>;

// The measurement of the integration made last. GUI thread.
MeasurementRef& presentMeasurement() {
  static MeasurementRef measurement;
  return measurement;
}

MeasurementRef exchangeMeasurement(MeasurementRef measurement) {
  setFontMeasurement(measurement);
  return std::exchange(presentMeasurement(), std::move(measurement));
}

struct Answers {
  URLOpener opener;
  ErrorPresenter presenter;
  MeasurementRef measurement;
};

// Sets them and answers those that were set.
Answers exchangeAnswers(Answers answers) {
  return {setURLOpener(std::move(answers.opener)), setErrorPresenter(std::move(answers.presenter)),
          exchangeMeasurement(std::move(answers.measurement))};
}

// What each integration that lives found, in the order in which they were made. GUI thread.
std::vector<Answers*>& formerAnswers() {
  static std::vector<Answers*> all;
  return all;
}

}  // namespace

class Integration::Implementation {
 public:
  Implementation()
      : former_(exchangeAnswers({urlOpener(runner_.calls()),
                                 errorPresenter(&boxes_, runner_.calls()), font_.measurement()})) {
    formerAnswers().push_back(&former_);
  }
  ~Implementation();
  Implementation(const Implementation&) = delete;
  Implementation& operator=(const Implementation&) = delete;

 private:
  const std::shared_ptr<MainContextBridge> bridge_ = MainContextBridge::whereNeeded();
  MenuBarFont font_;
  ErrorBoxes boxes_;
  GuiCallRunner runner_;
  Answers former_;
};

// Where another integration has been made since, that one sets the former answers again.
Integration::Implementation::~Implementation() {
  auto& all = formerAnswers();
  const auto next = all.erase(std::ranges::find(all, &former_));
  if (next == all.end()) {
    exchangeAnswers(std::move(former_));
  } else {
    **next = std::move(former_);
  }
}

Integration::Integration() : implementation_(std::make_unique<Implementation>()) {}
Integration::~Integration() = default;

}  // namespace kvl::qt
