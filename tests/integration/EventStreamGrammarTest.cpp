// What a service must send so that its events arrive.
#include "tests/integration/EventStreamFixture.h"

namespace {

using namespace kvltest;

constexpr auto kMalformed = "ignoring malformed event-source line: ";

class EventStreamGrammarTest : public EventStreamFixture {
 protected:
  void SetUp() override { establishOver(Route::direct); }
};

// Fields do not survive the end of a chunk: name and identifier of each event have gone when the
// rest of it comes. The gap is far longer than anybody waits for the rest of an event, and long
// enough that a busy machine does not close it.
TEST_F(EventStreamGrammarTest, EventsWhoseFieldsAreSentFarApartDoNotArrive) {
  followToTheEnd("pieces=2&gap=3000&last=2");
  EXPECT_EQ(recorder->tally().count, 0);
  EXPECT_EQ(session->eventStream()->lastEventID(), std::nullopt);
}

TEST_F(EventStreamGrammarTest, StreamGoesOnAfterEventsThatDoNotArrive) {
  follow("pieces=2&gap=1000&then=silence&last=2");
  ASSERT_TRUE(waitForServiceLog("a stream begins"));
  follow("then=silence&last=10");
  EXPECT_TRUE(recorder->waitForNumber(10));
  EXPECT_TRUE(isUnbroken(recorder->tally(), 10));
  EXPECT_EQ(session->state(), KVLSessionStateEstablished);
}

// The cut goes through the second of three events. Its data comes without a name, and an event
// without a name goes on collecting: the third event carries the data of the second.
TEST_F(EventStreamGrammarTest, RestOfACutEventGoesIntoTheNext) {
  followToTheEnd("batch=3&pieces=2&gap=3000&last=3");
  const auto events = recorder->events();
  ASSERT_EQ(events.size(), 2U);
  EXPECT_EQ(events[0].identifier, "1");
  EXPECT_EQ(events[1].identifier, "3");
  EXPECT_EQ(events[1].data, R"({"number":2})");
}

// A line survives the end of a chunk: here the cut goes through the first line, before any field
// is there to be lost.
TEST_F(EventStreamGrammarTest, EventsWhoseFirstLineIsCutArrive) {
  const std::string name(64, 'n');
  followToTheEnd("pieces=2&gap=200&last=5&name=" + name);
  EXPECT_TRUE(isUnbroken(recorder->tally(), 5));
  for (const auto& event : recorder->events()) EXPECT_EQ(event.name, name);
}

TEST_F(EventStreamGrammarTest, LinesThatEndInCarriageReturnsDeliverNothing) {
  constexpr std::size_t number = 3;
  followToTheEnd("newline=crlf&last=" + std::to_string(number));
  EXPECT_EQ(recorder->tally().count, 0);
  // The blank line of each event is a single carriage return, which the log shows as \r.
  EXPECT_EQ(log.count(kMalformed), number);
  EXPECT_EQ(log.count(std::string(kMalformed) + R"(\r)"), number);
}

TEST_F(EventStreamGrammarTest, EventsComeInBatchesOnOneThreadAtATime) {
  follow("batch=50&then=silence&last=100&name=temperature.changed");
  ASSERT_TRUE(recorder->waitForNumber(100));
  const auto events = recorder->events();
  ASSERT_EQ(events.size(), 100U);
  for (const auto& event : events) {
    EXPECT_EQ(event.name, "temperature.changed");
    EXPECT_EQ(event.identifier, std::to_string(event.number));
    EXPECT_NE(event.thread, std::this_thread::get_id());
  }
  EXPECT_LE(recorder->tally().batches, 2);
}

// An error's text is read like any other; its end is the stream's end.
TEST_F(EventStreamGrammarTest, AnswerThatIsNoStreamDisconnects) {
  followToTheEnd("last=none");
  EXPECT_EQ(recorder->tally().count, 0);
  EXPECT_EQ(log.count("event stream closed"), 0U);
}

}  // namespace
