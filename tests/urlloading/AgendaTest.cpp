#include "platform/urlloading/Agenda.h"

#include <gtest/gtest.h>

namespace {

using kvl::urlloading::Agenda;
using std::chrono::seconds;
using Due = std::vector<Agenda::Identifier>;

Agenda::Time at(int second) {
  return Agenda::Time{} + seconds(second);
}

TEST(AgendaTest, NamesThoseThatAreDueTheEarliestFirst) {
  Agenda agenda;
  agenda.set(1, at(30));
  agenda.set(2, at(10));
  agenda.set(3, at(20));
  EXPECT_EQ(agenda.earliest(), at(10));
  EXPECT_TRUE(agenda.takeDue(at(9)).empty());
  EXPECT_EQ(agenda.takeDue(at(20)), (Due{2, 3}));
  EXPECT_EQ(agenda.earliest(), at(30));
  EXPECT_TRUE(agenda.takeDue(at(20)).empty());
}

TEST(AgendaTest, ALaterOrEarlierTimeTakesTheFirstOnesPlace) {
  Agenda agenda;
  agenda.set(1, at(10));
  agenda.set(2, at(20));
  agenda.set(1, at(30));
  agenda.set(2, at(5));
  EXPECT_EQ(agenda.takeDue(at(29)), Due{2});
  EXPECT_EQ(agenda.takeDue(at(30)), Due{1});
}

TEST(AgendaTest, WhatIsRemovedOrNeverDueIsNotNamed) {
  Agenda agenda;
  agenda.set(1, at(10));
  agenda.set(2, at(10));
  agenda.set(3, Agenda::Time::max());
  agenda.remove(1);
  agenda.remove(99);
  agenda.set(2, Agenda::Time::max());
  EXPECT_EQ(agenda.earliest(), Agenda::Time::max());
  EXPECT_TRUE(agenda.takeDue(Agenda::Time::max()).empty());
}

}  // namespace
