// The reply thread's timers, on threads of the tests' own.
#include "platform/ipc/ReplyThread.h"

#include <glib.h>
#include <gtest/gtest.h>

#include <memory>

namespace kvltest {
namespace {

using kvl::ipc::ReplyThread;

constexpr std::chrono::milliseconds kDueNow{0};

void runWhatIsDue(GMainContext* context) {
  while (g_main_context_iteration(context, FALSE)) {
  }
}

class ReplyThreadTimerTest : public testing::Test {
 protected:
  ReplyThreadTimerTest() { g_main_context_push_thread_default(context); }
  ~ReplyThreadTimerTest() override {
    g_main_context_pop_thread_default(context);
    g_main_context_unref(context);
  }

  GMainContext* const context = g_main_context_new();
};

TEST_F(ReplyThreadTimerTest, CallsItsBlockOnceAndLetsGoOfIt) {
  const auto token = std::make_shared<int>(0);
  const ReplyThread::Timer timer(kDueNow, [token] { ++*token; });
  EXPECT_EQ(*token, 0);
  runWhatIsDue(context);
  runWhatIsDue(context);
  EXPECT_EQ(*token, 1);
  EXPECT_EQ(token.use_count(), 1);
}

TEST_F(ReplyThreadTimerTest, DestroyedBeforeItIsDueItNeverCallsAndLetsGoOfItsBlock) {
  const auto token = std::make_shared<int>(0);
  {
    const ReplyThread::Timer timer(kDueNow, [token] { ++*token; });
    EXPECT_EQ(token.use_count(), 2);
  }
  runWhatIsDue(context);
  EXPECT_EQ(*token, 0);
  EXPECT_EQ(token.use_count(), 1);
}

TEST_F(ReplyThreadTimerTest, MayBeDestroyedInsideItsOwnBlock) {
  int calls = 0;
  ReplyThread::Timer timer;
  timer = ReplyThread::Timer(kDueNow, [&] {
    ++calls;
    timer = {};
  });
  runWhatIsDue(context);
  EXPECT_EQ(calls, 1);
}

TEST_F(ReplyThreadTimerTest, WithoutAContextOfTheThreadItNeverCallsOnTheHostsLoop) {
  g_main_context_pop_thread_default(context);
  bool called = false;
  const ReplyThread::Timer timer(kDueNow, [&] { called = true; });
  runWhatIsDue(nullptr);
  EXPECT_FALSE(called);
  g_main_context_push_thread_default(context);
}

}  // namespace
}  // namespace kvltest
