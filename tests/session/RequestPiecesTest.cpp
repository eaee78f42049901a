// Requests whose answers go to a receiver: what the session makes of their ends, and who keeps it.
#include "tests/session/SessionFixture.h"
#include "tests/support/TestTLSServer.h"
#include "tests/support/WaitUntil.h"

#include <local/platform/Semaphore.h>

#include <atomic>
#include <functional>
#include <optional>
#include <string>
#include <thread>
#include <utility>

namespace {

using namespace kvltest;
using namespace std::chrono_literals;
using kvl::testing::TestPeer;
using kvl::testing::TestTLSServer;

constexpr std::string_view kReconnects = "notarisation error from request; enqueuing reconnection";

class RequestPiecesTest : public SessionFixture {
 protected:
  void SetUp() override {
    create();
    establish();
    (void)queue->takeDelays();
  }
  std::shared_ptr<kvl::DataTask> ask() {
    return session->requestPieces(kvl::URLRequest("a"), receiver());
  }
  kvl::BodyReceiver receiver() {
    kvl::BodyReceiver pieces;
    pieces.end = [this](const kvl::URLResponseRef&, const std::optional<kvl::Error>& failure) {
      ++ends;
      error = failure;
      if (whenEnded) whenEnded();
    };
    return pieces;
  }
  void fail(std::int64_t code) const {
    loader->tasks().back()->fail({kvl::NSURLErrorDomain, code});
  }

  int ends = 0;
  std::optional<kvl::Error> error;
  std::function<void()> whenEnded;
};

TEST_F(RequestPiecesTest, ARefusedIdentityIsRenewedBeforeTheReceiverHears) {
  for (const std::int64_t code : {-1200, -1201, -1202, -1203, -1204, -1205, -1206, -2000}) {
    SCOPED_TRACE(code);
    const auto calls = notary->calls();
    std::optional<KVLSessionState> seen;
    whenEnded = [&] { seen = session->state(); };
    ask();
    (void)queue->takeDelays();
    fail(code);
    EXPECT_EQ(seen, KVLSessionStateDisconnected);
    EXPECT_TRUE(error->is(kvl::NSURLErrorDomain, code));
    EXPECT_EQ(log.lines().back(), kReconnects);
    EXPECT_EQ(queue->takeDelays(), std::vector{1.0});
    queue->advance(1s);
    EXPECT_EQ(notary->calls(), calls + 1);
    establish();
  }
}

TEST_F(RequestPiecesTest, AnyOtherErrorIsLoggedAndLeavesTheSessionAsItIs) {
  for (const std::int64_t code : {-1199, -1207, -1001, -1005, -999}) {
    SCOPED_TRACE(code);
    ask();
    fail(code);
    EXPECT_TRUE(error->is(kvl::NSURLErrorDomain, code));
    EXPECT_EQ(log.lines().back(), "error from request: https://127.0.0.1:4321/base/a");
    EXPECT_EQ(session->state(), KVLSessionStateEstablished);
    EXPECT_TRUE(queue->takeDelays().empty());
  }
  EXPECT_EQ(ends, 5);
}

TEST_F(RequestPiecesTest, ARefusalFromBeforeARenewalLeavesTheNewIdentityAlone) {
  ask();
  queue->advance(800s);
  notary->answer(signatureEnding(queue->wallTime().adding(1000)));
  (void)queue->takeDelays();
  fail(kvl::NSURLErrorClientCertificateRejected);
  EXPECT_EQ(ends, 1);
  EXPECT_EQ(log.count(kReconnects), 0U);
  EXPECT_EQ(session->state(), KVLSessionStateEstablished);
  EXPECT_TRUE(queue->takeDelays().empty());
}

TEST_F(RequestPiecesTest, KeepsTheSessionUntilItsEnd) {
  auto task = ask();
  queue->dropPending();
  const std::weak_ptr<KVLSession> watch = std::exchange(session, nullptr);
  ASSERT_FALSE(watch.expired()) << "who would judge its error";
  fail(kvl::NSURLErrorClientCertificateRejected);
  EXPECT_EQ(ends, 1);
  EXPECT_EQ(log.count(kReconnects), 1U);
  queue->dropPending();
  task.reset();
  loader->dropTasks();
  EXPECT_TRUE(watch.expired());
}

TEST_F(RequestPiecesTest, TheReceiverMayAskAgain) {
  int inner = 0;
  whenEnded = [&] {
    whenEnded = nullptr;
    kvl::BodyReceiver next;
    next.end = [&](const auto&, const std::optional<kvl::Error>& refusal) {
      ++inner;
      EXPECT_TRUE(refusal->is(kvl::NSURLErrorDomain, kvl::NSURLErrorUnknown));
    };
    EXPECT_EQ(session->requestPieces(kvl::URLRequest("b"), next), nullptr);
  };
  ask();
  fail(kvl::NSURLErrorSecureConnectionFailed);
  EXPECT_EQ(inner, 1) << "not established any more: told at once";
}

// The session and an HTTPS session object that loads.
class LoadedPiecesTest : public RequestPiecesTest {
 protected:
  void SetUp() override {
    RequestPiecesTest::SetUp();
    auto configuration = kvl::URLSessionConfiguration::ephemeral();
    configuration.allowsInsecureHTTPLoads = true;
    session->setSession(kvl::URLSession::create(configuration, session));
  }
  // Brings a first piece, which `whenAPieceComes` sees on the HTTPS session object's queue, and
  // waits for the end.
  [[nodiscard]] std::optional<std::int64_t> load() {
    kvl::BodyReceiver pieces;
    kvl::Semaphore ended;
    std::optional<kvl::Error> failure;
    kvl::Semaphore started;
    pieces.piece = [&](const kvl::Data&) {
      started.wait();
      started.signal();
      if (const auto act = std::exchange(whenAPieceComes, nullptr)) act();
    };
    auto held = std::make_shared<int>(0);
    pieces.end = [&, held](const auto&, const std::optional<kvl::Error>& given) {
      ++ends;
      failure = given;
      ended.signal();
    };
    const std::weak_ptr<int> watch = std::exchange(held, nullptr);
    const auto address = server.url("127.0.0.1");
    task = session->requestPieces(kvl::URLRequest(address), std::exchange(pieces, {}));
    started.signal();
    EXPECT_TRUE(ended.waitFor(60s));
    // Nothing can come any more.
    EXPECT_TRUE(waitUntil([&] { return watch.expired(); }));
    EXPECT_EQ(ends, 1);
    return failure ? std::optional(failure->code()) : std::nullopt;
  }

