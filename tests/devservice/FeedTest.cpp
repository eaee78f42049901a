#include "devservice/service/Feed.h"

#include <gmock/gmock.h>

#include <string>

namespace {

using devservice::Feed;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr auto kStarted = "event: started\nid: 1\ndata: {\"service\":\"kvlocal-devservice\"}\n\n";

TEST(FeedTest, FollowersGetEverythingInOrder) {
  Feed feed;
  feed.publish("submitted", "{}");
  auto position = feed.positionAfter("");
  EXPECT_EQ(feed.take(position), kStarted + std::string("event: submitted\nid: 2\ndata: {}\n\n"));
  EXPECT_THAT(feed.take(position), IsEmpty());
  feed.publish("submitted", "{\"a\":1}");
  EXPECT_EQ(feed.take(position), "event: submitted\nid: 3\ndata: {\"a\":1}\n\n");
}

TEST(FeedTest, AFollowerGoesOnAfterTheLastEventThatItHasSeen) {
  Feed feed;
  feed.publish("submitted", "{}");
  auto position = feed.positionAfter("1");
  EXPECT_THAT(feed.take(position), testing::StartsWith("event: submitted\nid: 2\n"));
  position = feed.positionAfter("2");
  EXPECT_THAT(feed.take(position), IsEmpty());
  position = feed.positionAfter("rubbish");
  EXPECT_THAT(feed.take(position), HasSubstr("id: 1\n"));
}

TEST(FeedTest, WhoHasFollowedAnotherServiceBeforeMissesNoNumber) {
  Feed feed;
  feed.publish("submitted", "{}");
  auto position = feed.positionAfter("57");
  const std::string text = feed.take(position);
  EXPECT_THAT(text, testing::StartsWith("event: started\nid: 58\n"));
  EXPECT_THAT(text, HasSubstr("event: submitted\nid: 59\n"));
  position = feed.positionAfter("58");
  EXPECT_THAT(feed.take(position), testing::StartsWith("event: submitted\nid: 59\n"));
}

TEST(FeedTest, NumbersThatNoEventHasAreNone) {
  Feed feed;
  for (const char* text : {"9223372036854775807", "-9223372036854775808", "9007199254740993", "-1",
                           "99999999999999999999"}) {
    auto position = feed.positionAfter(text);
    EXPECT_EQ(feed.take(position), kStarted) << text;
  }
  auto position = feed.positionAfter("9007199254740992");
  EXPECT_THAT(feed.take(position), HasSubstr("id: 9007199254740993\n"));
}

TEST(FeedTest, OnlyTheLatestEventsAreKept) {
  Feed feed;
  for (int i = 0; i < 1500; ++i) feed.publish("submitted", "{}");
  std::int64_t position = 0;
  EXPECT_THAT(feed.take(position), testing::StartsWith("event: submitted\nid: 502\n"));
  EXPECT_EQ(position, 1501);
}

TEST(FeedTest, TicksComeNoMoreOftenThanAsked) {
  Feed feed;
  auto position = feed.positionAfter("1");
  feed.tickEvery(std::chrono::hours(1));
  EXPECT_THAT(feed.take(position), IsEmpty());
  feed.tickEvery(std::chrono::milliseconds(0));
  EXPECT_THAT(feed.take(position), testing::StartsWith("event: tick\nid: 2\ndata: {\"uptime\":"));
}

}  // namespace
