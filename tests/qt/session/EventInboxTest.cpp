#include "qt/session/EventInbox.h"

#include <gmock/gmock.h>

namespace {

using kvl::qt::EventInbox;

std::shared_ptr<KVLEvent> eventWith(std::size_t size) {
  return std::make_shared<KVLEvent>("", std::string(size, 'x'), std::nullopt);
}

TEST(EventInboxTest, TellsOnceUntilTakenAndKeepsTheLatest) {
  EventInbox inbox;
  std::vector<std::shared_ptr<KVLEvent>> events;
  for (std::size_t i = 0; i < EventInbox::kMostEvents + 5; ++i)
    events.push_back(std::make_shared<KVLEvent>("e", std::to_string(i), std::nullopt));
  EXPECT_TRUE(inbox.add(events));
  EXPECT_FALSE(inbox.add({events.front()}));
  const auto taken = inbox.take();
  EXPECT_EQ(taken.size(), EventInbox::kMostEvents);
  EXPECT_EQ(taken.front().data, "6");
  EXPECT_EQ(taken.back().data, "0");
  EXPECT_TRUE(inbox.take().isEmpty());
  EXPECT_TRUE(inbox.add({events.front()}));
}

TEST(EventInboxTest, LargeEventsAreFewer) {
  EventInbox inbox;
  const auto half = eventWith(EventInbox::kMostUnits / 2);
  (void)inbox.add({half, half});
  EXPECT_EQ(inbox.take().size(), 2);
  (void)inbox.add({half, half, eventWith(1)});
  EXPECT_EQ(inbox.take().size(), 2);
  (void)inbox.add({half, eventWith(EventInbox::kMostUnits + 1)});
  EXPECT_EQ(inbox.take().size(), 1);
  EXPECT_FALSE(inbox.add({}));
}

}  // namespace
