#include "platform/urlloading/HostSlots.h"

#include <gtest/gtest.h>

namespace {

using kvl::urlloading::HostSlots;
constexpr HostSlots::Time kStart{};
using Identifiers = std::vector<HostSlots::Identifier>;

TEST(HostSlotsTest, AdmitsAsManyAsConnectionsWhenNothingMultiplexes) {
  HostSlots slots(2, false);
  EXPECT_TRUE(slots.admit(1, "a", kStart));
  EXPECT_TRUE(slots.admit(2, "a", kStart));
  EXPECT_FALSE(slots.admit(3, "a", kStart));
  EXPECT_TRUE(slots.admit(4, "b", kStart));
  slots.release(1);
  EXPECT_EQ(slots.takeAdmitted(), Identifiers{3});
  EXPECT_TRUE(slots.takeAdmitted().empty());
}

TEST(HostSlotsTest, OneExchangeFindsOutWhatAHostDoes) {
  HostSlots slots(2, true);
  EXPECT_TRUE(slots.admit(1, "a", kStart));
  EXPECT_FALSE(slots.admit(2, "a", kStart));
  EXPECT_FALSE(slots.isProbed(2));
  slots.noteMultiplexing(1, false);
  EXPECT_TRUE(slots.isProbed(2));
  EXPECT_EQ(slots.takeAdmitted(), Identifiers{2});
  EXPECT_FALSE(slots.admit(3, "a", kStart));
}

TEST(HostSlotsTest, MultiplexingHostAdmitsMany) {
  HostSlots slots(2, true);
  EXPECT_TRUE(slots.admit(1, "a", kStart));
  for (HostSlots::Identifier i = 2; i <= 121; ++i) EXPECT_FALSE(slots.admit(i, "a", kStart));
  slots.noteMultiplexing(1, true);
  EXPECT_EQ(slots.takeAdmitted().size(), 99U);
  EXPECT_FALSE(slots.admit(122, "a", kStart));
}

TEST(HostSlotsTest, ExchangesOfAMultiplexingHostThatShareNoConnectionKeepToTheOthers) {
  constexpr auto kOwn = HostSlots::Use::exclusive;
  HostSlots slots(3, true);
  EXPECT_TRUE(slots.admit(1, "a", kStart));
  slots.noteMultiplexing(1, true);
  EXPECT_TRUE(slots.admit(2, "a", kStart, kOwn));
  EXPECT_TRUE(slots.admit(3, "a", kStart, kOwn));
  EXPECT_FALSE(slots.admit(4, "a", kStart, kOwn));
  EXPECT_FALSE(slots.admit(5, "a", kStart, kOwn));
  // They are in nobody else's way.
  EXPECT_TRUE(slots.admit(6, "a", kStart));
  slots.release(6);
  EXPECT_TRUE(slots.takeAdmitted().empty());
  slots.release(2);
  EXPECT_EQ(slots.takeAdmitted(), Identifiers{4});
}

TEST(HostSlotsTest, AnExchangeThatSharesNoConnectionHasOneEvenWhereOnlyOneIsAllowed) {
  HostSlots slots(1, true);
  EXPECT_TRUE(slots.admit(1, "a", kStart));
  slots.noteMultiplexing(1, true);
  EXPECT_TRUE(slots.admit(2, "a", kStart, HostSlots::Use::exclusive));
  EXPECT_FALSE(slots.admit(3, "a", kStart, HostSlots::Use::exclusive));
}

TEST(HostSlotsTest, OneByOneConnectionsAreForAllAlike) {
  HostSlots slots(2, false);
  EXPECT_TRUE(slots.admit(1, "a", kStart, HostSlots::Use::exclusive));
  EXPECT_TRUE(slots.admit(2, "a", kStart));
  EXPECT_FALSE(slots.admit(3, "a", kStart, HostSlots::Use::exclusive));
  EXPECT_FALSE(slots.admit(4, "a", kStart));
  slots.release(1);
  EXPECT_EQ(slots.takeAdmitted(), Identifiers{3});
}

TEST(HostSlotsTest, AFailedFirstExchangeLetsTheNextFindOut) {
  HostSlots slots(2, true);
  EXPECT_TRUE(slots.admit(1, "a", kStart));
  EXPECT_FALSE(slots.admit(2, "a", kStart));
  EXPECT_FALSE(slots.admit(3, "a", kStart));
  slots.release(1);
  EXPECT_EQ(slots.takeAdmitted(), Identifiers{2});
  EXPECT_FALSE(slots.isProbed(2));
}

TEST(HostSlotsTest, NobodyOvertakesWhoeverWaits) {
  HostSlots slots(1, false);
  EXPECT_TRUE(slots.admit(1, "a", kStart));
  EXPECT_FALSE(slots.admit(2, "a", kStart));
  slots.release(1);
  EXPECT_FALSE(slots.admit(3, "a", kStart));
  EXPECT_EQ(slots.takeAdmitted(), Identifiers{2});
  slots.release(2);
  EXPECT_EQ(slots.takeAdmitted(), Identifiers{3});
}

TEST(HostSlotsTest, TheHigherPriorityGoesFirstAndAmongEqualsTheFirst) {
  using kvl::RequestPriority;
  constexpr auto kShared = HostSlots::Use::shared;
  HostSlots slots(1, false);
  EXPECT_TRUE(slots.admit(1, "a", kStart, kShared, RequestPriority::low));
  EXPECT_FALSE(slots.admit(2, "a", kStart, kShared, RequestPriority::low));
  EXPECT_FALSE(slots.admit(3, "a", kStart));
  EXPECT_FALSE(slots.admit(4, "a", kStart, kShared, RequestPriority::high));
  EXPECT_FALSE(slots.admit(5, "a", kStart));
  EXPECT_FALSE(slots.admit(6, "a", kStart, kShared, RequestPriority::high));
  EXPECT_FALSE(slots.admit(7, "a", kStart, kShared, RequestPriority::low));
  Identifiers order;
  for (HostSlots::Identifier running = 1; order.size() < 6; running = order.back()) {
    slots.release(running);
    const auto admitted = slots.takeAdmitted();
    ASSERT_EQ(admitted.size(), 1U);
    order.push_back(admitted.front());
  }
  EXPECT_EQ(order, (Identifiers{4, 6, 3, 5, 2, 7}));
}

TEST(HostSlotsTest, APriorityTakesNoRoomFromOthers) {
  constexpr auto kOwn = HostSlots::Use::exclusive;
  HostSlots slots(2, true);
  EXPECT_TRUE(slots.admit(1, "a", kStart));
  slots.noteMultiplexing(1, true);
  EXPECT_TRUE(slots.admit(2, "a", kStart, kOwn));
  EXPECT_FALSE(slots.admit(3, "a", kStart, kOwn, kvl::RequestPriority::high));
  EXPECT_TRUE(slots.admit(4, "a", kStart, HostSlots::Use::shared, kvl::RequestPriority::low));
}

TEST(HostSlotsTest, WaitingExchangeMayGiveUp) {
  HostSlots slots(1, false);
  EXPECT_TRUE(slots.admit(1, "a", kStart));
  EXPECT_FALSE(slots.admit(2, "a", kStart));
  EXPECT_FALSE(slots.admit(3, "a", kStart));
  slots.release(2);
  slots.release(1);
  slots.release(99);
  EXPECT_EQ(slots.takeAdmitted(), Identifiers{3});
}

TEST(HostSlotsTest, ExchangeThatEndsBeforeItIsTakenUpIsNotNamed) {
  HostSlots slots(1, false);
  EXPECT_TRUE(slots.admit(1, "a", kStart));
  EXPECT_FALSE(slots.admit(2, "a", kStart));
  slots.release(1);
  slots.release(2);
  EXPECT_TRUE(slots.takeAdmitted().empty());
  EXPECT_TRUE(slots.admit(3, "a", kStart));
}

TEST(HostSlotsTest, WhatIsToldOfNobodyOrWhereNothingMultiplexesChangesNothing) {
  HostSlots slots(2, false);
  EXPECT_TRUE(slots.admit(1, "a", kStart));
  slots.noteMultiplexing(99, true);
  slots.noteMultiplexing(1, true);
  EXPECT_TRUE(slots.admit(2, "a", kStart));
  EXPECT_FALSE(slots.admit(3, "a", kStart));
}

TEST(HostSlotsTest, ProbeThatTakesTooLongHoldsNobodyUp) {
  HostSlots slots(2, true);
  EXPECT_TRUE(slots.admit(1, "a", kStart));
  EXPECT_EQ(slots.nextProbeEnd(), std::nullopt);
  EXPECT_FALSE(slots.admit(2, "a", kStart));
  EXPECT_EQ(slots.nextProbeEnd(), kStart + HostSlots::kProbingTime);
  EXPECT_FALSE(slots.endProbes(kStart + HostSlots::kProbingTime - std::chrono::seconds(1)));
  EXPECT_TRUE(slots.takeAdmitted().empty());
  EXPECT_TRUE(slots.endProbes(kStart + HostSlots::kProbingTime));
  EXPECT_EQ(slots.takeAdmitted(), Identifiers{2});
  EXPECT_EQ(slots.nextProbeEnd(), std::nullopt);
}

TEST(HostSlotsTest, TheTimeOfAProbeBeginsWithTheFirstExchange) {
  using std::chrono::seconds;
  HostSlots slots(2, true);
  EXPECT_TRUE(slots.admit(1, "a", kStart + seconds(1)));
  EXPECT_FALSE(slots.admit(2, "a", kStart + seconds(2)));
  EXPECT_EQ(slots.nextProbeEnd(), kStart + seconds(1) + HostSlots::kProbingTime);
}

TEST(HostSlotsTest, HostWithWhichNothingRunsIsProbedAgain) {
  HostSlots slots(2, true);
  EXPECT_TRUE(slots.admit(1, "a", kStart));
  slots.noteMultiplexing(1, true);
  slots.release(1);
  EXPECT_TRUE(slots.admit(2, "a", kStart));
  EXPECT_FALSE(slots.isProbed(2));
  EXPECT_FALSE(slots.admit(3, "a", kStart));
}

}  // namespace
