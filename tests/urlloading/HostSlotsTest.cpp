#include "platform/urlloading/HostSlots.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <map>
#include <random>
#include <utility>

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

// Whoever runs or waits with one host, looked at one by one.
class PlainSlots {
 public:
  void add(HostSlots::Identifier identifier, HostSlots::Use use, kvl::RequestPriority priority) {
    waiting_.emplace(std::pair(-static_cast<int>(priority), identifier), use);
    admit();
  }
  void remove(HostSlots::Identifier identifier) {
    running_.erase(identifier);
    std::erase_if(waiting_, [=](const auto& other) { return other.first.second == identifier; });
    std::erase(admitted_, identifier);
    admit();
  }
  void open() {
    isOpen_ = true;
    admit();
  }
  [[nodiscard]] Identifiers takeAdmitted() { return std::exchange(admitted_, {}); }

 private:
  [[nodiscard]] bool hasRoom(HostSlots::Use use) const {
    if (!isOpen_) return running_.empty();
    const auto alike =
        std::ranges::count_if(running_, [=](const auto& other) { return other.second == use; });
    return alike < (use == HostSlots::Use::shared ? 100 : 2);
  }
  void admit() {
    std::erase_if(waiting_, [&](const auto& next) {
      if (!hasRoom(next.second)) return false;
      running_.emplace(next.first.second, next.second);
      admitted_.push_back(next.first.second);
      return true;
    });
  }
  std::map<HostSlots::Identifier, HostSlots::Use> running_;
  std::map<std::pair<int, HostSlots::Identifier>, HostSlots::Use> waiting_;
  Identifiers admitted_;
  bool isOpen_ = false;
};

// Asks both for the same.
class Comparison {
 public:
  void add(HostSlots::Identifier next) {
    const auto use = random_() % 4 == 0 ? HostSlots::Use::exclusive : HostSlots::Use::shared;
    const auto priority = static_cast<kvl::RequestPriority>(random_() % 3);
    plain_.add(next, use, priority);
    present_.push_back(next);
    if (slots_.admit(next, "a", kStart, use, priority))
      EXPECT_EQ(plain_.takeAdmitted(), Identifiers{next});
    compare();
  }
  void open() {
    slots_.noteMultiplexing(present_.front(), true);
    plain_.open();
    compare();
  }
  // The first stays, so that the host does.
  void removeSome() {
    while (present_.size() > 600 || (present_.size() > 100 && random_() % 2 == 0)) {
      const auto chosen =
          present_.begin() + 1 + static_cast<std::ptrdiff_t>(random_() % (present_.size() - 1));
      slots_.release(*chosen);
      plain_.remove(*chosen);
      present_.erase(chosen);
      if (random_() % 2 == 0) compare();
    }
    compare();
  }

 private:
  void compare() { EXPECT_EQ(slots_.takeAdmitted(), plain_.takeAdmitted()); }

  std::mt19937 random_{7};
  HostSlots slots_{3, true};
  PlainSlots plain_;
  Identifiers present_;
};

TEST(HostSlotsTest, AdmitsAsOneThatLooksAtAllThatWait) {
  Comparison both;
  for (HostSlots::Identifier next = 1; next < 4000; ++next) {
    if (next == 300) both.open();
    both.add(next);
    both.removeSome();
  }
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
