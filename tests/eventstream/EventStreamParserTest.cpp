#include "eventstream/EventStreamParser.h"
#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

namespace {

using kvl::eventstream::EventStreamParser;

constexpr std::string_view kMalformed = "ignoring malformed event-source line: ";

class EventStreamParserTest : public testing::Test {
 protected:
  // The descriptions of the events that the chunk completes.
  std::vector<std::string> read(std::string_view chunk) {
    std::vector<std::string> descriptions;
    for (const auto& event : state.read(kvl::Data::fromText(chunk))) {
      descriptions.push_back(event->description());
    }
    return descriptions;
  }
  using Texts = std::vector<std::string>;

  const kvltest::LogCapture log;
  EventStreamParser state;
};

TEST_F(EventStreamParserTest, NewEventPrintsNullInAllPlaces) {
  EXPECT_EQ(KVLEvent().description(), "event:(null),data:(null),id:(null)");
  EXPECT_FALSE(KVLEvent().isValid());
}

TEST_F(EventStreamParserTest, ReadsAWholeEvent) {
  EXPECT_EQ(read("event: update\ndata: a:1\nid: 7\n\n"), Texts{"event:update,data:a:1,id:7"});
  EXPECT_EQ(state.lastEventID(), "7");
}

TEST_F(EventStreamParserTest, CompletesALineThatAChunkCut) {
  EXPECT_EQ(read("event: a\n\nev"), Texts{"event:a,data:(null),id:(null)"});
  EXPECT_EQ(state.data()->text(), "ev");
  EXPECT_EQ(read("ent: b\n\n"), Texts{"event:b,data:(null),id:(null)"});
  EXPECT_EQ(state.data()->text(), "");
}

TEST_F(EventStreamParserTest, FieldsDoNotSurviveTheEndOfAChunk) {
  EXPECT_EQ(read("event: a\ndata: b"), Texts{});
  EXPECT_EQ(read("\n\n"), Texts{});
}

TEST_F(EventStreamParserTest, DecodesCharactersThatAChunkCut) {
  EXPECT_EQ(read("event: \xc3"), Texts{});
  EXPECT_EQ(read("\xa9\n\n"), Texts{"event:\u00e9,data:(null),id:(null)"});
}

TEST_F(EventStreamParserTest, TrimsTabsAndSpaceSeparatorsAtBothEnds) {
  EXPECT_EQ(read("event:  ping\t\n\n"), Texts{"event:ping,data:(null),id:(null)"});
  EXPECT_EQ(read("event:\u00a0\u2003ping pong\u3000\u202f\n\n"),
            Texts{"event:ping pong,data:(null),id:(null)"});
  EXPECT_EQ(read("event: a\ndata: \r x\r\n\n"), Texts{"event:a,data:\r x\r,id:(null)"});
}

TEST_F(EventStreamParserTest, FirstDataLineWins) {
  EXPECT_EQ(read("event: a\ndata: one\ndata: two\n\n"), Texts{"event:a,data:one,id:(null)"});
  EXPECT_EQ(read("event: a\ndata:\ndata: two\n\n"), Texts{"event:a,data:,id:(null)"});
}

TEST_F(EventStreamParserTest, LastNameAndIdentifierWin) {
  EXPECT_EQ(read("event: a\nid: 1\nevent: b\nid: 2\n\n"), Texts{"event:b,data:(null),id:2"});
}

TEST_F(EventStreamParserTest, EmptyLineKeepsAnUnnamedEvent) {
  EXPECT_EQ(read("data: x\n\nevent: a\n\n"), Texts{"event:a,data:x,id:(null)"});
  EXPECT_EQ(read("data: x\n\n"), Texts{});
}

TEST_F(EventStreamParserTest, MalformedLineCostsTheEvent) {
  EXPECT_EQ(read("event: a\nbogus\n\n"), Texts{});
  EXPECT_EQ(log.lines(), Texts{std::string(kMalformed) + "bogus"});
}

TEST_F(EventStreamParserTest, CommentsAndUnknownFieldsAreSilent) {
  EXPECT_EQ(read(": comment\nretry: 5\nother: x\nevent: a\n\n"),
            Texts{"event:a,data:(null),id:(null)"});
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(EventStreamParserTest, FieldNamesAreTakenAsTheyStand) {
  EXPECT_EQ(read("Event: a\n\n event: a\n\nevent : a\n\n"), Texts{});
}

TEST_F(EventStreamParserTest, CarriageReturnIsAnOrdinaryCharacter) {
  EXPECT_EQ(read("event: a\r\n\r\n"), Texts{});
  EXPECT_EQ(log.lines(), Texts{std::string(kMalformed) + "\\r"});
}

TEST_F(EventStreamParserTest, EmptyIdentifierIsAnIdentifier) {
  EXPECT_EQ(read("event: a\nid: 1\n\n"), Texts{"event:a,data:(null),id:1"});
  EXPECT_EQ(read("event: a\nid:\n\n"), Texts{"event:a,data:(null),id:"});
  EXPECT_EQ(state.lastEventID(), "");
}

TEST_F(EventStreamParserTest, EventWithoutAnIdentifierKeepsTheLastOne) {
  read("event: a\nid: 1\n\nevent: b\n\n");
  EXPECT_EQ(state.lastEventID(), "1");
}

TEST_F(EventStreamParserTest, IdentifierOfAnEventThatNeverCompletesDoesNotCount) {
  read("event: a\nid: 1\n");
  EXPECT_EQ(state.lastEventID(), std::nullopt);
}

TEST_F(EventStreamParserTest, LineThatIsNotUTF8IsMalformedAndLoggedEscaped) {
  EXPECT_EQ(read("event: a\ndata: \xff\xc0\x80\n\nevent: b\n\n"),
            Texts{"event:b,data:(null),id:(null)"});
  EXPECT_EQ(log.lines(), Texts{std::string(kMalformed) + "data: \\xff\\xc0\\x80"});
}

TEST_F(EventStreamParserTest, ContinuesAnEventThatAHostSet) {
  auto begun = std::make_shared<KVLEvent>();
  begun->setEvent("begun");
  state.setEvent(begun);
  const auto events = state.read(kvl::Data::fromText("data: x\n\nevent: b\n\n"));
  ASSERT_EQ(events.size(), 2U);
  EXPECT_EQ(events[0], begun);
  EXPECT_EQ(begun->description(), "event:begun,data:x,id:(null)");
  EXPECT_EQ(events[1]->description(), "event:b,data:(null),id:(null)");
}

TEST_F(EventStreamParserTest, AnEventThatAHostSetKeepsItsFirstData) {
  const auto begun = std::make_shared<KVLEvent>("begun", "", "1");
  state.setEvent(begun);
  EXPECT_EQ(read("data: late\n\n"), Texts{"event:begun,data:,id:1"});
  EXPECT_EQ(state.lastEventID(), "1");
}

TEST_F(EventStreamParserTest, AnEventThatAHostSetHoldsWhatTheLinesSaidWithoutBeingComplete) {
  const auto begun = std::make_shared<KVLEvent>();
  state.setEvent(begun);
  EXPECT_EQ(read("event: a\nid: 2\n"), Texts{});
  EXPECT_EQ(begun->description(), "event:a,data:(null),id:2");
  EXPECT_EQ(state.event(), begun);
}

}  // namespace
