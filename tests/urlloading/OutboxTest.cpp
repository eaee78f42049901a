#include "platform/urlloading/Outbox.h"
#include "tests/support/DrivenQueue.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace {

using kvl::urlloading::Outbox;

TEST(OutboxTest, WhatIsAddedRunsInItsOrderAndAsOneBlockOfTheQueue) {
  const auto queue = std::make_shared<kvltest::DrivenQueue>();
  Outbox outbox(queue);
  std::string order;
  for (const char name : {'a', 'b', 'c'}) outbox.add([&order, name] { order += name; });
  EXPECT_EQ(queue->pendingCount(), 0U);
  outbox.flush();
  EXPECT_EQ(queue->pendingCount(), 1U);
  outbox.add([&order] { order += 'd'; });
  outbox.flush();
  outbox.flush();
  EXPECT_EQ(queue->pendingCount(), 2U);
  queue->runDue();
  EXPECT_EQ(order, "abcd");
}

TEST(OutboxTest, WhatABlockHoldsGoesBeforeTheNextOneRuns) {
  const auto queue = std::make_shared<kvltest::DrivenQueue>();
  Outbox outbox(queue);
  auto held = std::make_shared<int>(1);
  const std::weak_ptr<int> watched = held;
  outbox.add([held = std::move(held)] { EXPECT_TRUE(held); });
  outbox.add([&watched] { EXPECT_TRUE(watched.expired()); });
  outbox.flush();
  queue->runDue();
}

}  // namespace
