// Connections that bursts of requests leave for the next one.
#include "tests/urlloading/URLSessionFixture.h"

#include <local/platform/Mutex.h>

#include <deque>
#include <string>

namespace kvl::testing {
namespace {

constexpr int kBursts = 5;

// Answers when as many requests as make a burst are there, so that none takes another's connection.
class BurstServer {
 public:
  BurstServer(const TestIdentity& identity, int burst)
      : burst_(burst), server_({.identity = &identity}, [this](TestPeer& peer) { serve(peer); }) {}

  [[nodiscard]] std::string url() const { return server_.url("127.0.0.1"); }
  [[nodiscard]] int connections() const { return server_.connections(); }

 private:
  void serve(TestPeer& peer) {
    while (!peer.readRequest().empty()) {
      awaitBurst();
      peer.write(httpResponse("hello"));
    }
  }
  void awaitBurst() {
    MutexLock lock(mutex_);
    const int turn = waiting_++ / burst_;
    complete_.notifyAll();
    while (waiting_ < (turn + 1) * burst_) complete_.wait(lock);
  }

  const int burst_;
  Mutex mutex_;
  Condition complete_;
  int waiting_ KVL_GUARDED_BY(mutex_) = 0;
  const TestTLSServer server_;
};

class ConnectionReuseTest : public URLSessionTest {
 protected:
  void loadBursts(const std::deque<BurstServer>& servers, int burst) {
    std::deque<OutcomeBox> boxes;
    for (const BurstServer& server : servers) {
      for (int i = 0; i < burst; ++i)
        session->dataTask(URLRequest(server.url()), boxes.emplace_back().handler())->resume();
    }
    for (OutcomeBox& box : boxes) EXPECT_EQ(box.wait().text(), "hello");
  }
};

TEST_F(ConnectionReuseTest, ABurstKeepsItsConnectionsForTheNext) {
  const int limit = session->configuration().maximumConnectionsPerHost;
  std::deque<BurstServer> servers;
  servers.emplace_back(server(), limit);
  for (int round = 0; round < kBursts; ++round) loadBursts(servers, limit);
  EXPECT_EQ(servers.front().connections(), limit);
}

TEST_F(ConnectionReuseTest, ABurstWithManyHostsKeepsTheConnectionsOfAll) {
  const int limit = session->configuration().maximumConnectionsPerHost;
  std::deque<BurstServer> servers;
  while (servers.size() < 6) servers.emplace_back(server(), limit);
  for (int round = 0; round < kBursts; ++round) loadBursts(servers, limit);
  for (const BurstServer& each : servers) EXPECT_EQ(each.connections(), limit);
}

TEST_F(ConnectionReuseTest, ASmallBurstOpensNoMoreThanItNeeds) {
  constexpr int kBurst = 2;
  std::deque<BurstServer> servers;
  servers.emplace_back(server(), kBurst);
  for (int round = 0; round < kBursts; ++round) loadBursts(servers, kBurst);
  EXPECT_EQ(servers.front().connections(), kBurst);
}

}  // namespace
}  // namespace kvl::testing
