// What a host sees of a service that is not there, or with which no connection comes about.
#include "tests/faults/NumberedScene.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <ostream>

namespace {

using namespace kvltest;
using namespace std::chrono_literals;
using kvl::testing::TestPeer;

class ServiceFaults : public FaultScene {};

TEST_F(ServiceFaults, Absent) {
  begin();
  beginFault();
  const auto port = servicePort();
  stopService();
  expectFailure(ask(), kvl::NSURLErrorDomain, kvl::NSURLErrorCannotConnectToHost);
  expectLog("error from request: ");
  // An identity that nobody refuses is kept.
  EXPECT_EQ(log.count("enqueuing reconnection"), 0U);
  endFault();
  startService({"--port", port});
  recover();
  EXPECT_EQ(statesSeen(), "established");
  report("service", "absent");
}

TEST_F(ServiceFaults, KilledInMidRequest) {
  begin();
  const auto port = servicePort();
  const auto recorder = std::make_shared<EventRecorder>();
  session->setDelegate(recorder);
  beginFault();
  const auto question = startAsking("slow?ms=60000");
  session->setEventStreamSource("events?interval=20");
  ASSERT_TRUE(recorder->waitForCount(1));
  // The notary would be asked for a service that is not there yet.
  holdRetries();
  stopService();
  expectFailure(outcomeOf(question), kvl::NSURLErrorDomain, kvl::NSURLErrorNetworkConnectionLost);
  expectLog("event stream closed with unexpected network error: ");
  expectRetryAfter(1);
  session->setEventStreamSource("");
  endFault();
  startService({"--port", port});
  releaseRetries();
  recover();
  EXPECT_EQ(statesSeen(), "established, disconnected, established");
  report("service", "killed");
}

// A host that follows the event stream finds the new place by itself.
TEST_F(ServiceFaults, RestartedOnAnotherPort) {
  begin();
  const auto recorder = std::make_shared<EventRecorder>();
  session->setDelegate(recorder);
  session->setEventStreamSource("events?interval=20");
  ASSERT_TRUE(recorder->waitForCount(1));
  beginFault();
  holdRetries();
  stopService();
  expectLog("event stream closed with unexpected network error: ");
  expectRetryAfter(1);
  endFault();
  startService();
  const auto count = recorder->tally().count;
  releaseRetries();
  ASSERT_TRUE(recorder->waitForCount(count + 1));
  session->setEventStreamSource("");
  recover();
  EXPECT_EQ(statesSeen(), "established, disconnected, established");
  report("service", "restarted on another port");
}

TEST_F(ServiceFaults, RestartedWithAnotherAuthority) {
  begin();
  const auto port = servicePort();
  beginFault();
  stopService();
  startService({"--port", port, "--new-ca"});
  endFault();
  expectFailure(ask(), kvl::NSURLErrorDomain, kvl::NSURLErrorServerCertificateHasUnknownRoot);
  expectLog("untrusted certificate: ");
  expectLog("notarisation error from request; enqueuing reconnection");
  expectRetryAfter(1);
  recover();
  EXPECT_EQ(statesSeen(), "established, disconnected, established");
  report("service", "wrong anchor");
}

struct Refusal {
  const char* name;
  const char* fault;
  int version;
  std::int64_t code;
  // Of the server's certificate; none: a good one, and the client's is refused.
  std::optional<kvl::testing::CertificateOptions> certificate;
};

void PrintTo(const Refusal& refusal, std::ostream* out) {
  *out << refusal.name;
}

class ServiceRefusals : public NumberedScene, public testing::WithParamInterface<Refusal> {
 protected:
  // A certificate, the service's or the host's, that is not taken.
  void startRefusing() {
    auto options = service.options();
    options.tlsVersion = GetParam().version;
    if (GetParam().certificate) {
      bad_ = service.makeIdentity(*GetParam().certificate);
      options.identity = &bad_;
    } else {
      options.clientAuthority = &stranger_;
    }
    service.start(options);
  }

