// A notarised session from end to end.
#include "tests/integration/LocalService.h"

#include <algorithm>

namespace {

using namespace kvltest;
using namespace std::chrono_literals;

class DevelopmentServiceTest : public LocalService {
 protected:
  void SetUp() override {
    offerNotary();
    startService();
  }
};

TEST_F(DevelopmentServiceTest, FetchesADocumentWithANotarisedIdentity) {
  establish();
  const auto signature = session->signature();
  ASSERT_NE(signature, nullptr);
  ASSERT_NE(signature->identity(), nullptr);
  EXPECT_EQ(signature->client()->issuer(), signature->anchor()->subject());
  const auto reply = get("status");
  EXPECT_FALSE(reply.error) << reply.error->description();
  EXPECT_EQ(reply.status(), 200);
  EXPECT_NE(reply.body().find("{"), std::string_view::npos);
  EXPECT_EQ(session->progress()->localizedDescription(), "Established");
}

TEST_F(DevelopmentServiceTest, ServiceSeesTheIdentityOfTheHost) {
  establish();
  const auto reply = get("echo?a=b");
  ASSERT_EQ(reply.status(), 200);
  const auto subject = session->signature()->client()->subject();
  const auto name = subject.substr(subject.find('=') + 1);
  EXPECT_NE(reply.body().find(name), std::string_view::npos) << reply.body();
}

TEST_F(DevelopmentServiceTest, SubmitsBodiesAndHeaders) {
  establish();
  kvl::URLRequest request("echo");
  request.setMethod("POST");
  request.headers().set("X-Colour", "green");
  request.setBody(kvl::Data::fromText("some body"));
  const auto reply = send(request);
  ASSERT_EQ(reply.status(), 200);
  for (const std::string_view part : {"POST", "green", "some body"}) {
    EXPECT_NE(reply.body().find(part), std::string_view::npos) << reply.body();
  }
}

TEST_F(DevelopmentServiceTest, RenewsBeforeTheIdentityExpires) {
  bus.removeService(kNotaryName);
  offerNotary("--lifetime 5");
  establish();
  const auto first = session->signature();
  ASSERT_TRUE(log.waitFor("notary signature valid until", 2, kPatience));
  // The completion of the second notarisation puts the new identity in place.
  ASSERT_EQ(get("status").status(), 200);
  ASSERT_TRUE(log.waitFor("notary signature valid until", 3, kPatience));
  EXPECT_NE(session->signature(), first);
  EXPECT_NE(session->signature()->client()->serialNumber(), first->client()->serialNumber());
  EXPECT_EQ(get("status").status(), 200);
  EXPECT_EQ(session->state(), KVLSessionStateEstablished);
}

TEST_F(DevelopmentServiceTest, BadRequestsNeverReachTheService) {
  establish();
  for (const std::string_view path : {"a b", "a\tb", "a\r\nb", "\x01", "caf\xc3\xa9"}) {
    EXPECT_TRUE(get(path).failedWith(kvl::NSURLErrorBadURL)) << path;
  }
  kvl::URLRequest injected("echo");
  injected.headers().set("X-Bad", "a\r\nX-Injected: b");
  const auto reply = send(injected);
  ASSERT_TRUE(reply.error);
  EXPECT_TRUE(reply.error->is(kvl::NSPOSIXErrorDomain, EINVAL));
  EXPECT_EQ(session->state(), KVLSessionStateEstablished);
  EXPECT_EQ(get("echo").body().find("X-Injected"), std::string_view::npos);
}

TEST_F(DevelopmentServiceTest, MinimumRequestGivesASignatureWithoutIdentity) {
  setenv("korvale_vandrel_notary_minimum", "1", 1);
  establish();
  unsetenv("korvale_vandrel_notary_minimum");
  EXPECT_EQ(session->signature()->identity(), nullptr);
  const auto reply = get("status");
  EXPECT_TRUE(reply.failedWith(kvl::NSURLErrorClientCertificateRequired))
      << kvl::describe(reply.error);
  // The next notarisation brings an identity again.
  ASSERT_TRUE(states->waitFor(KVLSessionStateEstablished, 2));
  EXPECT_EQ(get("status").status(), 200);
}

TEST_F(DevelopmentServiceTest, ManyRequestsAtOnceAllSucceed) {
  establish();
  constexpr int kRequests = 100;
  std::atomic<int> good = 0;
  kvl::Semaphore done;
  for (int i = 0; i < kRequests; ++i) {
    session->request(kvl::URLRequest("status"),
                     [&](auto&&, const kvl::URLResponseRef& response, auto&&) {
                       if (response && response->httpStatusCode == 200) ++good;
                       done.signal();
                     });
  }
  for (int i = 0; i < kRequests; ++i) ASSERT_TRUE(done.waitFor(kPatience));
  EXPECT_EQ(good, kRequests);
}

}  // namespace
