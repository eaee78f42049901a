// What pages of the service can do in a view.
#include "tests/qt/web/WebFixture.h"

#include <gmock/gmock.h>

namespace {

using kvl::testing::TestPeer;
using kvltest::answerOf;
using kvltest::bodyOf;
using kvltest::eventually;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

class PageRelayTest : public kvltest::WebTest {
 protected:
  // A form that a button submits to /answer, and what the service then got.
  std::string submitted(const std::string& form, const QString& how) {
    service.page("/answer", "<title>taken</title>");
    EXPECT_TRUE(show(form));
    run(how);
    EXPECT_TRUE(eventually([this] { return page->title() == QLatin1String("taken"); }))
        << failures.join(QLatin1Char('\n')).toStdString();
    const auto requests = service.requests("POST /answer HTTP/1.1");
    return requests.empty() ? std::string() : requests.back();
  }
};

TEST_F(PageRelayTest, ShowsAPage) {
  service.on("/page", [](TestPeer& peer, const std::string&) {
    peer.write(
        answerOf("<title>Gr\xFC\xDF"
                 "e an " +
                     peer.clientSubject() + "</title>",
                 "text/html; charset=iso-8859-1"));
  });
  notarise();
  ASSERT_TRUE(load(QStringLiteral("/page?a=%20b&c")));
  EXPECT_EQ(page->title(), QString::fromUtf8("Grüße an /CN=first"));
  EXPECT_EQ(page->url(), QUrl(QStringLiteral("kvlocal://service/page?a=%20b&c")));
  ASSERT_THAT(service.requests(), SizeIs(1));
  EXPECT_THAT(service.requests()[0], StartsWith("GET /page?a=%20b&c HTTP/1.1\r\n"));
  EXPECT_THAT(failures, IsEmpty());
}

TEST_F(PageRelayTest, LoadsImages) {
  service.on("/dot.svg", [](TestPeer& peer, const std::string&) {
    peer.write(answerOf("<svg xmlns='http://www.w3.org/2000/svg' width='7' height='5'/>",
                        "image/svg+xml"));
  });
  ASSERT_TRUE(show("<img src='/dot.svg' onload='console.log(this.naturalWidth)'>"));
  EXPECT_TRUE(logs(QStringLiteral("7")));
}

TEST_F(PageRelayTest, SendsAForm) {
  const auto request = submitted(
      "<form method=post action='/elsewhere'><input name=text value='a &amp; ü'>"
      "<textarea name=lines>1\n2</textarea><button id=b name=go value=1 formaction='/answer'>",
      QStringLiteral("document.getElementById('b').click()"));
  EXPECT_THAT(request, HasSubstr("Content-Type: application/x-www-form-urlencoded\r\n"));
  EXPECT_EQ(bodyOf(request), "text=a+%26+%C3%BC&lines=1%0D%0A2&go=1");
  EXPECT_EQ(page->url().path(), QStringLiteral("/answer"));
}

TEST_F(PageRelayTest, AButtonIsSentOnlyWhenItSubmits) {
  const auto request = submitted(
      "<form id=f method=post action='/answer'><input name=a value=1><button id=b name=go>"
      "</form><script>document.getElementById('f').addEventListener('submit', event => {"
      "event.preventDefault(); event.target.submit(); })</script>",
      QStringLiteral("document.getElementById('b').click()"));
  EXPECT_EQ(bodyOf(request), "a=1");
}

TEST_F(PageRelayTest, SendsAFileOfAForm) {
  const auto request = submitted(
      "<form id=f method=post action='/answer' enctype='multipart/form-data'><input type=file id=i "
      "name='a\"b'></form>"
      "<script>const files = new DataTransfer();"
      "files.items.add(new File([new Uint8Array([0, 10, 13, 127, 128, 255])], 'six.bin'));"
      "document.getElementById('i').files = files.files;</script>",
      QStringLiteral("document.getElementById('f').submit()"));
  const auto body = bodyOf(request);
  const auto boundary = body.substr(0, body.find("\r\n"));
  EXPECT_THAT(
      request,
      HasSubstr("Content-Type: multipart/form-data; boundary=" + boundary.substr(2) + "\r\n"));
  EXPECT_EQ(body, boundary +
                      "\r\nContent-Disposition: form-data; name=\"a%22b\"; filename=\"six.bin\"\r\n"
                      "Content-Type: application/octet-stream\r\n\r\n" +
                      std::string("\0\n\r\x7f\x80\xff", 6) + "\r\n" + boundary + "--\r\n");
}

TEST_F(PageRelayTest, SendsAFormAsPlainText) {
  const auto request = submitted(
      "<form id=f method=post action='/answer' enctype='text/plain'><input name=a value=b><input "
      "name=c></form>",
      QStringLiteral("document.getElementById('f').requestSubmit()"));
  EXPECT_EQ(bodyOf(request), "a=b\r\nc=\r\n");
}

TEST_F(PageRelayTest, AFormWithoutAMethodIsAQuery) {
  service.page("/answer", "<title>asked</title>");
  ASSERT_TRUE(show("<form id=f action='/answer'><input name=a value='b c'></form>"));
  run(QStringLiteral("document.getElementById('f').submit()"));
  EXPECT_TRUE(eventually([this] { return page->title() == QLatin1String("asked"); }));
  EXPECT_THAT(service.requests("GET /answer?a=b+c HTTP"), SizeIs(1));
}

TEST_F(PageRelayTest, AFormWithInputsOfAnyNameIsSent) {
  const auto request = submitted(
      "<img name=baseURI><img name=URL>"
      "<form id=f method=post action='/answer'><input name=getAttribute value=1>"
      "<input name=elements value=2></form>",
      QStringLiteral("document.getElementById('f').submit()"));
  EXPECT_EQ(bodyOf(request), "getAttribute=1&elements=2");
}

// A script that stops the event keeps the body from being handed over.
TEST_F(PageRelayTest, AFormWhoseBodyIsNotHandedOverIsNotSent) {
  ASSERT_TRUE(
      show("<form id=f method=post action='/answer'></form><script>"
           "document.addEventListener('formdata', e => e.stopPropagation(), true)</script>"));
  run(QStringLiteral("document.getElementById('f').submit()"));
  EXPECT_TRUE(eventually([this] { return !failures.empty(); }));
  EXPECT_THAT(failures.join(QString()).toStdString(),
              HasSubstr("/answer: the body was not handed over"));
  EXPECT_THAT(service.requests("POST"), IsEmpty());
}

TEST_F(PageRelayTest, RequestsOfScriptsHaveBodiesAndStatus) {
  service.on("/things", [](TestPeer& peer, const std::string&) {
    peer.write(kvl::testing::httpResponse(
        "{}", "409 Conflict",
        "Content-Type: application/json\r\nX-Which: 7\r\nSet-Cookie: a=b\r\n"));
  });
  ASSERT_TRUE(
      show("<script>const x = new XMLHttpRequest(); x.open('PUT', '/things');"
           "x.setRequestHeader('X-Own', '1');"
           "x.onload = () => console.log([x.status, x.statusText, x.getResponseHeader('x-which'),"
           "x.getResponseHeader('set-cookie'), x.responseText].join());"
           "x.send('ü')</script>"));
  EXPECT_TRUE(logs(QStringLiteral("409,Conflict,7,,{}")));
  ASSERT_THAT(service.requests("PUT /things"), SizeIs(1));
  const auto request = service.requests("PUT /things")[0];
  EXPECT_THAT(request, HasSubstr("X-Own: 1\r\n"));
  EXPECT_THAT(request, HasSubstr("Content-Type: text/plain;charset=UTF-8\r\n"));
  EXPECT_THAT(request, testing::Not(HasSubstr("KVLocal")));
  EXPECT_EQ(bodyOf(request), "ü");
}

TEST_F(PageRelayTest, FetchWorks) {
  service.on("/notes", [](TestPeer& peer, const std::string& request) {
    peer.write(kvl::testing::httpResponse(bodyOf(request), "201 Created",
                                          "Content-Type: application/json\r\nX-A: b\r\n"));
  });
  ASSERT_TRUE(
      show("<script>fetch('/notes', {method: 'POST', body: JSON.stringify({n: [1]}),"
           "headers: {'Content-Type': 'application/json'}})"
           ".then(async r => console.log([r.status, r.ok, r.headers.get('x-a'), "
           "JSON.stringify(await r.json())].join()));"
           "fetch('/missing').then(r => console.log('missing ' + r.status))</script>"));
  EXPECT_TRUE(logs(QStringLiteral("201,true,b,{\"n\":[1]}")));
  EXPECT_TRUE(logs(QStringLiteral("missing 404")));
  EXPECT_THAT(service.requests("POST /notes")[0], HasSubstr("content-type: application/json\r\n"));
}

TEST_F(PageRelayTest, EveryKindOfBodyIsSent) {
  service.page("/taken", "");
  ASSERT_TRUE(show(R"(<script>
    const bodies = [new Blob(['blob'], {type: 'text/x'}), new Uint8Array([97, 98]), new Uint8Array([99]).buffer,
                    new URLSearchParams('q=1'), new Uint8Array(0), null];
    function next() {
      if (!bodies.length) return console.log('all');
      const x = new XMLHttpRequest(); x.open('POST', '/taken'); x.onload = next; x.send(bodies.shift());
    }
    next();</script>)"));
  EXPECT_TRUE(logs(QStringLiteral("all")));
  std::vector<std::string> bodies;
  for (const auto& request : service.requests("POST")) bodies.push_back(bodyOf(request));
  EXPECT_THAT(bodies, ElementsAre("blob", "ab", "c", "q=1", "", ""));
}

TEST_F(PageRelayTest, AFileThatBeginsLikeAByteOrderMarkIsSentAsItIs) {
  service.page("/taken", "");
  ASSERT_TRUE(show(R"(<script>
    const files = [[0xEF, 0xBB, 0xBF, 0x61], [0xFF, 0xFE, 0x61, 0x62], [0xFE, 0xFF, 0x61, 0x62]];
    function next() {
      if (!files.length) return console.log('all');
      const x = new XMLHttpRequest(); x.open('POST', '/taken'); x.onload = next;
      x.send(new Blob([new Uint8Array(files.shift())]));
    }
    next();</script>)"));
  EXPECT_TRUE(logs(QStringLiteral("all")));
  std::vector<std::string> bodies;
  for (const auto& request : service.requests("POST")) bodies.push_back(bodyOf(request));
  EXPECT_THAT(bodies, ElementsAre("\xEF\xBB\xBF"
                                  "a",
                                  "\xFF\xFE"
                                  "ab",
                                  "\xFE\xFF"
                                  "ab"));
}

TEST_F(PageRelayTest, ARedirectLeadsToTheAddressWhereItEnds) {
  service.on("/old", [](TestPeer& peer, const std::string&) {
    peer.write(kvl::testing::httpResponse("", "302 Found", "Location: /new/page?x\r\n"));
  });
  service.page("/new/page", "<title>new</title>");
  notarise();
  ASSERT_TRUE(load(QStringLiteral("/old")));
  EXPECT_EQ(page->title(), QStringLiteral("new"));
  EXPECT_EQ(page->url(), QUrl(QStringLiteral("kvlocal://service/new/page?x")));
}

TEST_F(PageRelayTest, AFormThatIsAnsweredByARedirectShowsItsTarget) {
  service.on("/answer", [](TestPeer& peer, const std::string&) {
    peer.write(kvl::testing::httpResponse("", "303 See Other", "Location: /list\r\n"));
  });
  service.page("/list", "<title>list</title>");
  ASSERT_TRUE(show("<form id=f method=post action='/answer'><input name=a></form>"));
  run(QStringLiteral("document.getElementById('f').submit()"));
  EXPECT_TRUE(eventually([this] { return page->title() == QLatin1String("list"); }));
  EXPECT_EQ(page->url().path(), QStringLiteral("/list"));
  EXPECT_THAT(service.requests("POST /answer"), SizeIs(1));
}

TEST_F(PageRelayTest, AnAnswerWithoutATypeIsNotGuessed) {
  service.on("/bytes", [](TestPeer& peer, const std::string&) {
    peer.write(kvl::testing::httpResponse("<script>console.log('ran')</script>"));
  });
  ASSERT_TRUE(
      show("<script>const x = new XMLHttpRequest(); x.open('GET', '/bytes');"
           "x.onload = () => console.log(x.response.length); x.responseType = 'text'; "
           "x.send()</script>"));
  EXPECT_TRUE(logs(QStringLiteral("35")));
  EXPECT_FALSE(load(QStringLiteral("/bytes")));
  EXPECT_FALSE(page->lines.contains(QStringLiteral("ran")));
}

TEST_F(PageRelayTest, ABodyThatBreaksOffIsAFailure) {
  service.on("/last", [](TestPeer& peer, const std::string&) {
    peer.write("HTTP/1.1 200 OK\r\nContent-Type: text/plain\r\nContent-Length: 100\r\n\r\nhalf");
    peer.reset();
  });
  ASSERT_TRUE(
      show("<script>const x = new XMLHttpRequest(); x.open('GET', '/last');"
           "x.onerror = () => console.log('error'); x.onload = () => console.log('loaded'); "
           "x.send()</script>"));
  EXPECT_TRUE(logs(QStringLiteral("error")));
  EXPECT_THAT(failures, SizeIs(1));
}

// Requests of a page arrive in their order, so the refused one shows that the other is waiting.
TEST_F(PageRelayTest, ARequestWaitsForTheSession) {
  service.page("/late", "");
  ASSERT_TRUE(
      show("<script>function ask(url) { const x = new XMLHttpRequest(); x.open('GET', url);"
           "x.onload = () => console.log('answered ' + url);"
           "x.onerror = () => console.log('failed ' + url); x.send(); }</script>"));
  session->disconnectAfterError();
  run(QStringLiteral("ask('/late'); ask('kvlocal://other/')"));
  EXPECT_TRUE(logs(QStringLiteral("failed kvlocal://other/")));
  notarise();
  EXPECT_TRUE(logs(QStringLiteral("answered /late")));
}

TEST_F(PageRelayTest, APageWithAContentPolicyIsRefusedUnlessTheHostShowsIt) {
  service.page("/strict", "<title>strict</title>",
               "Content-Security-Policy: script-src 'none'\r\n");
  notarise();
  EXPECT_FALSE(load(QStringLiteral("/strict")));
  EXPECT_THAT(failures.join(QString()).toStdString(),
              HasSubstr("/strict: the page has a content policy"));
  relay->setShowsPagesWithPolicies(true);
  EXPECT_TRUE(load(QStringLiteral("/strict")));
  EXPECT_EQ(page->title(), QStringLiteral("strict"));
}

}  // namespace
