// How a thread that waits for libcurl's sockets is woken.
#include "platform/urlloading/Waker.h"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <thread>

namespace {

using kvl::urlloading::Waker;

struct MultiDeleter {
  void operator()(CURLM* multi) const noexcept { curl_multi_cleanup(multi); }
};

class WakerTest : public ::testing::Test {
 protected:
  static constexpr std::chrono::milliseconds kShort{20};
  static constexpr std::chrono::seconds kLong{60};

  // Whether it returned before its time.
  [[nodiscard]] bool isWokenWithin(std::chrono::milliseconds longest) {
    const auto deadline = std::chrono::steady_clock::now() + longest;
    EXPECT_FALSE(waker.wait(multi_.get(), static_cast<int>(longest.count())));
    return std::chrono::steady_clock::now() < deadline;
  }

  Waker waker;

 private:
  const std::unique_ptr<CURLM, MultiDeleter> multi_{curl_multi_init()};
};

TEST_F(WakerTest, OneThatComesBeforehandEndsTheNextWaitAndOnlyThat) {
  ASSERT_TRUE(waker.open());
  waker.wake();
  EXPECT_TRUE(isWokenWithin(kLong));
  EXPECT_FALSE(isWokenWithin(kShort));
}

TEST_F(WakerTest, ManyEndOneWait) {
  ASSERT_TRUE(waker.open());
  for (int i = 0; i < 1000; ++i) waker.wake();
  EXPECT_TRUE(isWokenWithin(kLong));
  EXPECT_FALSE(isWokenWithin(kShort));
}

TEST_F(WakerTest, AnotherThreadEndsAWaitUnderWay) {
  ASSERT_TRUE(waker.open());
  const std::jthread other([this] { waker.wake(); });
  EXPECT_TRUE(isWokenWithin(kLong));
}

}  // namespace
