#include "devservice/service/Feed.h"
#include "devservice/service/Notes.h"

#include <gmock/gmock.h>

#include <thread>
#include <vector>

namespace kvltest {
namespace {

using devservice::Feed;
using devservice::kLongestNote;
using devservice::NoteFault;
using devservice::noteFrom;
using devservice::Notes;
using testing::EndsWith;
using testing::HasSubstr;

constexpr std::string_view kJsonNote = "application/json";
constexpr std::string_view kBrowserNote = "application/x-www-form-urlencoded";

std::string textOrFault(std::string_view type, std::string_view body) {
  const auto note = noteFrom(type, body);
  if (const auto* fault = std::get_if<NoteFault>(&note)) return "! " + fault->reason;
  return std::get<std::string>(note);
}

TEST(NotesTest, ReadsTheThreeKindsOfBodies) {
  EXPECT_EQ(textOrFault(kJsonNote, R"({"text":"mil\u006b"})"), "milk");
  EXPECT_EQ(textOrFault(std::string(kBrowserNote) + ";charset=UTF-8", "a=b&text=two+%26+one"),
            "two & one");
  EXPECT_EQ(textOrFault("multipart/form-data; boundary=abcdefghijkl",
                        "--abcdefghijkl\nContent-Disposition: form-data; name=\"text\"\n"
                        "Content-Type: text/plain;charset=UTF-8\n\nmilk\n--abcdefghijkl--\n"),
            "milk");
}

TEST(NotesTest, SaysWhatIsWrongWithABody) {
  EXPECT_EQ(textOrFault("text/plain", "milk"), "! A note comes as JSON or as a form.");
  EXPECT_EQ(textOrFault("", R"({"text":"milk"})"), "! A note comes as JSON or as a form.");
  for (const char* body : {"", "{", "[]", "null", "{}", R"({"text":1})", R"({"text":" \n\t"})"})
    EXPECT_EQ(textOrFault(kJsonNote, body), "! A note needs a text.") << body;
  for (const char* body : {"", "text", "text=", "text=+", "other=1", "text=%zz", "text=%00"})
    EXPECT_EQ(textOrFault(kBrowserNote, body), "! A note needs a text.") << body;
  EXPECT_EQ(textOrFault("multipart/form-data; boundary=abcdefghijkl", "--\r\n"),
            "! A note needs a text.");
  EXPECT_EQ(textOrFault("multipart/form-data; boundary=abcdefghijkl",
                        "--abcdefghijkl\nContent-Disposition: form-data; name=\"text\"\n\n"
                        "\xff\n--abcdefghijkl--\n"),
            "! A note is UTF-8.");
}

TEST(NotesTest, HasALongestText) {
  const std::string longest(kLongestNote, 'a');
  EXPECT_EQ(textOrFault(kBrowserNote, "text=" + longest), longest);
  EXPECT_EQ(textOrFault(kBrowserNote, "text=" + longest + "a"), "! A note has 4000 bytes at most.");
}

TEST(NotesTest, NumbersAreNotGivenAgain) {
  Feed feed;
  Notes notes(feed);
  EXPECT_EQ(notes.add("a"), R"({"id":1,"text":"a"})");
  EXPECT_TRUE(notes.remove(1));
  EXPECT_FALSE(notes.remove(1));
  EXPECT_EQ(notes.add("b"), R"({"id":2,"text":"b"})");
}

TEST(NotesTest, HasRoomForAThousand) {
  Feed feed;
  Notes notes(feed);
  for (std::size_t i = 0; i < Notes::kMostNotes; ++i) ASSERT_TRUE(notes.add("a"));
  EXPECT_FALSE(notes.add("a"));
  EXPECT_TRUE(notes.remove(1));
  EXPECT_TRUE(notes.add("a"));
}

TEST(NotesTest, TellsEachChangeInTheFeed) {
  Feed feed;
  Notes notes(feed);
  (void)notes.add("a\"b");
  (void)notes.remove(1);
  (void)notes.remove(1);
  std::int64_t position = 1;
  EXPECT_EQ(feed.take(position),
            "event: notes\nid: 2\ndata: {\"added\":{\"id\":1,\"text\":\"a\\\"b\"}}\n\n"
            "event: notes\nid: 3\ndata: {\"deleted\":1}\n\n");
}

TEST(NotesTest, ShowsTextsAsTextsInAPage) {
  Feed feed;
  Notes notes(feed);
  (void)notes.add("<b>&\"'");
  EXPECT_EQ(notes.listItems(), "<li data-id=\"1\">&lt;b&gt;&amp;&quot;&apos;</li>\n");
}

TEST(NotesTest, ManyThreadsLoseNothing) {
  Feed feed;
  Notes notes(feed);
  std::vector<std::jthread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&notes] {
      for (int j = 0; j < 50; ++j) (void)notes.add("a");
    });
  }
  threads.clear();
  EXPECT_THAT(*notes.add("last"), HasSubstr("\"id\":201,"));
  EXPECT_THAT(notes.listItems(), EndsWith("<li data-id=\"201\">last</li>\n"));
}

}  // namespace
}  // namespace kvltest