 private:
  kvl::testing::TestIdentity bad_;
  const kvl::testing::TestIdentity stranger_ = kvl::testing::makeTestAuthority("a stranger");
};

TEST_P(ServiceRefusals, BringANewIdentityAfterASecond) {
  beginNumbered();
  beginFault();
  startRefusing();
  const auto identity = session->signature();
  expectFailure(ask(), kvl::NSURLErrorDomain, GetParam().code);
  expectLog("notarisation error from request; enqueuing reconnection");
  EXPECT_EQ(log.count("untrusted certificate: "), GetParam().certificate ? 1U : 0U);
  expectRetryAfter(1);
  ASSERT_TRUE(waitForState(KVLSessionStateEstablished));
  EXPECT_NE(session->signature(), identity);
  // As long as the fault lasts, so does the refusal.
  expectFailure(ask(), kvl::NSURLErrorDomain, GetParam().code);
  endFault();
  service.start();
  recover();
  EXPECT_EQ(statesSeen(), "established, disconnected, established");
  report("service", GetParam().fault);
}

using kvl::testing::CertificateOptions;

INSTANTIATE_TEST_SUITE_P(
    Certificates, ServiceRefusals,
    testing::Values(
        Refusal{"Expired", "expired", TLS1_3_VERSION, kvl::NSURLErrorServerCertificateHasBadDate,
                CertificateOptions{.validFrom = -9, .validTo = -1}},
        Refusal{"NotYetValid", "not yet valid", TLS1_3_VERSION,
                kvl::NSURLErrorServerCertificateNotYetValid, CertificateOptions{.validFrom = 2}},
        Refusal{"WrongHost", "wrong host", TLS1_3_VERSION,
                kvl::NSURLErrorServerCertificateUntrusted,
                CertificateOptions{.subjectAltName = "DNS:elsewhere.example"}},
        Refusal{"ClientUnderTLS12", "refuses the client certificate, TLS 1.2", TLS1_2_VERSION,
                kvl::NSURLErrorClientCertificateRejected, std::nullopt},
        Refusal{"ClientUnderTLS13", "refuses the client certificate, TLS 1.3", TLS1_3_VERSION,
                kvl::NSURLErrorClientCertificateRejected, std::nullopt}),
    [](const auto& row) { return row.param.name; });

class ServiceHandshakes : public NumberedScene {};

// The connection ends before TLS has begun.
TEST_F(ServiceHandshakes, ResetBringsANewIdentityAfterASecond) {
  beginNumbered();
  beginFault();
  auto options = service.options();
  options.dropsConnections = true;
  service.start(options);
  expectFailure(ask(), kvl::NSURLErrorDomain, kvl::NSURLErrorSecureConnectionFailed);
  expectLog("notarisation error from request; enqueuing reconnection");
  expectRetryAfter(1);
  endFault();
  service.start();
  recover();
  EXPECT_EQ(statesSeen(), "established, disconnected, established");
  report("service", "closes in the handshake");
}

// A socket that listens and takes nobody.
class Listener {
 public:
  // With `backlog` places for connections that wait.
  Listener(std::uint16_t port, int backlog) : socket_(makeSocket()) {
    const int again = 1;
    setsockopt(socket_, SOL_SOCKET, SO_REUSEADDR, &again, sizeof again);
    address_.sin_family = AF_INET;
    address_.sin_port = htons(port);
    address_.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(bind(socket_, generic(), sizeof address_), 0);
    EXPECT_EQ(listen(socket_, backlog), 0);
  }
  ~Listener() {
    for (const int waiting : waiting_) close(waiting);
    close(socket_);
  }
  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;

  // Takes every place, so that whoever comes next waits.
  void fill() {
    constexpr int kMost = 4;
    for (int place = 0; place < kMost; ++place) {
      waiting_.push_back(makeSocket());
      static_cast<void>(connect(waiting_.back(), generic(), sizeof address_));
    }
  }

 private:
  static int makeSocket() { return socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0); }
  [[nodiscard]] const sockaddr* generic() const {
    return reinterpret_cast<const sockaddr*>(&address_);
  }

  const int socket_;
  sockaddr_in address_{};
  std::vector<int> waiting_;
};

TEST_F(ServiceHandshakes, StallsEndWhenTheRequestIsOutOfPatience) {
  beginNumbered();
  for (const bool connects : {false, true}) {
    beginFault();
    service.stop();
    {
      Listener listener(service.port(), connects ? 16 : 0);
      if (!connects) listener.fill();
      setLongestSilence(200ms);
      for (const auto& reply : askMany(3)) {
        expectFailure(reply, kvl::NSURLErrorDomain, kvl::NSURLErrorTimedOut);
      }
      setLongestSilence(std::nullopt);
    }
    endFault();
    service.start();
    recover();
    EXPECT_EQ(statesSeen(), "established");
    report("service", connects ? "stalls in the handshake" : "stalls in connecting");
  }
}

}  // namespace
