// Reply threads of the tests' own, in a process that has no thread or no descriptor to give.
#include "platform/core/NoDestructor.h"
#include "platform/core/Threads.h"
#include "platform/dispatch/Timers.h"
#include "platform/ipc/ReplyThread.h"
#include "tests/support/NoDescriptors.h"
#include "tests/support/NoThreads.h"

#include <local/platform/Semaphore.h>

#include <glib.h>
#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <vector>

namespace kvltest {
namespace {

using kvl::NoDestructor;
using kvl::Semaphore;
using kvl::ipc::ReplyThread;

constexpr std::chrono::seconds kLongest{20};

// It is never destroyed, and stays reachable for leak checkers.
ReplyThread& ownThread() {
  static NoDestructor<std::vector<std::unique_ptr<NoDestructor<ReplyThread>>>> threads;
  threads->push_back(std::make_unique<NoDestructor<ReplyThread>>());
  return **threads->back();
}

// Until what is due after `delay` has been done.
void waitForTimers(std::chrono::nanoseconds delay) {
  const auto fired = std::make_shared<Semaphore>();
  kvl::dispatch::fireAfter(delay, [fired] { fired->signal(); });
  ASSERT_TRUE(fired->waitFor(kLongest));
}

TEST(ReplyThreadTest, StartsOnceTheSystemHasAThreadAndOnlyOnce) {
  waitForTimers({});  // whose thread is there before there are none
  const auto before = startedThreads();
  ReplyThread& thread = ownThread();
  const auto ran = std::make_shared<Semaphore>();
  {
    const NoThreads none;
    for (int i = 0; i < 2; ++i) thread.post([ran] { ran->signal(); });
    EXPECT_FALSE(ran->tryWait());
  }
  waitForTimers(kvl::core::kUntilNextTry);
  for (int i = 0; i < 2; ++i) EXPECT_TRUE(ran->waitFor(kLongest));
  EXPECT_EQ(startedThreads(), before + 1);
}

TEST(ReplyThreadTest, BlocksRunWithoutAContextAsLongAsThereAreNoDescriptors) {
  ReplyThread& thread = ownThread();
  const auto hasContext = [&thread]() -> std::optional<bool> {
    struct Answer {
      Semaphore ran;
      bool hasContext = false;
    };
    const auto answer = std::make_shared<Answer>();
    thread.post([answer] {
      answer->hasContext = g_main_context_get_thread_default() != nullptr;
      answer->ran.signal();
    });
    return answer->ran.waitFor(kLongest) ? std::optional(answer->hasContext) : std::nullopt;
  };
  {
    const NoDescriptors none(kLeftToSanitizers);
    EXPECT_EQ(hasContext(), false);
    EXPECT_EQ(hasContext(), false);
  }
  EXPECT_EQ(hasContext(), true);
}

}  // namespace
}  // namespace kvltest
