// Answers that are not what a page has asked for.
#include "tests/qt/web/WebFixture.h"

#include <gmock/gmock.h>

namespace {

using kvl::testing::TestPeer;
using kvltest::answerOf;
using kvltest::eventually;
using testing::IsEmpty;
using testing::SizeIs;

class PageAnswerTest : public kvltest::WebTest {
 protected:
  std::atomic<int> ended = 0;
};

TEST_F(PageAnswerTest, AFileToKeepIsNotShownAsAPage) {
  service.page("/file", "<script>console.log('ran')</script>",
               "Content-Disposition: Attachment; filename=\"a.html\"\r\n");
  notarise();
  EXPECT_FALSE(load(QStringLiteral("/file")));
  EXPECT_EQ(failures,
            QStringList(QStringLiteral("/file: the answer is a file to keep, not a page")));
  service.page("/inline", "<title>shown</title>", "Content-Disposition: INLINE; filename=a\r\n");
  EXPECT_TRUE(load(QStringLiteral("/inline")));
  EXPECT_EQ(page->title(), QStringLiteral("shown"));
  run(QStringLiteral("fetch('/file').then(r => r.text()).then(t => console.log(t.length))"));
  EXPECT_TRUE(logs(QStringLiteral("35")));
  EXPECT_FALSE(page->lines.contains(QStringLiteral("ran")));
}

TEST_F(PageAnswerTest, AFetchOfAnAnswerThatNoScriptCanHaveFails) {
  service.on("/odd", [](TestPeer& peer, const std::string&) {
    peer.write(kvl::testing::httpResponse("odd", "700 Odd", "Content-Type: text/plain\r\n"));
  });
  ASSERT_TRUE(
      show("<script>const x = new XMLHttpRequest(); x.open('GET', '/odd');"
           "x.onload = () => console.log('status ' + x.status); x.send();"
           "fetch('/odd').catch(e => console.log('failed ' + (e instanceof TypeError)))"
           "</script>"));
  EXPECT_TRUE(logs(QStringLiteral("failed true")));
  EXPECT_TRUE(logs(QStringLiteral("status 700")));
}

// The field of the page's own joins the script's, so that the relay keeps the head by another
// number.
TEST_F(PageAnswerTest, AnAnswerThatTheRelayDoesNotKnowHasNoStatus) {
  ASSERT_TRUE(show(
      "<script>function ask(field) { const x = new XMLHttpRequest(); x.open('GET', '/missing');"
      "x.setRequestHeader(field, 'a'); x.onload = () => console.log("
      "[field, x.status, x.statusText, x.getAllResponseHeaders()].join('|')); x.send(); }"
      "ask('X-KVLocal-Number');</script>"));
  EXPECT_TRUE(logs(QStringLiteral("X-KVLocal-Number|0||")));
}

// The answer at the redirect's end is not read; more and more of it comes nevertheless.
TEST_F(PageAnswerTest, ARedirectedDocumentIsAskedForOnceMoreOnly) {
  std::atomic<int> asked = 0;
  service.on("/old", [](TestPeer& peer, const std::string&) {
    peer.write(kvl::testing::httpResponse("", "302 Found", "Location: /last/new\r\n"));
  });
  service.on("/last/new", [&](TestPeer& peer, const std::string&) {
    if (++asked > 1) {
      peer.write(answerOf("<title>new</title>", "text/html"));
      return;
    }
    peer.write("HTTP/1.1 200 OK\r\nContent-Type: text/html\r\n\r\n");
    while (peer.write("<p>more\n")) continue;
    ++ended;
  });
  notarise();
  ASSERT_TRUE(load(QStringLiteral("/old")));
  EXPECT_EQ(page->title(), QStringLiteral("new"));
  EXPECT_EQ(page->url(), QUrl(QStringLiteral("kvlocal://service/last/new")));
  EXPECT_TRUE(eventually([&] { return ended == 1; }));
  EXPECT_EQ(asked, 2);
  EXPECT_THAT(failures, IsEmpty());
}

}  // namespace
