// The framework's transport against servers that nobody here wrote.
#include "platform/core/NoDestructor.h"
#include "tests/faults/servers/ForeignServer.h"
#include "tests/support/WaitUntil.h"
#include "tests/urlloading/URLSessionFixture.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <deque>
#include <regex>
#include <tuple>

namespace kvl::testing {
namespace {

using ::testing::AnyOf;
using ::testing::Combine;
using ::testing::ContainsRegex;
using ::testing::HasSubstr;
using ::testing::Values;

using Row = std::tuple<Software, const char*, const char*>;

class ForeignServerTest : public URLSessionTest, public ::testing::WithParamInterface<Row> {
 protected:
  [[nodiscard]] static Software software() { return std::get<Software>(GetParam()); }
  [[nodiscard]] static std::string tlsVersion() { return std::get<2>(GetParam()); }
  [[nodiscard]] static std::unique_ptr<ForeignServer> start(
      const TestIdentity& clientAuthority = root()) {
    return std::make_unique<ForeignServer>(
        ForeignServerOptions{software(), std::get<1>(GetParam()), tlsVersion()}, server(),
        clientAuthority);
  }
  [[nodiscard]] Outcome get(const ForeignServer& peer, std::string_view path) const {
    return load(*session, URLRequest(peer.url(path)));
  }
  // gnutls-serv repeats the header fields only.
  [[nodiscard]] static URLRequest numbered(const ForeignServer& peer, int number,
                                           const std::string& prefix = "") {
    const auto text = "number=" + std::to_string(number);
    URLRequest request(peer.url(prefix + "/" + text));
    request.headers().set("X-Number", text);
    return request;
  }
  void expectItsNumber(OutcomeBox& box, int number) const {
    const Outcome outcome = box.wait();
    ASSERT_FALSE(outcome.error) << outcome.error->description();
    const std::string text = outcome.text();
    const std::regex pattern("number=([0-9]+)");
    std::size_t found = 0;
    for (std::sregex_iterator match(text.begin(), text.end(), pattern), end; match != end;
         ++match) {
      EXPECT_EQ(std::stoi((*match)[1]), number);
      ++found;
    }
    EXPECT_GT(found, 0) << text;
  }
};

const TestIdentity& otherRoot() {
  static const NoDestructor<TestIdentity> made(makeTestAuthority("other root"));
  return *made;
}

// Without the spaces that some put into names.
std::string withoutSpaces(std::string text) {
  text.erase(std::remove(text.begin(), text.end(), ' '), text.end());
  return text;
}

TEST_P(ForeignServerTest, SeesWhoAsks) {
  const auto peer = start();
  const Outcome outcome = get(*peer, "/stats");
  ASSERT_FALSE(outcome.error) << outcome.error->description();
  EXPECT_EQ(outcome.response->httpStatusCode, 200);
  EXPECT_THAT(withoutSpaces(outcome.text()), HasSubstr("CN=client"));
  EXPECT_THAT(outcome.text(), ContainsRegex("TLSv?" + tlsVersion()));
}

TEST_P(ForeignServerTest, RefusesAClientOfAnotherAuthority) {
  const auto peer = start(otherRoot());
  const Outcome outcome = get(*peer, "/stats");
  if (software() == Software::nginx) {
    ASSERT_TRUE(outcome.response);
    EXPECT_EQ(outcome.response->httpStatusCode, 400);
  } else {
    EXPECT_EQ(outcome.code(), NSURLErrorClientCertificateRejected);
  }
  EXPECT_EQ(delegate->clientChallengeHosts().size(), 1U);
}

TEST_P(ForeignServerTest, IsTrustedOnlyWithACertificateOfTheAnchorForItsAddress) {
  struct Restart {
    const TestIdentity& identity;
    std::int64_t code;
  };
  static const NoDestructor<TestIdentity> stranger(makeTestIdentity({}, &otherRoot()));
  static const NoDestructor<TestIdentity> neighbour(
      makeTestIdentity({.subjectAltName = "IP:127.0.0.2,IP:::2"}, &root()));
  const auto peer = start();
  EXPECT_EQ(get(*peer, "/number=1").code(), 0);
  const auto asked = delegate->clientChallengeHosts().size();
  for (const Restart& restart : {Restart{*stranger, NSURLErrorServerCertificateHasUnknownRoot},
                                 Restart{*neighbour, NSURLErrorServerCertificateUntrusted}}) {
    peer->startAgain(restart.identity);
    EXPECT_EQ(get(*peer, "/number=2").code(), restart.code);
    EXPECT_EQ(delegate->clientChallengeHosts().size(), asked) << "the identity was handed out";
  }
  peer->startAgain(server());
  EXPECT_EQ(get(*peer, "/number=3").code(), 0);
}

TEST_P(ForeignServerTest, AnswersTheNextRequestAfterARestartWithANewCertificate) {
  const auto peer = start();
  EXPECT_EQ(get(*peer, "/number=1").code(), 0);
  peer->kill();
  EXPECT_EQ(get(*peer, "/number=2").code(), NSURLErrorCannotConnectToHost);
  static const NoDestructor<TestIdentity> renewed(
      makeTestIdentity({.commonName = "renewed"}, &root()));
  const auto checks = delegate->trustChallenges();
  peer->startAgain(*renewed);
  OutcomeBox box;
  session->dataTask(numbered(*peer, 3), box.handler())->resume();
  expectItsNumber(box, 3);
  EXPECT_EQ(delegate->trustChallenges(), checks + 1);
}

TEST_P(ForeignServerTest, WhatIsInFlightFailsWhenItIsKilled) {
  const auto peer = start();
  EXPECT_EQ(get(*peer, "/number=1").code(), 0);
  peer->freeze();
  std::deque<OutcomeBox> boxes;
  for (int number = 0; number < 4; ++number) {
    session->dataTask(numbered(*peer, number), boxes.emplace_back().handler())->resume();
  }
  ASSERT_TRUE(kvltest::waitUntil([&] { return peer->connections() > 0; }));
  peer->kill();
  for (auto& box : boxes) {
    const Outcome outcome = box.wait();
    EXPECT_FALSE(outcome.body);
    // What the freeze met: the handshake, an open connection, or a request that still waited.
    EXPECT_THAT(outcome.code(),
                AnyOf(NSURLErrorSecureConnectionFailed, NSURLErrorNetworkConnectionLost,
                      NSURLErrorCannotConnectToHost));
  }
}

TEST_P(ForeignServerTest, EachAnswerIsItsRequests) {
  const auto peer = start();
  std::deque<OutcomeBox> boxes;
  constexpr int kRequests = 24;
  for (int number = 0; number < kRequests; ++number) {
    session->dataTask(numbered(*peer, number), boxes.emplace_back().handler())->resume();
  }
  for (int number = 0; number < kRequests; ++number) expectItsNumber(boxes[number], number);
}

std::string nameOf(const ::testing::TestParamInfo<Row>& row) {
  const char* const names[] = {"Nginx", "OpenSSL", "GnuTLS", "Go", "GoWithoutHTTP2"};
  const auto [software, address, version] = row.param;
  return names[static_cast<int>(software)] +
         std::string(std::string_view(address) == "::1" ? "IPv6" : "IPv4") +
         (std::string_view(version) == "1.2" ? "TLS12" : "TLS13");
}

INSTANTIATE_TEST_SUITE_P(Servers, ForeignServerTest,
                         Combine(Values(Software::nginx, Software::openssl, Software::gnutls,
                                        Software::go, Software::goWithoutHTTP2),
                                 Values("127.0.0.1", "::1"), Values("1.2", "1.3")),
                         nameOf);

class StallingServerTest : public ForeignServerTest {};

TEST_P(StallingServerTest, ABodyThatItsDeathCutsIsAnError) {
  const auto peer = start();
  const auto task = session->dataTask(URLRequest(peer->url("/stall")));
  task->resume();
  delegate->waitForBytes(1);
  peer->kill();
  const auto error = delegate->waitForCompletion();
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code(), NSURLErrorNetworkConnectionLost) << error->description();
}

INSTANTIATE_TEST_SUITE_P(Servers, StallingServerTest,
                         Combine(Values(Software::nginx, Software::openssl, Software::go,
                                        Software::goWithoutHTTP2),
                                 Values("127.0.0.1", "::1"), Values("1.2", "1.3")),
                         nameOf);

class PostTest : public ForeignServerTest {};

TEST_P(PostTest, TakesABody) {
  const auto peer = start();
  URLRequest request(peer->url("/post"));
  request.setMethod("POST");
  request.setBody(Data::fromText("what was sent"));
  const Outcome outcome = load(*session, request);
  ASSERT_FALSE(outcome.error) << outcome.error->description();
  EXPECT_THAT(outcome.text(), HasSubstr("what was sent"));
}

INSTANTIATE_TEST_SUITE_P(Servers, PostTest,
                         Combine(Values(Software::nginx, Software::go, Software::goWithoutHTTP2),
                                 Values("127.0.0.1", "::1"), Values("1.2", "1.3")),
                         nameOf);

class GatheringServerTest : public ForeignServerTest {};

// All are in flight at a time, and the last one is answered first.
TEST_P(GatheringServerTest, EachAnswerIsItsRequestsInAnyOrder) {
  const auto peer = start();
  const bool multiplexes = software() == Software::go;
  const int atATime = multiplexes ? 60 : session->configuration().maximumConnectionsPerHost;
  const auto prefix = "/gather=" + std::to_string(atATime);
  for (int round = 0; round < 2; ++round) {
    std::deque<OutcomeBox> boxes;
    for (int index = 0; index < atATime; ++index) {
      const int number = round * atATime + index;
      session->dataTask(numbered(*peer, number, prefix), boxes.emplace_back().handler())->resume();
    }
    for (int index = 0; index < atATime; ++index) {
      expectItsNumber(boxes[index], round * atATime + index);
    }
  }
  EXPECT_EQ(delegate->trustChallenges() == 1, multiplexes) << delegate->trustChallenges();
}

INSTANTIATE_TEST_SUITE_P(Servers, GatheringServerTest,
                         Combine(Values(Software::go, Software::goWithoutHTTP2),
                                 Values("127.0.0.1", "::1"), Values("1.2", "1.3")),
                         nameOf);

class SharedConnectionTest : public ForeignServerTest {
 protected:
  static std::string answerTo(int number) {
    std::string text;
    for (int i = 0; i < 2000; ++i) text += "number=" + std::to_string(number) + " ";
    return text;
  }
};

// Both are in flight until one ends, and the connection falls silent with that.
TEST_P(SharedConnectionTest, NeitherOfTwoExchangesWaitsForMoreOnceItIsAnswered) {
  const auto peer = start();
  constexpr int kRounds = 200;
  for (int number = 0; number < 2 * kRounds; number += 2) {
    OutcomeBox first;
    OutcomeBox second;
    session->dataTask(numbered(*peer, number, "/gather=2"), first.handler())->resume();
    session->dataTask(numbered(*peer, number + 1, "/gather=2"), second.handler())->resume();
    ASSERT_EQ(first.wait().text(), answerTo(number));
    ASSERT_EQ(second.wait().text(), answerTo(number + 1));
  }
}

INSTANTIATE_TEST_SUITE_P(Servers, SharedConnectionTest,
                         Combine(Values(Software::go), Values("127.0.0.1", "::1"),
                                 Values("1.2", "1.3")),
                         nameOf);

}  // namespace
}  // namespace kvl::testing
