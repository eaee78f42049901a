// Pages in the engine, without a view, beside a session with a service whose answers the test
// gives.
#pragma once

#include "tests/support/FakeNotary.h"
#include "tests/support/TestTLSServer.h"

#include <local/KVLSession.h>
#include <local/platform/Mutex.h>
#include <local/qt/PageRelay.h>

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QEvent>
#include <QEventLoop>
#include <QString>
#include <QStringList>
#include <QTimer>
#include <QWebEnginePage>
#include <QWebEngineProfile>
#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace kvltest {

inline constexpr int kWebPatience = 60'000;  // ms
inline constexpr int kLookAgain = 10;        // ms

// Runs the event loop until the condition holds; false when it does not for a very long time. Each
// event is handled as it comes, where QTest::qWaitFor sleeps between two looks: the engine needs
// dozens of events, one after the other, for one page.
template <class Condition>
[[nodiscard]] bool eventually(Condition condition) {
  const QDeadlineTimer end(kWebPatience);
  QTimer looks;  // what other threads change wakes nobody
  looks.start(kLookAgain);
  while (!condition()) {
    if (end.hasExpired()) return false;
    QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
  }
  return true;
}

// A page that keeps what its scripts log.
class LoggedPage final : public QWebEnginePage {
 public:
  using QWebEnginePage::QWebEnginePage;

  QStringList lines;

 protected:
  void javaScriptConsoleMessage(JavaScriptConsoleMessageLevel, const QString& message, int,
                                const QString&) override {
    lines.append(message);
  }
};

// A service that wants a client certificate and answers each path as the test says, 404 otherwise.
class PageService {
 public:
  using Route = std::function<void(kvl::testing::TestPeer&, const std::string& request)>;

  PageService();

  // After a path that begins with /last the connection ends.
  void on(const std::string& path, Route route);
  void page(const std::string& path, const std::string& html, const std::string& fields = {});

  // Of new connections nothing is read until then.
  std::atomic<bool> reads = true;

  // The requests that have come, whole, those with this beginning only.
  [[nodiscard]] std::vector<std::string> requests(std::string_view beginning = {}) const;
  [[nodiscard]] int open() const { return server_.connections() - server_.ended(); }
  [[nodiscard]] std::string url(std::string_view path = "/") const {
    return server_.url("127.0.0.1", path);
  }
  [[nodiscard]] const kvl::testing::TestIdentity& identity() const { return identity_; }
  // A signature for it; the client's certificate has this name.
  [[nodiscard]] std::shared_ptr<KVLNotarySignature> signature(const std::string& client) const;

 private:
  void serve(kvl::testing::TestPeer& peer);
  [[nodiscard]] Route routeOf(const std::string& request);

  mutable kvl::Mutex mutex_;
  std::vector<std::string> requests_ KVL_GUARDED_BY(mutex_);
  std::map<std::string, Route> routes_ KVL_GUARDED_BY(mutex_);
  const kvl::testing::TestIdentity root_;
  const kvl::testing::TestIdentity identity_;
  kvl::testing::TestTLSServer server_;  // last: its threads use the rest
};

// The body of an HTTP request.
[[nodiscard]] std::string bodyOf(const std::string& request);
// An answer with this content type.
[[nodiscard]] std::string answerOf(std::string_view body, const std::string& type,
                                   const std::string& fields = {});
// The beginning of an event stream that has no end.
inline constexpr std::string_view kStreamHead =
    "HTTP/1.1 200 OK\r\nContent-Type: text/event-stream\r\n\r\n";

class WebTest : public ::testing::Test {
 protected:
  WebTest();
  ~WebTest() override;

  // Makes the session established, anew or again, under a client certificate of this name.
  void notarise(const std::string& client = "first");
  // Serves `html` at /page and shows it; false when it did not come to that.
  [[nodiscard]] bool show(const std::string& html);
  // Loads the path; whether it was shown.
  [[nodiscard]] bool load(const QString& path);
  // Waits until a script of the page has logged the line.
  [[nodiscard]] bool logs(const QString& line);
  void run(const QString& script) { page->runJavaScript(script); }
  // What requests of pages have failed of, "PATH: why" each.
  QStringList failures;

  std::shared_ptr<FakeNotary> notary = std::make_shared<FakeNotary>();
  std::shared_ptr<KVLSession> session;
  QWebEngineProfile profile;
  std::unique_ptr<kvl::qt::PageRelay> relay;
  std::unique_ptr<LoggedPage> page = std::make_unique<LoggedPage>(&profile);
  PageService service;
};

}  // namespace kvltest