  std::atomic<bool> staysOpen = true;
  const TestTLSServer server{{}, [this](TestPeer& peer) {
                               (void)peer.readRequest();
                               peer.write("HTTP/1.1 200 OK\r\nContent-Length: 6\r\n\r\nabc");
                               if (staysOpen)
                                 (void)peer.readRequest();
                               else
                                 peer.write("def");
                             }};
  std::shared_ptr<kvl::DataTask> task;
  std::function<void()> whenAPieceComes;
};

TEST_F(LoadedPiecesTest, CancelledFromItsOwnPiece) {
  whenAPieceComes = [this] { task->cancel(); };
  EXPECT_EQ(load(), kvl::NSURLErrorCancelled);
  EXPECT_EQ(session->state(), KVLSessionStateEstablished);
}

TEST_F(LoadedPiecesTest, CancelledOnAnotherThreadMeanwhile) {
  whenAPieceComes = [this] { std::thread([this] { task->cancel(); }).join(); };
  EXPECT_EQ(load(), kvl::NSURLErrorCancelled);
}

TEST_F(LoadedPiecesTest, TheSessionEndsInsideAPiece) {
  whenAPieceComes = [this] { session->end(); };
  EXPECT_EQ(load(), kvl::NSURLErrorCancelled);
  EXPECT_EQ(session->state(), KVLSessionStateEnded);
  EXPECT_EQ(log.count("error from request"), 0U);
}

TEST_F(LoadedPiecesTest, TheSessionIsLetGoOfInsideAPiece) {
  staysOpen = false;
  std::weak_ptr<KVLSession> watch = session;
  whenAPieceComes = [this] {
    queue->dropPending();
    session.reset();
  };
  EXPECT_EQ(load(), std::nullopt) << "the answer was not brought to its end";
  task.reset();
  EXPECT_TRUE(waitUntil([&] { return watch.expired(); }));
}

}  // namespace
