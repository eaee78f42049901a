// Streams of pages, and what ends while something is under way.
#include "tests/qt/web/WebFixture.h"
#include "tests/support/WaitUntil.h"

#include <local/platform/Trace.h>

#include <gmock/gmock.h>

#include <QElapsedTimer>
#include <QSignalSpy>
#include <utility>

namespace {

using kvl::testing::TestPeer;
using kvltest::eventually;
using kvltest::kStreamHead;
using kvltest::waitUntil;
using testing::SizeIs;

// Holds a thread of the service until the test lets it go on.
class Door {
 public:
  ~Door() { open(); }
  void open() { isOpen_ = true; }
  void wait() const {
    static_cast<void>(waitUntil([this] { return isOpen_.load(); }));
  }

 private:
  std::atomic<bool> isOpen_ = false;
};

constexpr auto kListening =
    "<script>const e = new EventSource('/feed'); e.onmessage = m => console.log(m.data);"
    "e.onerror = () => console.log('lost ' + e.readyState)</script>";

class PageLifeTest : public kvltest::WebTest {
 protected:
  ~PageLifeTest() override { second.open(); }

  // One event at once, the second when the door opens; then until the client has gone.
  void serveFeed() {
    service.on("/feed", [this](TestPeer& peer, const std::string&) {
      peer.write(kStreamHead);
      peer.write("data: one " + peer.clientSubject() + "\n\n");
      second.wait();
      peer.write("data: two " + peer.clientSubject() + "\n\n");
      static_cast<void>(peer.read(1));
      ++ended;
    });
  }
  // Answers never.
  void serveHeld(const std::string& path) {
    service.on(path, [this](TestPeer& peer, const std::string&) {
      ++held;
      static_cast<void>(peer.read(1));
      ++ended;
    });
  }

