#include "platform/interface/protocol/ShortLook.h"

#include <gtest/gtest.h>

#include <chrono>

namespace {

using kvl::interface::ShortLook;
using namespace std::chrono_literals;

constexpr ShortLook::Times kLong{.moment = 1h, .taken = 1h, .pause = 1h};

class ShortLookTest : public testing::Test {
 protected:
  void SetUp() override {
    if (sysconf(_SC_NPROCESSORS_ONLN) == 1) GTEST_SKIP() << "there is one processor";
    given = 0;
  }
  static void give() { ++given; }
  // Somebody else has it for three milliseconds.
  static void giveForLong() {
    give();
    timespec time{0, 3'000'000};
    nanosleep(&time, nullptr);
  }

  static inline int given = 0;
};

TEST_F(ShortLookTest, SeesWhatComesWhileOthersHaveTheProcessor) {
  ShortLook look(kLong, give);
  EXPECT_TRUE(look.sees([] { return given == 3; }));
  EXPECT_TRUE(look.sees([] { return true; }));
  EXPECT_EQ(given, 3);
}

TEST_F(ShortLookTest, EndsWithItsMoment) {
  ShortLook look({.moment = 1ms, .taken = 1h, .pause = 1h}, give);
  EXPECT_FALSE(look.sees([] { return false; }));
  EXPECT_GT(given, 0);
  EXPECT_TRUE(look.sees([] { return true; })) << "the next look is one";
}

TEST_F(ShortLookTest, NobodyLooksForAWhileAfterOthersTookTheProcessorForLong) {
  ShortLook look({.moment = 1ms, .taken = 2ms, .pause = 1h}, giveForLong);
  EXPECT_FALSE(look.sees([] { return false; }));
  EXPECT_EQ(given, 1);
  EXPECT_FALSE(look.sees([] { return true; }));
}

TEST_F(ShortLookTest, LooksAgainAfterThePause) {
  ShortLook look({.moment = 1ms, .taken = 2ms, .pause = 0ms}, giveForLong);
  EXPECT_FALSE(look.sees([] { return false; }));
  EXPECT_TRUE(look.sees([] { return true; }));
}

}  // namespace
