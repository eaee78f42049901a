#include "platform/interface/client/Schedule.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <optional>
#include <random>
#include <set>
#include <vector>

namespace {

using kvl::interface::Schedule;
using Verdict = Schedule::Verdict;
using Ticket = Schedule::Ticket;
using std::chrono::milliseconds;

constexpr milliseconds kShare{100};

class ScheduleTest : public testing::Test {
 protected:
  // The ticket that gets a place, if one does.
  std::optional<Ticket> grant() {
    const auto granted = schedule_.grant(now_);
    if (!granted) return std::nullopt;
    places_[granted->ticket] = granted->place;
    return granted->ticket;
  }
  Ticket addQuick() { return schedule_.add(false, 0); }
  Ticket addSlow() { return schedule_.add(true, 0); }
  Verdict judge(Ticket ticket) { return schedule_.judge(ticket, now_).verdict; }
  void pass(milliseconds time) { now_ += time; }

  Schedule schedule_{kShare};
  Schedule::Clock::time_point now_{};
  std::map<Ticket, std::size_t> places_;
};

TEST_F(ScheduleTest, FirstComeFirstServedAtTwoPlaces) {
  const auto first = addQuick();
  const auto second = addQuick();
  const auto third = addQuick();
  EXPECT_EQ(grant(), first);
  EXPECT_EQ(grant(), second);
  EXPECT_NE(places_[first], places_[second]);
  EXPECT_EQ(grant(), std::nullopt);
  EXPECT_FALSE(schedule_.finish(second, now_));
  EXPECT_EQ(grant(), third);
  EXPECT_EQ(places_[third], places_[second]);
  EXPECT_FALSE(schedule_.isIdle());
  schedule_.finish(first, now_);
  schedule_.finish(third, now_);
  EXPECT_TRUE(schedule_.isIdle());
}

TEST_F(ScheduleTest, AFavouredPlaceIsGivenWhenItIsFree) {
  static_cast<void>(schedule_.add(false, 1));
  static_cast<void>(schedule_.add(false, 1));
  EXPECT_EQ(schedule_.grant(now_)->place, 1U);
  EXPECT_EQ(schedule_.grant(now_)->place, 0U);
}

TEST_F(ScheduleTest, APlaceThatThereIsNotIsNotGiven) {
  static_cast<void>(schedule_.add(false, Schedule::kPlaces));
  EXPECT_EQ(schedule_.grant(now_)->place, 0U);
}

TEST_F(ScheduleTest, NobodyIsPutOffWhileNobodyWaits) {
  const auto first = addQuick();
  const auto second = addQuick();
  grant();
  grant();
  pass(kShare * 10);
  EXPECT_EQ(judge(first), Verdict::kGoOn);
  EXPECT_EQ(judge(second), Verdict::kGoOn);
  EXPECT_EQ(schedule_.judge(first, now_).again, std::nullopt);
}

TEST_F(ScheduleTest, TheShareEndsToTheInstant) {
  const auto first = addQuick();
  const auto second = addQuick();
  addQuick();
  grant();
  grant();
  const auto end = now_ + kShare;
  now_ = end - Schedule::Clock::duration(1);
  EXPECT_EQ(schedule_.judge(first, now_).again, end);
  EXPECT_FALSE(schedule_.isOverdue(places_[first], now_));
  now_ = end;
  EXPECT_TRUE(schedule_.isOverdue(places_[first], now_));
  EXPECT_EQ(judge(first), Verdict::kGoOn);  // the one slow one
  EXPECT_EQ(judge(second), Verdict::kPutOff);
}

TEST_F(ScheduleTest, AShareCountsFromItsRestart) {
  const auto first = addQuick();
  const auto second = addQuick();
  addQuick();
  grant();
  grant();
  pass(kShare);
  schedule_.restart(second, now_);
  EXPECT_EQ(judge(first), Verdict::kGoOn);
  EXPECT_EQ(judge(second), Verdict::kGoOn);
  pass(kShare);
  EXPECT_EQ(judge(second), Verdict::kPutOff);
}

// However many hostile ones come first, a quick one waits for one share for each of them.
TEST_F(ScheduleTest, AQuickOneWaitsForOneShareOnly) {
  constexpr int kHostile = 12;
  std::set<Ticket> hostile;
  for (int i = 0; i < kHostile; ++i) hostile.insert(addQuick());
  const auto icon = addQuick();
  std::set<Ticket> running;
  int shares = 0;
  while (!running.contains(icon)) {
    while (const auto granted = grant()) running.insert(*granted);
    if (running.contains(icon)) break;
    pass(kShare);
    ++shares;
    std::erase_if(running, [this](Ticket ticket) {
      const bool isPutOff = judge(ticket) == Verdict::kPutOff;
      if (isPutOff) schedule_.putOff(ticket);
      return isPutOff;
    });
  }
  EXPECT_LE(shares, kHostile);
  EXPECT_EQ(running.size(), 2U);
}

TEST_F(ScheduleTest, HostileOnesTakeOnePlaceOfTwo) {
  const auto holder = addSlow();
  const auto waiting = addSlow();
  EXPECT_EQ(grant(), holder);
  for (int i = 0; i < 20; ++i) {
    const auto quick = addQuick();
    EXPECT_EQ(grant(), quick);
    EXPECT_EQ(grant(), std::nullopt);
    pass(kShare / 2);
    schedule_.finish(quick, now_);
    if (i < 19) continue;
    EXPECT_TRUE(schedule_.finish(holder, now_));
    EXPECT_EQ(grant(), waiting);
  }
}

// A second slow one may use what nobody else wants, and only that.
TEST_F(ScheduleTest, ASecondSlowOneGivesWayToAQuickOne) {
  const auto holder = addSlow();
  const auto second = addSlow();
  EXPECT_EQ(grant(), holder);
  EXPECT_EQ(grant(), second);
  pass(kShare);
  EXPECT_EQ(judge(second), Verdict::kGoOn);
  const auto quick = addQuick();
  EXPECT_TRUE(schedule_.isOverdue(places_[second], now_));
  EXPECT_EQ(judge(holder), Verdict::kGoOn);
  EXPECT_EQ(judge(second), Verdict::kPutOff);
  schedule_.putOff(second);
  EXPECT_EQ(grant(), quick);
  EXPECT_EQ(grant(), std::nullopt);
}

TEST_F(ScheduleTest, APutOffOneRunsToItsEnd) {
  const auto first = addQuick();
  const auto second = addQuick();
  grant();
  grant();
  addQuick();
  pass(kShare);
  EXPECT_EQ(judge(first), Verdict::kGoOn);
  EXPECT_EQ(judge(second), Verdict::kPutOff);
  schedule_.putOff(second);
  const auto late = addSlow();
  schedule_.finish(first, now_);
  // It comes before slow ones that came later, and quick ones that keep coming do not end it.
  while (const auto granted = grant()) EXPECT_NE(granted, late);
  for (int i = 0; i < 10; ++i) {
    addQuick();
    pass(kShare);
    EXPECT_EQ(judge(second), Verdict::kGoOn);
  }
  EXPECT_TRUE(schedule_.finish(second, now_));
}

// Quick ones that keep coming leave slow ones their one place.
TEST_F(ScheduleTest, ASlowOneGetsItsTurnWhileQuickOnesKeepComing) {
  addQuick();
  const auto other = addQuick();
  grant();
  grant();
  const auto slow = addSlow();
  addQuick();
  schedule_.finish(other, now_);
  EXPECT_EQ(grant(), slow);
}

TEST_F(ScheduleTest, WhoTookMoreThanAShareIsSlowAlsoWhenNobodyWaited) {
  const auto first = addQuick();
  const auto second = addQuick();
  grant();
  grant();
  pass(kShare - milliseconds(1));
  EXPECT_FALSE(schedule_.finish(first, now_));
  pass(milliseconds(1));
  EXPECT_TRUE(schedule_.finish(second, now_));
}

TEST_F(ScheduleTest, TheSecondSlowOneBecomesTheHolder) {
  const auto holder = addSlow();
  const auto second = addSlow();
  grant();
  grant();
  pass(kShare);
  schedule_.finish(holder, now_);
  addQuick();
  addQuick();
  grant();
  EXPECT_EQ(judge(second), Verdict::kGoOn);
}

TEST_F(ScheduleTest, LettingGoEndsEachStateOnce) {
  const auto running = addQuick();
  const auto other = addQuick();
  grant();
  grant();
  const auto waiting = addQuick();
  const auto slow = addSlow();
  EXPECT_TRUE(schedule_.letGo(waiting));
  EXPECT_FALSE(schedule_.letGo(waiting));
  EXPECT_TRUE(schedule_.letGo(slow));
  EXPECT_FALSE(schedule_.letGo(running));
  // It has the rest of its share, though nobody waits.
  EXPECT_EQ(judge(running), Verdict::kGoOn);
  pass(kShare);
  EXPECT_EQ(judge(running), Verdict::kEnd);
  EXPECT_EQ(judge(other), Verdict::kGoOn);
  schedule_.finish(running, now_);
  EXPECT_FALSE(schedule_.letGo(running));
  EXPECT_EQ(judge(running), Verdict::kEnd);
  schedule_.finish(other, now_);
  EXPECT_TRUE(schedule_.isIdle());
}

// Any order of calls against what must hold in each, told by a list of who is where.
TEST_F(ScheduleTest, AnyOrderKeepsTheRules) {
  std::mt19937 random(20'261'122);
  const auto draw = [&random](int count) {
    return std::uniform_int_distribution<int>(0, count - 1)(random);
  };
  std::set<Ticket> waitingQuick;
  std::set<Ticket> waitingSlow;
  std::map<Ticket, std::size_t> running;
  std::set<Ticket> slowRunning;  // granted from the slow list, or judged slow
  const auto isHolderless = [&] { return slowRunning.empty(); };
  for (int step = 0; step < 20'000; ++step) {
    switch (draw(6)) {
      case 0:
        waitingQuick.insert(addQuick());
        break;
      case 1:
        if (waitingSlow.size() < 4) waitingSlow.insert(addSlow());
        break;
      case 2: {
        auto& list = draw(2) == 0 ? waitingQuick : waitingSlow;
        if (list.empty()) break;
        EXPECT_TRUE(schedule_.letGo(*list.rbegin()));
        list.erase(std::prev(list.end()));
        break;
      }
      case 3:
        if (running.empty()) break;
        slowRunning.erase(running.begin()->first);
        schedule_.finish(running.begin()->first, now_);
        running.erase(running.begin());
        break;
      case 4: {
        pass(milliseconds(draw(80)));
        const auto judged = running;
        for (const auto& [ticket, place] : judged) {
          const bool isOverdue = schedule_.isOverdue(place, now_);
          const auto verdict = judge(ticket);
          if (verdict == Verdict::kGoOn) {
            if (isOverdue && !waitingQuick.empty()) slowRunning.insert(ticket);
            continue;
          }
          ASSERT_EQ(verdict, Verdict::kPutOff);
          ASSERT_TRUE(isOverdue);
          ASSERT_FALSE(waitingQuick.empty());
          schedule_.putOff(ticket);
          running.erase(ticket);
          slowRunning.erase(ticket);
          waitingSlow.insert(ticket);
        }
        if (!waitingQuick.empty()) {
          const auto overdue = std::ranges::count_if(running, [this](const auto& entry) {
            return schedule_.isOverdue(entry.second, now_);
          });
          ASSERT_LE(overdue, 1) << "one slow one at most while a quick one waits";
        }
        break;
      }
      default:
        while (const auto granted = grant()) {
          const bool isQuick = waitingQuick.contains(*granted);
          auto& list = isQuick ? waitingQuick : waitingSlow;
          ASSERT_EQ(*granted, *list.begin()) << "first come, first served";
          if (!isQuick) {
            ASSERT_TRUE(isHolderless() || waitingQuick.empty());
            slowRunning.insert(*granted);
          }
          list.erase(list.begin());
          for (const auto& [other, place] : running) ASSERT_NE(place, places_[*granted]);
          running[*granted] = places_[*granted];
        }
        const bool isFull = running.size() == Schedule::kPlaces;
        ASSERT_TRUE(isFull || (waitingQuick.empty() && waitingSlow.empty())) << "no place is idle";
    }
    ASSERT_EQ(schedule_.isIdle(), running.empty() && waitingQuick.empty() && waitingSlow.empty());
  }
}

}  // namespace
