// What pages cannot do, and who else gets nothing of the service.
#include "tests/qt/web/WebFixture.h"

#include <gmock/gmock.h>

#include <QDesktopServices>
#include <QSignalSpy>
#include <QWebEngineSettings>

namespace {

using kvl::testing::TestPeer;
using kvltest::answerOf;
using kvltest::eventually;
using testing::IsEmpty;
using testing::SizeIs;

// Another server on the same machine, which never says a word.
class PageOriginTest : public kvltest::WebTest {
 protected:
  PageOriginTest() {
    QObject::connect(relay.get(), &kvl::qt::PageRelay::linkChosen,
                     [this](const QUrl& url) { links.append(url.toString()); });
  }
  // Ends once everything that the page asked before has been decided.
  [[nodiscard]] bool showAndSettle(const std::string& html) {
    service.page("/settled", "");
    return show(html +
                "<script>addEventListener('load', () => { const x = new XMLHttpRequest();"
                "x.open('GET', '/settled'); x.onload = () => console.log('settled'); x.send(); "
                "})</script>") &&
           logs(QStringLiteral("settled"));
  }

  const kvl::testing::TestIdentity other = kvl::testing::makeTestIdentity({});
  const kvl::testing::TestTLSServer elsewhere{{.identity = &other}, [](TestPeer&) {}};
  QStringList links;
};

TEST_F(PageOriginTest, NothingIsLoadedFromElsewhere) {
  const auto url = elsewhere.url("127.0.0.1", "/x");
  ASSERT_TRUE(showAndSettle("<img src='" + url + "'><iframe src='" + url +
                            "'></iframe><script src='" + url +
                            "'></script><link rel=stylesheet href='" + url +
                            "'><script>new WebSocket('wss" + url.substr(5) +
                            "');"
                            "const x = new XMLHttpRequest(); x.open('GET', '" +
                            url +
                            "');"
                            "x.onerror = () => console.log('kept'); x.send()</script>"));
  EXPECT_TRUE(logs(QStringLiteral("kept")));
  EXPECT_EQ(elsewhere.connections(), 0);
}

TEST_F(PageOriginTest, NoOtherWayLeadsElsewhere) {
  const auto url = elsewhere.url("127.0.0.1", "/");
  service.on("/sheet.xml", [&](TestPeer& peer, const std::string&) {
    peer.write(answerOf(
        "<?xml version='1.0'?><?xml-stylesheet type='text/xsl' href='" + url + "xsl'?><a/>",
        "text/xml"));
  });
  const auto at = [&](const std::string& path) { return "'" + url + path + "'"; };
  std::string html = "<link rel=preconnect href=" + at("") + ">";
  for (const char* rel : {"prefetch", "preload", "modulepreload", "icon", "manifest", "import"})
    html += "<link as=script rel=" + std::string(rel) + " href=" + at(rel) + ">";
  for (const char* element : {"embed", "video", "audio", "input type=image"})
    html += "<" + std::string(element) + " src=" + at("element") + ">";
  html += "<object data=" + at("object") + "></object><iframe src='/sheet.xml'></iframe>" +
          "<style>@import " + at("css") + "; @font-face { font-family: f; src: url(" + at("font") +
          ") } p { font-family: f; background: url(" + at("background") + ") }</style><p>text</p>" +
          "<a id=ping href='#here' ping=" + at("ping") +
          ">a</a><a id=kept download href=" + at("download") +
          ">a</a><iframe name=f></iframe><form id=form target=f method=post action=" + at("form") +
          "></form><script>navigator.sendBeacon(" + at("beacon") + ", 'x');" + "fetch(" +
          at("keepalive") + ", {keepalive: true, method: 'POST', mode: 'no-cors'})" +
          ".catch(() => console.log('kept')); new EventSource(" + at("events") + ");" + "import(" +
          at("module") + ").catch(() => {});" + "try { new Worker(" + at("worker") +
          ") } catch (error) {}" +
          "navigator.serviceWorker.register('/worker.js').catch(() => console.log('no worker'))"
          "</script>";
  ASSERT_TRUE(showAndSettle(html));
  EXPECT_TRUE(logs(QStringLiteral("kept")));
  EXPECT_TRUE(logs(QStringLiteral("no worker")));
  run(
      QStringLiteral("for (const id of ['ping', 'kept']) document.getElementById(id).click();"
                     "document.getElementById('form').submit();"
                     "window.open(document.getElementById('kept').href);"
                     "fetch('/settled').then(() => console.log('asked'))"));
  EXPECT_TRUE(logs(QStringLiteral("asked")));
  EXPECT_EQ(elsewhere.connections(), 0);
  EXPECT_THAT(service.requests("GET /worker.js"), IsEmpty());
}

TEST_F(PageOriginTest, FramesOfAnotherOriginGetNothing) {
  ASSERT_TRUE(showAndSettle(
      "<iframe src=\"data:text/html,<img src='kvlocal://service/stolen'>\"></iframe>"
      "<iframe sandbox='allow-scripts allow-forms' srcdoc=\"<script>const x = new XMLHttpRequest();"
      "x.open('GET', 'kvlocal://service/stolen'); x.send()</script>"
      "<form id=f method=post action='kvlocal://service/stolen'></form>"
      "<script>document.getElementById('f').submit()</script>\"></iframe>"));
  EXPECT_TRUE(eventually(
      [this] { return failures.filter(QStringLiteral("/stolen: only pages")).size() == 3; }));
  EXPECT_THAT(service.requests("GET /stolen"), IsEmpty());
  EXPECT_THAT(service.requests("POST /stolen"), IsEmpty());
}

// The engine is led from the service's own address to the page's; who asks stays the same.
TEST_F(PageOriginTest, TheServicesOwnAddressGivesOthersNothing) {
  const auto url = service.url("/stolen");
  ASSERT_TRUE(showAndSettle("<iframe src=\"data:text/html,<img src='" + url + "'><iframe src='" +
                            url +
                            "'></iframe>\"></iframe>"
                            "<iframe sandbox='allow-scripts' srcdoc=\"<script>"
                            "const x = new XMLHttpRequest(); x.open('GET', '" +
                            url + "'); x.send()</script>\"></iframe>"));
  EXPECT_TRUE(eventually(
      [this] { return failures.filter(QStringLiteral("/stolen: only pages")).size() >= 2; }));
  EXPECT_THAT(service.requests("GET /stolen"), IsEmpty());
}

TEST_F(PageOriginTest, AFrameOfAnotherOriginLeadsItsPageNowhere) {
  service.page("/page",
               "<iframe sandbox='allow-scripts allow-top-navigation' srcdoc=\"<script>"
               "top.location = 'kvlocal://service/stolen'</script>\"></iframe>");
  notarise();
  static_cast<void>(load(QStringLiteral("/page")));  // until it is led away
  EXPECT_TRUE(eventually([this] { return !failures.empty(); }));
  EXPECT_EQ(failures[0], QStringLiteral("/stolen: only pages of the service may ask it"));
  EXPECT_THAT(service.requests("GET /stolen"), IsEmpty());
}

// What the host shows beside, by the address that it says.
TEST_F(PageOriginTest, ADocumentOfAnotherOriginGetsNothing) {
  notarise();
  page->setHtml(QString::fromStdString("<img src='kvlocal://service/stolen'><img src='" +
                                       service.url("/stolen") +
                                       "'><iframe src='kvlocal://service/stolen'></iframe>"
                                       "<iframe name=f></iframe><form id=f method=post target=f "
                                       "action='kvlocal://service/stolen'></form><script>"
                                       "const x = new XMLHttpRequest(); x.open('GET', "
                                       "'kvlocal://service/stolen'); x.onerror = () => "
                                       "console.log('kept'); x.send();"
                                       "document.getElementById('f').submit()</script>"),
                QUrl(QStringLiteral("https://other.example/")));
  EXPECT_TRUE(logs(QStringLiteral("kept")));
  EXPECT_TRUE(eventually(
      [this] { return failures.filter(QStringLiteral("/stolen: only pages")).size() >= 4; }));
  EXPECT_THAT(service.requests(), IsEmpty());
}

TEST_F(PageOriginTest, AnotherHostOfTheSchemeIsNobody) {
  ASSERT_TRUE(
      showAndSettle("<script>const x = new XMLHttpRequest(); x.open('GET', 'kvlocal://other/page');"
                    "x.onerror = () => console.log('nobody'); x.send()</script>"));
  EXPECT_TRUE(logs(QStringLiteral("nobody")));
  EXPECT_THAT(service.requests("GET /page"), SizeIs(1));  // the page itself
}

// What a page hands over by a request of its own, in place of the script.
TEST_F(PageOriginTest, ABodysTypeWritesNoFieldsOfItsOwn) {
  ASSERT_TRUE(
      showAndSettle("<form id=f method=post enctype='text/plain' action='/answer'></form><script>"
                    "document.addEventListener('formdata', e => e.stopPropagation(), true);"
                    "const x = new XMLHttpRequest(); x.open('GET', '/page', false);"
                    "x.setRequestHeader('X-KVLocal-Form', JSON.stringify({"
                    "addresses: ['kvlocal://service/answer'],"
                    "bodies: [{type: 'text/plain;\\r\\nX-Added: 1', bytes: btoa('a')}]}));"
                    "x.send(); console.log('taken ' + x.responseText)</script>"));
  EXPECT_TRUE(logs(QStringLiteral("taken true")));
  run(QStringLiteral("document.getElementById('f').submit()"));
  EXPECT_TRUE(eventually([this] { return !failures.empty(); }));
  EXPECT_THAT(failures.filter(QStringLiteral("/answer: ")), SizeIs(1));
  EXPECT_THAT(service.requests("POST"), IsEmpty());
}

// The engine would ask the desktop for a program.
TEST_F(PageOriginTest, AddressesOfOtherSchemesOpenNoProgram) {
  QWebEngineProfile another;
  kvl::qt::PageRelay opener(session, another);  // its signal is one that may be called by name
  QStringList opened;
  QObject::connect(&opener, &kvl::qt::PageRelay::linkChosen,
                   [&](const QUrl& url) { opened.append(url.toString()); });
  QDesktopServices::setUrlHandler(QStringLiteral("kvltest"), &opener, "linkChosen");
  relay.reset();
  profile.settings()->setUnknownUrlSchemePolicy(QWebEngineSettings::AllowAllUnknownUrlSchemes);
  relay = std::make_unique<kvl::qt::PageRelay>(session, profile);
  ASSERT_TRUE(showAndSettle("<a id=a href='kvltest:away'>away</a>"));
  QSignalSpy finished(page.get(), &QWebEnginePage::loadFinished);
  run(QStringLiteral("document.getElementById('a').click()"));
  EXPECT_TRUE(eventually([&] { return !finished.empty() || !opened.empty(); }));
  QDesktopServices::unsetUrlHandler(QStringLiteral("kvltest"));
  EXPECT_THAT(opened, IsEmpty());
}

TEST_F(PageOriginTest, APathThatLooksLikeAnotherHostStaysAtTheService) {
  const auto path = "//" + elsewhere.url("127.0.0.1", "/x").substr(8);
  ASSERT_TRUE(
      showAndSettle("<script>const x = new XMLHttpRequest(); x.open('GET', 'kvlocal://service" +
                    path + "'); x.onload = () => console.log('answered'); x.send()</script>"));
  EXPECT_TRUE(logs(QStringLiteral("answered")));
  EXPECT_THAT(service.requests("GET " + path + " HTTP/1.1"), SizeIs(1));
  EXPECT_EQ(elsewhere.connections(), 0);
}

TEST_F(PageOriginTest, AnAnswerFromElsewhereIsNotShown) {
  const kvl::testing::TestTLSServer trusted{
      {.identity = &service.identity()}, [](TestPeer& peer) {
        static_cast<void>(peer.readRequest());
        peer.write(answerOf("<title>stranger</title>", "text/html"));
      }};
  service.on("/away", [&](TestPeer& peer, const std::string&) {
    peer.write(kvl::testing::httpResponse("", "302 Found",
                                          "Location: " + trusted.url("127.0.0.1") + "\r\n"));
  });
  notarise();
  EXPECT_FALSE(load(QStringLiteral("/away")));
  EXPECT_EQ(failures, QStringList(QStringLiteral("/away: the answer came from elsewhere")));
  EXPECT_NE(page->title(), QStringLiteral("stranger"));
  ASSERT_TRUE(
      show("<script>fetch('/away').then(r => r.text()).then(t => console.log('read ' + t),"
           "e => console.log('kept'))</script>"));
  EXPECT_TRUE(logs(QStringLiteral("kept")));
}

TEST_F(PageOriginTest, ALinkThatLeadsAwayIsTheHosts) {
  const auto url = elsewhere.url("127.0.0.1", "/x?y");
  ASSERT_TRUE(showAndSettle("<title>stays</title><a id=a href='" + url + "'>away</a>"));
  QSignalSpy finished(page.get(), &QWebEnginePage::loadFinished);
  run(QStringLiteral("document.getElementById('a').click()"));
  EXPECT_TRUE(eventually([&] { return !links.empty() && !finished.empty(); }));
  EXPECT_EQ(links, QStringList(QString::fromStdString(url)));
  run(QStringLiteral("console.log('still ' + document.title)"));
  EXPECT_TRUE(logs(QStringLiteral("still stays")));
  EXPECT_EQ(elsewhere.connections(), 0);
}

TEST_F(PageOriginTest, TheServicesOwnAddressLeadsToThePage) {
  service.page("/other", "<title>other</title>");
  ASSERT_TRUE(showAndSettle("<a id=a href='" + service.url("/other") + "'>own</a>"));
  run(QStringLiteral("document.getElementById('a').click()"));
  EXPECT_TRUE(eventually([this] { return page->title() == QLatin1String("other"); }));
  EXPECT_EQ(page->url(), QUrl(QStringLiteral("kvlocal://service/other")));
}

}  // namespace
