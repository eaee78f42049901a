#include "eventstream/EventStreamParser.h"
#include "tests/support/Joined.h"
#include "tests/support/LogCapture.h"

#include <local/platform/URLSession.h>

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

using kvl::eventstream::EventStreamParser;
using kvltest::joined;

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

TEST_F(EventStreamParserTest, AnEventIsValidWithAName) {
  EXPECT_TRUE(KVLEvent("a", std::nullopt, std::nullopt).isValid());
  EXPECT_FALSE(KVLEvent("", "x", "1").isValid());
  EXPECT_FALSE(KVLEvent(std::nullopt, "x", "1").isValid());
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

TEST_F(EventStreamParserTest, TrimsEverySpaceSeparatorThatUnicodeHas) {
  for (const std::string_view space :
       {"\t", " ", "\u00a0", "\u1680", "\u2000", "\u2001", "\u2002", "\u2003", "\u2004", "\u2005",
        "\u2006", "\u2007", "\u2008", "\u2009", "\u200a", "\u202f", "\u205f", "\u3000"}) {
    EXPECT_EQ(read(joined({"event:", space, "a", space, "b", space, "\n\n"})),
              Texts{joined({"event:a", space, "b,data:(null),id:(null)"})})
        << testing::PrintToString(space);
    EXPECT_EQ(read(joined({"event: a\ndata:", space, space, "\n\n"})),
              Texts{"event:a,data:,id:(null)"})
        << testing::PrintToString(space);
  }
}

TEST_F(EventStreamParserTest, TrimsNoOtherCharacter) {
  for (const std::string_view character :
       {"\x01",   "\x08",   "\v",     "\f",     "\r",     "\x1f",   "!",      "\x7f",   "\u0085",
        "\u009f", "\u00a1", "\u167f", "\u1681", "\u180e", "\u1fff", "\u200b", "\u2028", "\u2029",
        "\u202e", "\u2030", "\u205e", "\u2060", "\u2fff", "\u3001", "\ufeff"}) {
    EXPECT_EQ(read(joined({"event: ", character, "a", character, " \n\n"})),
              Texts{joined({"event:", character, "a", character, ",data:(null),id:(null)"})})
        << testing::PrintToString(character);
  }
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

TEST_F(EventStreamParserTest, AnEventThatAHostSetIsGivenUpWithAMalformedLine) {
  const auto begun = std::make_shared<KVLEvent>("begun", std::nullopt, std::nullopt);
  state.setEvent(begun);
  EXPECT_EQ(read("data: x\nbogus\nevent: b\n\n"), Texts{"event:b,data:(null),id:(null)"});
  EXPECT_EQ(begun->description(), "event:begun,data:x,id:(null)");
}

constexpr std::size_t kLongestShownLine = std::size_t{64} << 10;

TEST_F(EventStreamParserTest, OfALongMalformedLineTheLogHasTheBeginningAndTheLength) {
  const std::string line(kLongestShownLine, 'x');
  read(line + "\n" + line + "x\n");
  EXPECT_EQ(log.lines(), (Texts{std::string(kMalformed) + line,
                                std::string(kMalformed) + line + "\u2026 (65537 bytes)"}));
}

TEST_F(EventStreamParserTest, ALongMalformedLineIsNotCutWithinACharacter) {
  for (const std::string character : {"\u00e9", "\u65e5", "\U0001f600"}) {
    for (std::size_t taken = 0; taken <= character.size(); ++taken) {
      const std::string before(kLongestShownLine - taken, 'x');
      const auto line = joined({before, character, "yyyyy"});
      read(joined({line, "\n"}));
      EXPECT_EQ(log.lines().back(),
                joined({kMalformed, before, taken == character.size() ? character : "", "\u2026 (",
                        std::to_string(line.size()), " bytes)"}));
    }
  }
}

TEST_F(EventStreamParserTest, ALongLineThatIsNotUTF8IsCutWhereItIsTooLong) {
  const std::string before(kLongestShownLine - 5, 'x');
  read(before + "\x80\x80\x80\x80\x80\x80\n");
  EXPECT_EQ(log.lines().back(),
            std::string(kMalformed) + before + "\\x80\\x80\u2026 (65537 bytes)");
}

TEST_F(EventStreamParserTest, ALineWithoutAnEndIsNotKept) {
  constexpr std::size_t kPiece = std::size_t{1} << 20;
  const auto piece = kvl::Data::fromText(std::string(kPiece, 'x'));
  for (std::size_t size = 0; size < 2 * EventStreamParser::kLongestLine; size += kPiece) {
    EXPECT_TRUE(state.read(piece).empty());
    ASSERT_LE(state.data()->size(), EventStreamParser::kLongestLine);
  }
  EXPECT_EQ(state.data()->size(), 0U);
  ASSERT_EQ(log.lines().size(), 1U);
  EXPECT_LE(log.lines().front().size(), kLongestShownLine + 100);
  EXPECT_EQ(read("\nevent: a\n\n"), Texts{"event:a,data:(null),id:(null)"});
}

TEST_F(EventStreamParserTest, WhatACutLineBroughtStaysAsItIsWhateverComesLater) {
  const auto dataOf = [](int number) { return std::string(2000, static_cast<char>('a' + number)); };
  std::vector<std::shared_ptr<KVLEvent>> kept;
  for (int i = 0; i < 5; ++i) {
    EXPECT_EQ(read("data: " + dataOf(i).substr(0, 500)), Texts{});
    const auto rest = dataOf(i).substr(500) + "\nevent: a\n\ndata: " + std::string(100, 'z') + "\n";
    for (const auto& event : state.read(kvl::Data::fromText(rest))) kept.push_back(event);
  }
  ASSERT_EQ(kept.size(), 5U);
  for (int i = 0; i < 5; ++i) EXPECT_EQ(kept[static_cast<std::size_t>(i)]->data(), dataOf(i));
}

TEST_F(EventStreamParserTest, UntilAChunkIsReadDataIsWhatItWasBefore) {
  EXPECT_EQ(read("malfor"), Texts{});
  std::vector<std::string> seen;
  const auto previous = kvl::setLogSink(
      [&](std::string_view) { seen.emplace_back(state.data().value_or(kvl::Data()).text()); });
  EXPECT_EQ(read("med\nevent: a\n\nmalformed\nre"), Texts{"event:a,data:(null),id:(null)"});
  kvl::setLogSink(previous);
  EXPECT_EQ(seen, (Texts{"malfor", "malfor"}));
  EXPECT_EQ(state.data()->text(), "re");
}

TEST_F(EventStreamParserTest, DataMayBeReadAndSetWhileAnotherThreadReadsTheStream) {
  std::atomic<bool> done = false;
  std::thread host([&] {
    while (!done) {
      const auto data = state.data();
      const std::string before(data ? data->text() : "");
      state.setData(kvl::Data::fromText("data: " + std::string(before.size() % 300, 'h')));
      EXPECT_EQ(data ? data->text() : "", before);
    }
  });
  for (int i = 0; i < 2000; ++i) {
    read("data: " + std::string(i % 700, 'x'));
    read(std::string(i % 50, 'y') + "\nevent: a\nid: 1\n\nda");
  }
  done = true;
  host.join();
  EXPECT_EQ(state.lastEventID(), "1");
}

class EventStreamLongLineTest : public EventStreamParserTest {
 protected:
  EventStreamLongLineTest() { state.setLongestLine(10); }

  const std::string givenUp = "ignoring event-source line of more than 10 bytes: ";
};

TEST_F(EventStreamLongLineTest, CostsItsEventAndNoOther) {
  EXPECT_EQ(read("event: a\n\nevent: b\ndata: 12345\n\nevent: c\ndata: 1234\n\n"),
            (Texts{"event:a,data:(null),id:(null)", "event:c,data:1234,id:(null)"}));
  EXPECT_EQ(log.lines(), Texts{givenUp + "data: 12345\u2026"});
}

TEST_F(EventStreamLongLineTest, IsDroppedUpToItsEndHoweverManyChunksBringIt) {
  EXPECT_EQ(read("event: a\n\ndata: 1234"), Texts{"event:a,data:(null),id:(null)"});
  EXPECT_TRUE(log.lines().empty());
  EXPECT_EQ(read("5"), Texts{});
  EXPECT_EQ(log.lines(), Texts{givenUp + "data: 12345\u2026"});
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(read("event: b"), Texts{});
    EXPECT_EQ(state.data()->size(), 0U);
  }
  EXPECT_EQ(read("\nevent: c\n\neve"), Texts{"event:c,data:(null),id:(null)"});
  EXPECT_EQ(state.data()->text(), "eve");
  EXPECT_EQ(log.lines().size(), 1U);
}

TEST_F(EventStreamLongLineTest, ThatEndsWithItsSecondChunkIsGivenUpToo) {
  read("event: b\n\ndata: 1");
  EXPECT_EQ(read("2345\n\nevent: c\n\n"), Texts{"event:c,data:(null),id:(null)"});
  EXPECT_EQ(log.lines(), Texts{givenUp + "data: 12345\u2026"});
}

TEST_F(EventStreamLongLineTest, TheLogHasAsMuchOfItAsOfAMalformedOne) {
  state.setLongestLine(2 * kLongestShownLine);
  const std::string beginning(kLongestShownLine - 1, 'x');
  const std::string rest(kLongestShownLine + 2, 'y');
  read(beginning);
  read(rest + "\n");
  EXPECT_EQ(
      log.lines(),
      Texts{"ignoring event-source line of more than 131072 bytes: " + beginning + "y\u2026"});
  read(rest + rest + "\n");
  EXPECT_EQ(log.lines().back(), "ignoring event-source line of more than 131072 bytes: " +
                                    rest.substr(0, kLongestShownLine) + "\u2026");
}

TEST_F(EventStreamLongLineTest, IsNotCutWithinACharacter) {
  state.setLongestLine(2 * kLongestShownLine);
  const std::string beginning(kLongestShownLine - 1, 'x');
  const std::string line = beginning + "\u00e9" + std::string(2 * kLongestShownLine, 'y');
  const std::string logged =
      "ignoring event-source line of more than 131072 bytes: " + beginning + "\u2026";
  read(line + "\n");
  EXPECT_EQ(log.lines(), Texts{logged});
  read(line.substr(0, kLongestShownLine + 10));
  read(line.substr(kLongestShownLine + 10) + "\n");
  EXPECT_EQ(log.lines(), (Texts{logged, logged}));
}

TEST_F(EventStreamLongLineTest, OfOneStreamIsForgottenWithTheStream) {
  read("data: 12345");
  state.setData(std::nullopt);
  EXPECT_EQ(read("event: c\n\n"), Texts{"event:c,data:(null),id:(null)"});
  read("data: 12345");
  state.setData(kvl::Data::fromText("event"));
  EXPECT_EQ(read(": d\n\n"), Texts{"event:d,data:(null),id:(null)"});
}

TEST_F(EventStreamParserTest, BytesThatAreSetMayHoldWholeLines) {
  state.setData(kvl::Data::fromText("event: a\ndata: 1\n\nevent: b\ndat"));
  EXPECT_EQ(read("a: 2"), Texts{});
  EXPECT_EQ(read("\n\n"), (Texts{"event:a,data:1,id:(null)", "event:b,data:2,id:(null)"}));
  state.setData(kvl::Data::fromText("event: c\n"));
  EXPECT_EQ(read("\nevent: d\n\n"),
            (Texts{"event:c,data:(null),id:(null)", "event:d,data:(null),id:(null)"}));
}

TEST_F(EventStreamLongLineTest, ItsEndIsNoEmptyLine) {
  read("data: 12345");
  state.setEvent(std::make_shared<KVLEvent>("begun", std::nullopt, std::nullopt));
  EXPECT_EQ(read("6\n"), Texts{});
  EXPECT_EQ(read("data: x\n\n"), Texts{"event:begun,data:x,id:(null)"});
}

TEST_F(EventStreamLongLineTest, HasAsManyBytesAsConfigurationsAllowUsually) {
  EXPECT_EQ(EventStreamParser::kLongestLine,
            kvl::URLSessionConfiguration::ephemeral().maximumEventLineBytes);
}

}  // namespace
