// What becomes of a session in children of its process, and of the process itself.
#include "tests/session/SessionFixture.h"
#include "tests/support/Halt.h"
#include "tests/support/OtherThread.h"

#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

namespace {

using namespace kvltest;

constexpr int kStatus = 7;
constexpr unsigned kSecondsForAChild = 20;

// The status with which a child ends that does this and nothing else.
template <class Step>
int statusOfChild(const Step& step) {
  const pid_t child = fork();
  if (child == 0) {
    alarm(kSecondsForAChild);
    std::signal(SIGALRM, SIG_DFL);
    step();
    _exit(kStatus);
  }
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status)) << "signal " << WTERMSIG(status);
  return WEXITSTATUS(status);
}

class ForkTest : public SessionFixture {
 protected:
  void SetUp() override {
    create();
    establish();
  }

  // The session works as before.
  void expectNothingHasChanged() {
    EXPECT_EQ(session->state(), KVLSessionStateEstablished);
    EXPECT_NE(session->request(kvl::URLRequest("a"), [](auto&&...) {}), nullptr);
    session->setEventStreamSource("after");
    EXPECT_NE(session->eventStream()->task(), nullptr);
    const auto calls = notary->calls();
    session->enqueueNotarisation();
    EXPECT_EQ(notary->calls(), calls + 1);
  }
};

TEST_F(ForkTest, AChildThatTouchesNothingChangesNothing) {
  EXPECT_EQ(statusOfChild([] {}), kStatus);
  expectNothingHasChanged();
}

TEST_F(ForkTest, AChildThatExecutesAProgramChangesNothing) {
  EXPECT_EQ(statusOfChild([] { execl("/bin/true", "true", nullptr); }), 0);
  expectNothingHasChanged();
}

// Another thread is inside a section, and for the child it stays there.
TEST_F(ForkTest, InAChildEverythingOfASessionFailsAtOnce) {
  const Halt halt;
  loader->whenATaskIsMade = halt.place();
  OtherThread opening([this] { session->setEventStreamSource("events"); });
  ASSERT_TRUE(halt.isReached());
  const auto status = statusOfChild([this] {
    std::optional<kvl::Error> received;
    int calls = 0;
    const auto task = session->request(
        kvl::URLRequest("a"), [&](const auto& data, const auto& response, const auto& error) {
          ++calls;
          if (!data && !response) received = error;
        });
    if (task || calls != 1 || !received || !received->is(kvl::NSURLErrorDomain, -1)) _exit(1);
    if (session->request(kvl::URLRequest("a"))) _exit(2);
    session->setEventStreamSource("others");
    session->disconnectAfterError();
    session->setAwaitingSignature(false);
    session->enqueueNotarisation();
    if (session->awaitingSignature()) _exit(3);
    session->end([](auto&&...) { _exit(4); });
    if (session->isEnded()) _exit(5);
    std::optional<kvl::Error> refused;
    kvl::BodyReceiver pieces;
    pieces.end = [&](const auto&, const auto& error) { refused = error; };
    if (session->requestPieces(kvl::URLRequest("a"), pieces) || !refused) _exit(6);
  });
  EXPECT_EQ(status, kStatus);
  halt.letGo();
  opening.join();
  EXPECT_EQ(session->eventSource(), "events");
  expectNothingHasChanged();
}

}  // namespace
