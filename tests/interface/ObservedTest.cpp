#include "platform/interface/Observed.h"
#include "tests/support/Halt.h"
#include "tests/support/OtherThread.h"

#include <gtest/gtest.h>

#include <functional>

namespace {

using kvltest::Halt;
using kvltest::OtherThread;

struct State {
  int number = 0;
};

class ObservedTest : public testing::Test {
 protected:
  kvl::interface::Observed<State> observed_;
  const Halt halt_;
  const std::function<void()> place_ = halt_.place();
};

TEST_F(ObservedTest, EverybodyWaitsForAChange) {
  const OtherThread changing([this] {
    observed_.change([this](State& state) {
      place_();
      state.number = 1;
    });
  });
  ASSERT_TRUE(halt_.isReached());
  const OtherThread getting([this] { EXPECT_EQ(observed_.get(&State::number), 1); });
  EXPECT_TRUE(getting.isWaiting());
  const OtherThread reading(
      [this] { EXPECT_EQ(observed_.read([](const State& state) { return state.number; }), 1); });
  EXPECT_TRUE(reading.isWaiting());
  const OtherThread observing([this] { const auto observation = observed_.observe([] {}); });
  EXPECT_TRUE(observing.isWaiting());
  halt_.letGo();
}

TEST_F(ObservedTest, AChangeWaitsForAReader) {
  const OtherThread reading([this] {
    EXPECT_EQ(observed_.read([this](const State& state) {
      place_();
      return state.number;
    }),
              0);
  });
  ASSERT_TRUE(halt_.isReached());
  const OtherThread changing([this] { observed_.set(&State::number, 1); });
  EXPECT_TRUE(changing.isWaiting());
  halt_.letGo();
}

}  // namespace
