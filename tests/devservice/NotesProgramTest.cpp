#include "tests/devservice/ProgramFixture.h"
#include "tests/devservice/RecordClient.h"

#include <gmock/gmock.h>

namespace kvltest {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

class NotesProgramTest : public ProgramFixture {
 protected:
  void SetUp() override {
    startNotary();
    startService();
    obtainIdentity();
  }
  // The body, a space and the status.
  [[nodiscard]] std::string send(const std::string& path, const std::string& options) const {
    return get(path, "-w ' %{http_code}' " + options).output;
  }
};

TEST_F(NotesProgramTest, NotesAreAddedListedAndDeleted) {
  const std::string empty = get("notes").output;
  EXPECT_THAT(empty, StartsWith(R"({"notes":[],"form":{"id":"add-note","action":"/notes",)"));
  const std::string milk = "-H 'Content-Type: application/json' --data '{\"text\":\"milk\"}'";
  EXPECT_EQ(send("notes", milk), R"({"id":1,"text":"milk"} 201)");
  EXPECT_THAT(get("notes").output,
              StartsWith(R"({"notes":[{"id":1,"text":"milk","form":{"id":"delete-note-1",)"
                         R"("action":"/notes/1","method":"delete"}}],"form":)"));
  EXPECT_EQ(send("notes/1", "-X DELETE"), R"({"deleted":1} 200)");
  EXPECT_EQ(get("notes").output, empty);
}

TEST_F(NotesProgramTest, WhatCannotBeDoneIsRefused) {
  EXPECT_EQ(send("notes", "-H 'Content-Type: application/json' --data '{}'"),
            R"({"error":"A note needs a text."} 400)");
  for (const std::string number : {"1", "99999999999999999999"})
    EXPECT_EQ(send("notes/" + number, "-X DELETE"), R"({"error":"There is no such note."} 404)");
  EXPECT_THAT(send("notes/a", "-X DELETE"), EndsWith(" 404"));
}

// A browser that has the identity shows it to the service for any page that asks.
TEST_F(NotesProgramTest, OtherPagesChangeNothing) {
  std::string own = serviceURL();
  own.pop_back();  // the slash
  const std::string port = own.substr(own.rfind(':'));
  for (const std::string& origin : {std::string("null"), std::string("https://example.org"),
                                    "http" + own.substr(5), own.substr(0, own.size() - port.size()),
                                    "https://localhost" + port, own + ".example.org"}) {
    const std::string field = "-H 'Origin: " + origin + "' ";
    EXPECT_EQ(send("notes", field + "--data text=milk"),
              R"({"error":"Another page asked for this."} 403)");
    EXPECT_EQ(send("notes/1", field + "-X DELETE"),
              R"({"error":"Another page asked for this."} 403)");
  }
  const std::string field = "-H 'Origin: " + own + "' ";
  EXPECT_THAT(send("notes", field + "-H 'Origin: null' --data text=milk"), EndsWith(" 403"));
  EXPECT_THAT(get("notes").output, StartsWith(R"({"notes":[],)"));
  EXPECT_THAT(send("notes", field + "--data text=milk"), EndsWith(" 303"));
  EXPECT_EQ(send("notes/1", field + "-X DELETE"), R"({"deleted":1} 200)");
}

TEST_F(NotesProgramTest, TheFeedTellsChanges) {
  RecordClient client(serviceURL(), bus_.directory());
  client.get("feed", "Last-Event-ID: 1\r\n");
  (void)get("notes", "-H 'Content-Type: application/json' --data '{\"text\":\"milk\"}'");
  EXPECT_EQ(client.readChunk(),
            "event: notes\nid: 2\ndata: {\"added\":{\"id\":1,\"text\":\"milk\"}}\n\n");
}

TEST_F(NotesProgramTest, ABrowsersFormLeadsBackToThePage) {
  EXPECT_EQ(get("notes", "-o /dev/null -w '%{http_code} %{redirect_url}' --data text=a%3Cb").output,
            "303 " + serviceURL() + "notes/page");
  const std::string page = get("notes/page", "-i").output;
  EXPECT_THAT(page, HasSubstr("Content-Type: text/html; charset=utf-8\r\n"));
  EXPECT_THAT(page, HasSubstr("<li data-id=\"1\">a&lt;b</li>\n"));
  EXPECT_THAT(page, HasSubstr("new EventSource('/feed')"));
}

}  // namespace
}  // namespace kvltest
