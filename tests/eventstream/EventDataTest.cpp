// Where the data of events is kept.
#include "eventstream/EventStreamParser.h"

#include <gtest/gtest.h>

#include <thread>

namespace {

using kvl::eventstream::EventStreamParser;

std::string eventWith(const std::string& data) {
  return "event: a\ndata: " + data + "\n\n";
}

std::shared_ptr<KVLEvent> onlyEvent(EventStreamParser& state, const std::string& chunk) {
  auto events = state.read(kvl::Data::fromText(chunk));
  EXPECT_EQ(events.size(), 1U);
  return events.empty() ? nullptr : events.front();
}

TEST(EventDataTest, LongDataOutlivesChunkAndStream) {
  const std::string data(100'000, 'x');
  std::shared_ptr<KVLEvent> event;
  {
    EventStreamParser state;
    event = onlyEvent(state, eventWith(data));
  }
  EXPECT_EQ(event->data(), data);
}

// Bytes that tell how long they live.
class WatchedBytes {
 public:
  explicit WatchedBytes(const std::string& text) {
    const auto bytes = std::make_shared<std::string>(text);
    alive_ = bytes;
    data_ = kvl::Data(bytes, {reinterpret_cast<const std::uint8_t*>(bytes->data()), bytes->size()});
  }
  // Gives the bytes away: only others keep them from now on.
  [[nodiscard]] kvl::Data release() { return std::exchange(data_, {}); }
  [[nodiscard]] bool areAlive() const { return !alive_.expired(); }

 private:
  kvl::Data data_;
  std::weak_ptr<std::string> alive_;
};

TEST(EventDataTest, LongDataIsKeptWithTheBytesThatItCameIn) {
  WatchedBytes bytes(eventWith(std::string(100'000, 'x')));
  EventStreamParser state;
  auto events = state.read(bytes.release());
  EXPECT_TRUE(bytes.areAlive());
  EXPECT_EQ(events.front()->data(), std::string(100'000, 'x'));
  events.clear();
  EXPECT_FALSE(bytes.areAlive());
}

TEST(EventDataTest, AnEventThatIsKeptDoesNotKeepAMuchLargerChunk) {
  WatchedBytes bytes(eventWith(std::string(2000, 'x')) + ": " + std::string(100'000, 'y') + "\n");
  EventStreamParser state;
  const auto events = state.read(bytes.release());
  EXPECT_FALSE(bytes.areAlive());
  EXPECT_EQ(events.front()->data(), std::string(2000, 'x'));
}

// Whether an event keeps the bytes that it came in when its data and all the bytes have these
// sizes.
bool keepsItsBytes(std::size_t dataSize, std::size_t size) {
  const auto event = eventWith(std::string(dataSize, 'x'));
  const auto comment = size - event.size();
  WatchedBytes bytes(event + (comment > 0 ? ":" + std::string(comment - 2, 'y') + "\n" : ""));
  EventStreamParser state;
  const auto events = state.read(bytes.release());
  EXPECT_EQ(events.front()->data(), std::string(dataSize, 'x'));
  return bytes.areAlive();
}

TEST(EventDataTest, AnEventKeepsSixteenTimesItsDataAtMost) {
  const auto frame = eventWith("").size();
  EXPECT_FALSE(keepsItsBytes(1023, 1023 + frame));
  EXPECT_TRUE(keepsItsBytes(1024, 1024 + frame));
  EXPECT_TRUE(keepsItsBytes(2000, 16 * 2000));
  EXPECT_TRUE(keepsItsBytes(2000, 16 * 2001 - 1));
  EXPECT_FALSE(keepsItsBytes(2000, 16 * 2001));
}

TEST(EventDataTest, ShortDataKeepsNothing) {
  WatchedBytes bytes(eventWith("short"));
  EventStreamParser state;
  const auto events = state.read(bytes.release());
  EXPECT_FALSE(bytes.areAlive());
}

TEST(EventDataTest, SettingDataReplacesWhatTheStreamBrought) {
  EventStreamParser state;
  const auto event = onlyEvent(state, eventWith(std::string(5000, 'x')));
  event->setData("own");
  EXPECT_EQ(event->data(), "own");
  event->setData(std::nullopt);
  EXPECT_EQ(event->data(), std::nullopt);
}

TEST(EventDataTest, LongLineInManyChunksIsKeptWhole) {
  EventStreamParser state;
  std::string expected;
  EXPECT_TRUE(state.read(kvl::Data::fromText("event: a\n\ndata:  ")).size() == 1);
  for (int i = 0; i < 3000; ++i) {
    const std::string piece = std::to_string(i) + std::string(1000, ';');
    expected += piece;
    EXPECT_TRUE(state.read(kvl::Data::fromText(piece)).empty());
  }
  const auto event = onlyEvent(state, " \t\nevent: b\n\n");
  EXPECT_EQ(event->data(), expected);
  EXPECT_EQ(state.data()->text(), "");
}

TEST(EventDataTest, LongLineThatIsNotUTF8IsRejectedWhereverTheByteStands) {
  for (const std::size_t place : {0, 63, 64, 127, 128, 5000, 9999}) {
    std::string data(10'000, 'x');
    data[place] = '\xff';
    EventStreamParser state;
    EXPECT_TRUE(state.read(kvl::Data::fromText(eventWith(data))).empty()) << place;
  }
}

TEST(EventDataTest, AnyThreadReadsAndWritesPropertiesWhole) {
  EventStreamParser state;
  const auto event = onlyEvent(state, eventWith(std::string(5000, 'x')));
  std::thread writer([&event] {
    for (int i = 0; i < 2000; ++i) event->setData(std::string(5000, i % 2 == 0 ? 'a' : 'b'));
  });
  for (int i = 0; i < 2000; ++i) {
    const auto data = *event->data();
    ASSERT_EQ(data, std::string(5000, data.front()));
  }
  writer.join();
}

}  // namespace