  Door second;
  std::atomic<int> held = 0;
  std::atomic<int> ended = 0;
};

TEST_F(PageLifeTest, FollowsAStream) {
  serveFeed();
  ASSERT_TRUE(show(kListening));
  EXPECT_TRUE(logs(QStringLiteral("one /CN=first")));
  second.open();
  EXPECT_TRUE(logs(QStringLiteral("two /CN=first")));
}

TEST_F(PageLifeTest, GoesOnAfterARenewal) {
  serveFeed();
  service.on("/who", [](TestPeer& peer, const std::string&) {
    peer.write(kvltest::answerOf(peer.clientSubject(), "text/plain"));
  });
  ASSERT_TRUE(show(kListening));
  EXPECT_TRUE(logs(QStringLiteral("one /CN=first")));
  notarise("second");
  run(QStringLiteral("fetch('/who').then(r => r.text()).then(t => console.log('asked by ' + t))"));
  EXPECT_TRUE(logs(QStringLiteral("asked by /CN=second")));
  second.open();
  EXPECT_TRUE(logs(QStringLiteral("two /CN=first")));
}

TEST_F(PageLifeTest, HoldsAStreamThatThePageDoesNotRead) {
  constexpr std::size_t kMuch = std::size_t{32} << 20;
  std::atomic<std::size_t> written = 0;
  Door gate;
  service.on("/feed", [&](TestPeer& peer, const std::string&) {
    peer.write(kStreamHead);
    const std::string event = "data: " + std::string(16'000, 'x') + "\n\n";
    while (written < kMuch && peer.write(event)) written += event.size();
    peer.write("data: last\n\n");
    static_cast<void>(peer.read(1));
  });
  service.on("/gate", [&](TestPeer& peer, const std::string&) {
    gate.wait();
    peer.write(kvltest::answerOf("", "text/plain"));
  });
  ASSERT_TRUE(
      show("<script>const e = new EventSource('/feed');"
           "e.onmessage = m => { if (m.data === 'last') console.log('last'); };"
           "e.onopen = () => { const x = new XMLHttpRequest(); x.open('GET', '/gate', false); "
           "x.send(); };"
           "</script>"));
  ASSERT_TRUE(eventually([&] { return !service.requests("GET /gate").empty(); }));
  std::size_t before = 0;
  QElapsedTimer still;
  still.start();
  ASSERT_TRUE(eventually([&] {
    if (std::exchange(before, written.load()) != before) still.restart();
    return still.hasExpired(300) || written >= kMuch;
  }));
  EXPECT_LT(written, kMuch * 3 / 4);
  gate.open();
  EXPECT_TRUE(logs(QStringLiteral("last")));
}

TEST_F(PageLifeTest, ManyStreamsLeaveRoom) {
  serveFeed();
  service.page("/more", "");
  ASSERT_TRUE(
      show("<script>let open = 0; for (let i = 0; i < 3; ++i) { const e = new EventSource('/feed');"
           "e.onopen = () => console.log('open ' + ++open); }</script>"));
  EXPECT_TRUE(logs(QStringLiteral("open 3")));
  run(
      QStringLiteral("const f = new EventSource('/feed'); f.onerror = () => { "
                     "console.log('refused'); f.close(); }"));
  EXPECT_TRUE(logs(QStringLiteral("refused")));
  run(QStringLiteral("fetch('/more').then(r => console.log('more ' + r.status))"));
  EXPECT_TRUE(logs(QStringLiteral("more 200")));
  EXPECT_EQ(failures, QStringList(QStringLiteral("/feed: the pages have too many event streams")));
}

TEST_F(PageLifeTest, AStreamCountsHoweverItsTypeIsWritten) {
  service.on("/feed", [](TestPeer& peer, const std::string&) {
    peer.write("HTTP/1.1 200 OK\r\nContent-Type: Text/Event-Stream\r\n\r\n");
    static_cast<void>(peer.read(1));
  });
  ASSERT_TRUE(
      show("<script>let open = 0; for (let i = 0; i < 3; ++i) { const e = new EventSource('/feed');"
           "e.onopen = () => console.log('open ' + ++open); }</script>"));
  EXPECT_TRUE(logs(QStringLiteral("open 3")));
  run(
      QStringLiteral("const f = new EventSource('/feed'); f.onopen = () => console.log('fourth');"
                     "f.onerror = () => { console.log('refused'); f.close(); }"));
  EXPECT_TRUE(eventually([this] {
    return page->lines.contains(QStringLiteral("refused")) ||
           page->lines.contains(QStringLiteral("fourth"));
  }));
  EXPECT_EQ(failures, QStringList(QStringLiteral("/feed: the pages have too many event streams")));
}

TEST_F(PageLifeTest, ThePageAborts) {
  serveHeld("/last/held");
  ASSERT_TRUE(show(
      "<script>const x = new XMLHttpRequest(); x.open('GET', '/last/held'); x.send()</script>"));
  ASSERT_TRUE(eventually([this] { return held == 1; }));
  run(QStringLiteral("x.abort()"));
  EXPECT_TRUE(eventually([this] { return ended == 1; }));
}

TEST_F(PageLifeTest, APageThatGoesEndsItsStream) {
  second.open();
  serveFeed();
  ASSERT_TRUE(show(kListening));
  EXPECT_TRUE(logs(QStringLiteral("two /CN=first")));
  page.reset();
  EXPECT_TRUE(eventually([this] { return ended == 1; }));
}

// The service reads nothing of the body before the page has gone.
TEST_F(PageLifeTest, APageThatGoesEndsWhatItSends) {
  std::atomic<bool> isCancelled = false;
  const auto trace = kvl::observeTrace([&](const kvl::TraceRecord& record) {
    if (record.path == "/upload" && record.kind == kvl::TraceRecord::Kind::requestEnded)
      isCancelled = record.error != nullptr && record.error->code() == kvl::NSURLErrorCancelled;
  });
  service.page("/last/page", "<title>sends</title>");
  notarise();
  ASSERT_TRUE(load(QStringLiteral("/last/page")));
  service.reads = false;
  run(
      QStringLiteral("const x = new XMLHttpRequest(); x.open('POST', '/upload');"
                     "x.send(new Uint8Array(12 << 20))"));
  ASSERT_TRUE(eventually([&] { return service.open() == 1; }));
  page.reset();
  EXPECT_TRUE(eventually([&] { return isCancelled.load(); }));
  service.reads = true;
  EXPECT_TRUE(eventually([this] { return service.open() == 0; }));
  EXPECT_THAT(service.requests("POST"), testing::IsEmpty());
}

TEST_F(PageLifeTest, DestroyedWhileLoading) {
  serveHeld("/last/held");
  notarise();
  QSignalSpy finished(page.get(), &QWebEnginePage::loadFinished);
  page->load(relay->urlOf(QStringLiteral("/last/held")));
  ASSERT_TRUE(eventually([this] { return held == 1; }));
  relay.reset();
  EXPECT_TRUE(eventually([&] { return !finished.empty() && ended == 1; }));
  EXPECT_FALSE(finished.back().front().toBool());
}

TEST_F(PageLifeTest, TheSessionEndsWhileAPageLoads) {
  serveHeld("/last/held");
  notarise();
  QSignalSpy finished(page.get(), &QWebEnginePage::loadFinished);
  page->load(relay->urlOf(QStringLiteral("/last/held")));
  ASSERT_TRUE(eventually([this] { return held == 1; }));
  session->end();
  EXPECT_TRUE(eventually([&] { return !finished.empty() && ended == 1; }));
  EXPECT_FALSE(finished.back().front().toBool());
  EXPECT_EQ(failures.filter(QStringLiteral("/last/held: ")).size(), 1);
}

TEST_F(PageLifeTest, DestroyedWithAnOpenStream) {
  second.open();
  serveFeed();
  ASSERT_TRUE(show(kListening));
  EXPECT_TRUE(logs(QStringLiteral("two /CN=first")));
  relay.reset();
  EXPECT_TRUE(eventually([this] { return ended == 1; }));
  EXPECT_TRUE(eventually([this] { return !page->lines.filter(QStringLiteral("lost")).empty(); }));
}

TEST_F(PageLifeTest, DestroyedWhileAFailureIsTold) {
  notarise();
  service.page("/page", "", "Content-Security-Policy: default-src 'none'\r\n");
  QObject::connect(relay.get(), &kvl::qt::PageRelay::requestFailed, page.get(),
                   [this] { relay.reset(); });
  EXPECT_FALSE(load(QStringLiteral("/page")));
  EXPECT_EQ(relay, nullptr);
}

TEST_F(PageLifeTest, DestroyedWhileALinkIsTold) {
  ASSERT_TRUE(show("<a id=a href='https://127.0.0.1:1/'>away</a>"));
  QObject::connect(relay.get(), &kvl::qt::PageRelay::linkChosen, page.get(),
                   [this] { relay.reset(); });
  run(QStringLiteral("document.getElementById('a').click()"));
  EXPECT_TRUE(eventually([&] { return relay == nullptr; }));
  run(QStringLiteral("console.log('still here')"));
  EXPECT_TRUE(logs(QStringLiteral("still here")));
}

// Requests of a page arrive in their order, so the refused one shows that the other is waiting.
TEST_F(PageLifeTest, DestroyedWhileARequestWaitsForTheSession) {
  ASSERT_TRUE(
      show("<script>function ask(url) { const x = new XMLHttpRequest(); x.open('GET', url);"
           "x.onerror = () => console.log('failed ' + url); x.send(); }</script>"));
  session->disconnectAfterError();
  run(QStringLiteral("ask('/page'); ask('kvlocal://other/')"));
  EXPECT_TRUE(logs(QStringLiteral("failed kvlocal://other/")));
  EXPECT_FALSE(page->lines.contains(QStringLiteral("failed /page")));
  relay.reset();
  EXPECT_TRUE(logs(QStringLiteral("failed /page")));
  EXPECT_THAT(service.requests("GET /page"), SizeIs(1));
}

TEST_F(PageLifeTest, TheSessionEnds) {
  serveHeld("/last/held");
  serveFeed();
  ASSERT_TRUE(show(std::string(kListening) +
                   "<script>const x = new XMLHttpRequest(); x.open('GET', '/last/held');"
                   "x.onerror = () => console.log('failed'); x.send()</script>"));
  EXPECT_TRUE(logs(QStringLiteral("one /CN=first")));
  ASSERT_TRUE(eventually([this] { return held == 1; }));
  session->end();
  EXPECT_TRUE(logs(QStringLiteral("failed")));
  EXPECT_TRUE(eventually([this] { return failures.size() >= 2; }));
}

}  // namespace
