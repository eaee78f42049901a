// What a host sees when the process gets no descriptors, threads or memory.
#include "tests/faults/FaultScene.h"
#include "tests/support/NoDescriptors.h"
#include "tests/support/NoThreads.h"

#include <sys/resource.h>

#include <fstream>

namespace {

using namespace kvltest;

class ResourceFaults : public FaultScene {
 protected:
  // A renewal fails, and while there is no signature so does every request.
  void expectLoss() {
    session->enqueueNotarisation();
    expectLog("notarisation error: Error Domain=NSCocoaErrorDomain Code=4099");
    expectRetryAfter(15);
    expectFailure(ask(), kvl::NSURLErrorDomain, kvl::NSURLErrorUnknown);
  }
  void expectRecovery() {
    recover();
    EXPECT_EQ(statesSeen(), "established, disconnected, established");
    EXPECT_EQ(progressSeen(), "Established, Reconnecting\u2026, Established");
  }
};

TEST_F(ResourceFaults, WithoutDescriptorsWhatIsOpenGoesOnServing) {
  begin();
  beginFault();
  {
    const NoDescriptors none(kLeftToSanitizers);
    expectAnswer(ask());
    expectLoss();
    endFault();
  }
  expectRecovery();
  report("resources", "no descriptors");
}

TEST_F(ResourceFaults, WithoutThreadsWhatRunsGoesOnServing) {
  begin();
  beginFault();
  {
    const NoThreads none;
    expectAnswer(ask());
    expectLoss();
    endFault();
  }
  expectRecovery();
  report("resources", "no threads");
}

#ifdef KVL_CAN_LIMIT_MEMORY

// While it lives, the process gets so much address space more and no further.
class LittleMemory {
 public:
  explicit LittleMemory(rlim_t more) {
    getrlimit(RLIMIT_AS, &before_);
    rlim_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    rlimit now = before_;
    now.rlim_cur = pages * static_cast<rlim_t>(getpagesize()) + more;
    setrlimit(RLIMIT_AS, &now);
  }
  ~LittleMemory() { setrlimit(RLIMIT_AS, &before_); }
  LittleMemory(const LittleMemory&) = delete;
  LittleMemory& operator=(const LittleMemory&) = delete;

 private:
  rlimit before_{};
};

TEST_F(ResourceFaults, WithoutMemoryForAnAnswerOnlyThatAnswerFails) {
  constexpr rlim_t kLeft = rlim_t{96} << 20;
  begin();
  beginFault();
  {
    const LittleMemory little(kLeft);
    expectFailure(ask("large?megabytes=200"), kvl::NSURLErrorDomain,
                  kvl::NSURLErrorNetworkConnectionLost);
    expectAnswer(ask());
    endFault();
  }
  expectAnswer(ask());
  recover();
  EXPECT_EQ(statesSeen(), "established");
  EXPECT_EQ(progressSeen(), "Established");
  report("resources", "no memory for an answer");
}

#endif

}  // namespace
