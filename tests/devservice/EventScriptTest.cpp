#include "devservice/service/EventScript.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace kvltest {
namespace {

using devservice::EventScript;
using devservice::EventText;
using devservice::firstNumber;
using devservice::kLastNumber;
using devservice::nextBatch;
using devservice::Parameters;
using devservice::parseEventScript;
using devservice::piece;
using devservice::StreamEnd;
using devservice::StreamPosition;
using devservice::waitBefore;
using std::chrono_literals::operator""ms;

EventScript scriptOf(const Parameters& parameters) {
  const auto parsed = parseEventScript(parameters);
  const auto* complaint = std::get_if<std::string>(&parsed);
  EXPECT_EQ(complaint, nullptr) << *complaint;
  return complaint != nullptr ? EventScript() : std::get<EventScript>(parsed);
}

std::string complaintOf(const Parameters& parameters) {
  const auto parsed = parseEventScript(parameters);
  const auto* complaint = std::get_if<std::string>(&parsed);
  return complaint != nullptr ? *complaint : "";
}

std::string eventOf(const EventScript& script, std::int64_t number) {
  std::string text;
  EventText(script).append(text, number);
  return text;
}

// The sizes of the writes of one connection, and with `waits` the times before each and before the
// end.
std::vector<std::int64_t> writesOf(const EventScript& script, std::int64_t next = 1,
                                   std::vector<std::int64_t>* waits = nullptr) {
  std::vector<std::int64_t> writes;
  StreamPosition position{next};
  for (;;) {
    if (waits != nullptr) waits->push_back(waitBefore(script, position).count());
    const std::int64_t count = nextBatch(script, position);
    if (count == 0) return writes;
    writes.push_back(count);
    position.next += count;
    position.sent += count;
  }
}

TEST(EventScriptTest, NothingNeedsToBeAsked) {
  const EventScript script = scriptOf({});
  EXPECT_EQ(eventOf(script, script.first), "event: tick\nid: 1\ndata: {\"number\":1}\n\n");
  EXPECT_EQ(script.last, kLastNumber);
  EXPECT_EQ(script.close, kLastNumber);
  EXPECT_EQ(script.then, StreamEnd::Close);
  EXPECT_EQ(script.interval, 0ms);
  EXPECT_EQ(script.batch, 1);
  EXPECT_EQ(script.pieces, 1);
  EXPECT_FALSE(script.chunk || script.size || script.pauseAfter);
}

TEST(EventScriptTest, EveryParameterIsRead) {
  const EventScript script = scriptOf({{"name", "a.B-c_9"},
                                       {"first", "3"},
                                       {"last", "90"},
                                       {"close", "7"},
                                       {"then", "reset"},
                                       {"interval", "1"},
                                       {"pause-after", "0"},
                                       {"pause", "2"},
                                       {"size", "500"},
                                       {"batch", "4"},
                                       {"pieces", "5"},
                                       {"gap", "6"},
                                       {"newline", "crlf"}});
  EXPECT_EQ(script.name, "a.B-c_9");
  EXPECT_EQ(script.first, 3);
  EXPECT_EQ(script.last, 90);
  EXPECT_EQ(script.close, 7);
  EXPECT_EQ(script.then, StreamEnd::Reset);
  EXPECT_EQ(script.interval, 1ms);
  EXPECT_EQ(script.pauseAfter, 0);
  EXPECT_EQ(script.pause, 2ms);
  EXPECT_EQ(script.size, 500);
  EXPECT_EQ(script.batch, 4);
  EXPECT_EQ(script.pieces, 5);
  EXPECT_EQ(script.gap, 6ms);
  EXPECT_EQ(script.newline, "\r\n");
  EXPECT_EQ(scriptOf({{"chunk", "9"}}).chunk, 9);
  EXPECT_EQ(scriptOf({{"then", "silence"}}).then, StreamEnd::Silence);
  EXPECT_EQ(scriptOf({{"then", "close"}, {"newline", "lf"}}).newline, "\n");
}

TEST(EventScriptTest, FirstOfTwoParametersCounts) {
  EXPECT_EQ(scriptOf({{"first", "5"}, {"first", "x"}}).first, 5);
}

TEST(EventScriptTest, BadValuesAreRefused) {
  const std::string wait = " must be a number from 0 to 600000";
  const std::string name = "name must be 1 to 64 letters, digits and -._";
  const std::string number = " to 999999999999999999";
  const std::vector<std::pair<Parameters, std::string>> table{
      {{{"name", ""}}, name},
      {{{"name", "a b"}}, name},
      {{{"name", "a\nb"}}, name},
      {{{"name", "\xc3\xa9"}}, name},
      {{{"name", std::string(65, 'n')}}, name},
      {{{"first", ""}}, "first must be a number from 0" + number},
      {{{"first", "-1"}}, "first must be a number from 0" + number},
      {{{"first", "1x"}}, "first must be a number from 0" + number},
      {{{"first", " 1"}}, "first must be a number from 0" + number},
      {{{"first", "1000000000000000000"}}, "first must be a number from 0" + number},
      {{{"first", "99999999999999999999"}}, "first must be a number from 0" + number},
      {{{"first", "5"}, {"last", "4"}}, "last must be a number from 5" + number},
      {{{"close", "-1"}}, "close must be a number from 0" + number},
      {{{"then", "stop"}}, "then must be one of close silence reset"},
      {{{"then", ""}}, "then must be one of close silence reset"},
      {{{"interval", "600001"}}, "interval" + wait},
      {{{"interval", "0.5"}}, "interval" + wait},
      {{{"pause-after", "1"}, {"pause", "-1"}}, "pause" + wait},
      {{{"pause-after", "x"}}, "pause-after must be a number from 0" + number},
      {{{"pause", "1"}}, "pause needs pause-after"},
      {{{"last", "9"}, {"size", "50"}}, "size must be a number from 51 to 16777216"},
      {{{"last", "10"}, {"size", "51"}}, "size must be a number from 53 to 16777216"},
      {{{"last", "9"}, {"name", "tack1"}, {"size", "51"}},
       "size must be a number from 52 to 16777216"},
      {{{"last", "9"}, {"newline", "crlf"}, {"size", "51"}},
       "size must be a number from 55 to 16777216"},
      {{{"size", "68"}}, "size must be a number from 69 to 16777216"},
      {{{"size", "16777217"}}, "size must be a number from 69 to 16777216"},
      {{{"batch", "0"}}, "batch must be a number from 1 to 100000"},
      {{{"batch", "100001"}}, "batch must be a number from 1 to 100000"},
      {{{"batch", "5"}, {"size", "16777216"}}, "size times batch must be at most 67108864"},
      {{{"pieces", "0"}}, "pieces must be a number from 1 to 1000000"},
      {{{"pieces", "2"}, {"gap", "x"}}, "gap" + wait},
      {{{"gap", "1"}}, "gap needs pieces"},
      {{{"chunk", "0"}}, "chunk must be a number from 1 to 16777216"},
      {{{"chunk", "1"}, {"batch", "2"}}, "chunk excludes batch and pieces"},
      {{{"chunk", "1"}, {"pieces", "2"}}, "chunk excludes batch and pieces"},
      {{{"newline", "cr"}}, "newline must be one of lf crlf"},
  };
  for (const auto& [parameters, complaint] : table) EXPECT_EQ(complaintOf(parameters), complaint);
}

TEST(EventScriptTest, LimitsAreAllowed) {
  EXPECT_EQ(complaintOf({{"name", std::string(64, 'n')}}), "");
  EXPECT_EQ(complaintOf({{"first", "999999999999999999"}, {"last", "999999999999999999"}}), "");
  EXPECT_EQ(complaintOf({{"batch", "4"}, {"size", "16777216"}}), "");
  EXPECT_EQ(complaintOf({{"pieces", "1000000"}, {"gap", "600000"}}), "");
  EXPECT_EQ(complaintOf({{"chunk", "16777216"}, {"batch", "1"}, {"pieces", "1"}}), "");
}

TEST(EventScriptTest, SizeIsThatOfEveryEvent) {
  const EventScript smallest = scriptOf({{"last", "1000"}, {"size", "57"}});
  for (const std::int64_t number : {1, 10, 999, 1000})
    EXPECT_EQ(eventOf(smallest, number).size(), 57U) << number;
  EXPECT_EQ(eventOf(smallest, 1000),
            "event: tick\nid: 1000\ndata: {\"number\":1000,\"padding\":\"\"}\n\n");
  EXPECT_EQ(eventOf(smallest, 100),
            "event: tick\nid: 100\ndata: {\"number\":100,\"padding\":\"xx\"}\n\n");
  const EventScript greatest = scriptOf({{"size", "16777216"}, {"newline", "crlf"}});
  EXPECT_EQ(eventOf(greatest, 9'999'999'999).size(), 16'777'216U);
}

TEST(EventScriptTest, NewlineEndsEveryLine) {
  EXPECT_EQ(eventOf(scriptOf({{"newline", "crlf"}, {"name", "n"}}), 20),
            "event: n\r\nid: 20\r\ndata: {\"number\":20}\r\n\r\n");
}

TEST(EventScriptTest, StreamGoesOnAfterWhatTheClientHasSeen) {
  const EventScript script = scriptOf({{"first", "5"}, {"last", "9"}});
  for (const char* outside : {"", "4", "10", "-5", "x", "5x", "99999999999999999999"})
    EXPECT_EQ(firstNumber(script, outside), 5) << outside;
  EXPECT_EQ(firstNumber(script, "5"), 6);
  EXPECT_EQ(firstNumber(script, "8"), 9);
  EXPECT_EQ(firstNumber(script, "9"), 10);
  EXPECT_EQ(nextBatch(script, {10}), 0);
}

TEST(EventScriptTest, StreamEndsAfterTheLastEvent) {
  using Writes = std::vector<std::int64_t>;
  EXPECT_EQ(writesOf(scriptOf({{"last", "3"}})), (Writes{1, 1, 1}));
  EXPECT_EQ(writesOf(scriptOf({{"last", "3"}}), 3), (Writes{1}));
  EXPECT_EQ(writesOf(scriptOf({{"close", "2"}})), (Writes{1, 1}));
  EXPECT_EQ(writesOf(scriptOf({{"close", "2"}}), 100), (Writes{1, 1}));
  EXPECT_EQ(writesOf(scriptOf({{"close", "0"}})), (Writes{}));
  EXPECT_EQ(writesOf(scriptOf({{"close", "4"}, {"last", "3"}})), (Writes{1, 1, 1}));
}

TEST(EventScriptTest, BatchIsCutByTheEndAndByThePause) {
  using Writes = std::vector<std::int64_t>;
  EXPECT_EQ(writesOf(scriptOf({{"last", "7"}, {"batch", "3"}})), (Writes{3, 3, 1}));
  EXPECT_EQ(writesOf(scriptOf({{"close", "2"}, {"batch", "3"}})), (Writes{2}));
  EXPECT_EQ(writesOf(scriptOf({{"last", "9"}, {"batch", "3"}, {"pause-after", "4"}})),
            (Writes{3, 1, 3, 2}));
}

TEST(EventScriptTest, IntervalLiesBetweenWrites) {
  std::vector<std::int64_t> waits;
  EXPECT_EQ(
      writesOf(scriptOf({{"last", "4"}, {"batch", "2"}, {"interval", "7"}}), 1, &waits).size(), 2U);
  EXPECT_EQ(waits, (std::vector<std::int64_t>{0, 7, 0}));
}

TEST(EventScriptTest, PauseTakesThePlaceOfOneInterval) {
  const Parameters common{{"last", "3"}, {"interval", "7"}, {"pause", "50"}};
  const std::vector<std::pair<const char*, std::vector<std::int64_t>>> table{
      {"0", {50, 7, 7, 0}}, {"1", {0, 50, 7, 0}}, {"3", {0, 7, 7, 50}}, {"4", {0, 7, 7, 0}}};
  for (const auto& [after, expected] : table) {
    Parameters parameters = common;
    parameters.emplace("pause-after", after);
    std::vector<std::int64_t> waits;
    EXPECT_EQ(writesOf(scriptOf(parameters), 1, &waits).size(), 3U);
    EXPECT_EQ(waits, expected) << after;
  }
}

TEST(EventScriptTest, PiecesAreAboutEqualAndMakeUpTheWhole) {
  const std::string text = "0123456789";
  EXPECT_EQ(piece(text, 0, 3), "012");
  EXPECT_EQ(piece(text, 1, 3), "345");
  EXPECT_EQ(piece(text, 2, 3), "6789");
  for (std::int64_t count = 1; count <= 12; ++count) {
    std::string whole;
    for (std::int64_t i = 0; i < count; ++i) whole += piece(text, i, count);
    EXPECT_EQ(whole, text) << count;
  }
}

}  // namespace
}  // namespace kvltest
