#include "platform/security/Operations.h"
#include "tests/notary/NotaryFixture.h"
#include "tests/notary/OwnKeys.h"
#include "tests/support/MadeCertificate.h"

#include <cerrno>
#include <cstdlib>

namespace {

using kvl::Array;
using kvl::Dictionary;
using kvl::Error;
using kvl::Value;
using kvltest::kURLs;

class NotaryTest : public kvltest::NotaryFixture {};

TEST_F(NotaryTest, MakesKeysAndRequestAtItsCreation) {
  const KVLNotary notary(std::nullopt, environment);
  ASSERT_NE(notary.privateKey(), nullptr);
  ASSERT_NE(notary.publicKey(), nullptr);
  EXPECT_EQ(notary.path(), std::nullopt);
  ASSERT_TRUE(notary.pemCertificateSigningRequest());
  EXPECT_TRUE(
      notary.pemCertificateSigningRequest()->starts_with("-----BEGIN CERTIFICATE REQUEST-----\n"));
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(NotaryTest, DestructionDeletesTheKeysButKeepsTheReferences) {
  std::weak_ptr<const kvl::Key> watch;
  {
    const KVLNotary notary(std::nullopt, environment);
    watch = notary.privateKey();
  }
  EXPECT_FALSE(watch.expired());
  std::vector<kvl::security::StoredKey> keys;
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
  (void)environment->keyStore()->find("org.example.NotaryTest", keys, deadline);
  EXPECT_TRUE(keys.empty());
}

TEST_F(NotaryTest, NotaryThatOwnsNoKeysDeletesNone) {
  class Keyless final : public KVLNotary {
   public:
    Keyless() : KVLNotary(WithoutKeys{}) {}
  };
  const kvltest::OwnKeys own("org.example.NotaryTest.keyless");
  ASSERT_FALSE(KVLNotary::createKeysPublic(nullptr, nullptr));
  {
    const Keyless notary;
  }
  std::vector<kvl::KeyRef> keys;
  EXPECT_EQ(kvl::security::SecItemCopyMatching(*kvl::security::defaultKeyStore(),
                                               KVLNotary::keyQuery(), keys),
            kvl::kSuccess);
  EXPECT_EQ(keys.size(), 1U);
}

TEST_F(NotaryTest, HostWithoutAnIdentifierGetsOneLogLineInAllItsTime) {
  kvl::setHostIdentifier("");
  {
    const KVLNotary notary(std::nullopt, environment);
  }
  EXPECT_EQ(log.lines(), std::vector<std::string>{"no host identifier: call "
                                                  "kvl::setHostIdentifier before the first notary "
                                                  "is made"});
}

TEST_F(NotaryTest, HostWithoutAnIdentifierGetsALogLineAndNoKeys) {
  kvl::setHostIdentifier("");
  KVLNotary notary(std::nullopt, environment);
  EXPECT_EQ(notary.privateKey(), nullptr);
  EXPECT_EQ(notary.pemCertificateSigningRequest(), std::nullopt);
  EXPECT_EQ(log.count("no host identifier"), 1U);
  script.reply = Dictionary{{"url", kURLs}};
  EXPECT_NE(notarise(notary).signature, nullptr);
  EXPECT_TRUE(script.request.empty());
}

// A store that refuses everything.
class RefusingStore final : public kvl::security::KeyStore {
 public:
  [[nodiscard]] std::string_view name() const noexcept override { return "refusing"; }
  [[nodiscard]] kvl::Status add(const kvl::security::StoredKey&, kvl::security::Deadline) override {
    return -25308;
  }
  [[nodiscard]] kvl::Status find(std::optional<std::string_view>,
                                 std::vector<kvl::security::StoredKey>&,
                                 kvl::security::Deadline) override {
    return -25308;
  }
  [[nodiscard]] kvl::Status remove(std::string_view, std::optional<kvl::Key::Class>,
                                   kvl::security::Deadline) override {
    return -25308;
  }
};

TEST_F(NotaryTest, KeyStoreFailuresAreLoggedAndCostTheKeys) {
  {
    const KVLNotary notary(std::nullopt, surroundings(std::make_shared<RefusingStore>()));
    EXPECT_EQ(notary.privateKey(), nullptr);
    EXPECT_EQ(notary.pemCertificateSigningRequest(), std::nullopt);
  }
  EXPECT_EQ(log.count("existing key deletion error: Error Domain=NSOSStatusErrorDomain"), 1U);
  EXPECT_EQ(log.count("key creation error: Error Domain=NSOSStatusErrorDomain Code=-25308"), 1U);
  EXPECT_EQ(log.lines().back().substr(0, 20), "key deletion error: ");
}

TEST_F(NotaryTest, SendsThePathAndTheRequestToTheService) {
  script.reply = Dictionary{{"url", kURLs}};
  const auto notary = shared();
  notary->setPath("/some/where");
  notarise(*notary);
  EXPECT_EQ(serviceName, "korvale.vandrel.local.notary");
  EXPECT_EQ(script.path, "/some/where");
  EXPECT_EQ(script.request, (Dictionary{{"csr", *notary->pemCertificateSigningRequest()}}));
  notary->setPath(std::nullopt);
  notarise(*notary);
  EXPECT_EQ(script.path, std::nullopt);
}

TEST_F(NotaryTest, RequestOfTheHostsOwnIsSentAsItIsAndItsAnswerHandedOver) {
  for (const bool fails : {false, true}) {
    script.steps.clear();
    script.reply = fails ? std::nullopt : std::optional(Dictionary{{"any", 1}});
    script.serviceError = fails ? std::optional(Error("service", 3)) : std::nullopt;
    int calls = 0;
    shared()->sendNotary("/else/where", {{"mine", true}},
                         [&](const auto& reply, const auto& error) {
                           ++calls;
                           EXPECT_EQ(reply, script.reply);
                           EXPECT_EQ(error, script.serviceError);
                           EXPECT_EQ(script.steps, std::vector<std::string>{"activate"});
                         });
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(script.path, "/else/where");
    EXPECT_EQ(script.request, (Dictionary{{"mine", true}}));
    EXPECT_EQ(script.steps, (std::vector<std::string>{"activate", "suspend", "invalidate"}));
  }
}

TEST_F(NotaryTest, EachRequestHasAConnectionOfItsOwn) {
  script.reply = Dictionary{{"url", kURLs}};
  notarise();
  notarise();
  EXPECT_EQ(script.connections, 2);
}

TEST_F(NotaryTest, StartsWithActivateFrom11AndWithResumeBefore) {
  script.reply = Dictionary{{"url", kURLs}};
  notarise();
  EXPECT_EQ(script.steps, (std::vector<std::string>{"activate", "suspend", "invalidate"}));
  script.steps.clear();
  kvl::setSystemVersion({10, 15});
  notarise();
  EXPECT_EQ(script.steps, (std::vector<std::string>{"resume", "suspend", "invalidate"}));
  EXPECT_EQ(log.count("xpc notary invalidated"), 2U);
}

TEST_F(NotaryTest, MinimumLeavesOutTheRequest) {
  script.reply = Dictionary{{"url", kURLs}};
  setenv("korvale_vandrel_notary_minimum", "1", 1);
  notarise();
  EXPECT_TRUE(script.request.empty());
  EXPECT_EQ(log.count("notary minimum"), 1U);
}

TEST_F(NotaryTest, AnyTextOfTheMinimumCounts) {
  script.reply = Dictionary{{"url", kURLs}};
  setenv("korvale_vandrel_notary_minimum", "0", 1);
  notarise();
  EXPECT_TRUE(script.request.empty());
}

TEST_F(NotaryTest, EmptyMinimumHasNoEffect) {
  script.reply = Dictionary{{"url", kURLs}};
  setenv("korvale_vandrel_notary_minimum", "", 1);
  notarise();
  EXPECT_TRUE(script.request.contains("csr"));
  EXPECT_EQ(log.count("notary minimum"), 0U);
}

TEST_F(NotaryTest, ChannelErrorIsLoggedAndHandedOver) {
  script.channelError = Error(kvl::NSCocoaErrorDomain, 4097);
  EXPECT_EQ(notarise().error, script.channelError);
  EXPECT_EQ(log.lines(),
            (std::vector<std::string>{"xpc notary interrupted",
                                      "xpc error: " + script.channelError->description(),
                                      "xpc notary invalidated"}));
  EXPECT_EQ(script.steps, (std::vector<std::string>{"activate", "suspend", "invalidate"}));
}

TEST_F(NotaryTest, ServiceErrorIsHandedOverUnchanged) {
  script.serviceError = Error("the.service", 7, {{"a", 1}});
  EXPECT_EQ(notarise().error, script.serviceError);
  EXPECT_EQ(log.count("xpc error"), 0U);
}

TEST_F(NotaryTest, ServiceErrorWinsOverAReply) {
  script.reply = Dictionary{{"url", kURLs}};
  script.serviceError = Error("the.service", 7);
  EXPECT_EQ(notarise().error, script.serviceError);
}

TEST_F(NotaryTest, ChoosesTheFirstSecureURLWithAHost) {
  script.reply = Dictionary{
      {"url", Array{"http://127.0.0.1:1/", "https://", "https://127.0.0.1:4321/x", "https://b/"}}};
  EXPECT_EQ(notarise().signature->baseURL()->absoluteString(), "https://127.0.0.1:4321/x");
}

TEST_F(NotaryTest, SkipsEverythingThatIsNoSecureURLWithAHost) {
  for (const Value& unusable :
       {Value(Array{}), Value(Array{"HTTPS://a/"}), Value(Array{"https:a"}), Value(Array{"a b"}),
        Value(Array{1, nullptr, Array{}}), Value("https://a/"), Value(nullptr), Value(1)}) {
    EXPECT_EQ(KVLNotary::baseURL(unusable), std::nullopt) << unusable.description();
  }
}

TEST_F(NotaryTest, ReplyWithoutAUsableURLFailsWithTheURLs) {
  script.reply = Dictionary{{"url", Array{"http://a/"}}};
  EXPECT_EQ(notarise().error,
            Error(kvl::NSPOSIXErrorDomain, -1002, {{"urls", Array{"http://a/"}}}));
}

TEST_F(NotaryTest, ReplyWithoutURLsSaysNull) {
  const Error expected(kvl::NSPOSIXErrorDomain, -1002, {{"urls", "null"}});
  script.reply = Dictionary{};
  EXPECT_EQ(notarise().error, expected);
  script.reply = std::nullopt;
  EXPECT_EQ(notarise().error, expected);
}

TEST_F(NotaryTest, GoodReplyMakesAWholeSignature) {
  KVLNotary fresh(std::nullopt, environment);
  const auto anchor = kvltest::certificateEnding(kvl::Date::now().adding(5000));
  script.reply =
      Dictionary{{"url", kURLs}, {"anchor", anchor->pem()}, {"certificate", certificateFor(fresh)}};
  const auto signature = notarise(fresh).signature;
  ASSERT_NE(signature, nullptr);
  EXPECT_EQ(signature->anchor()->encoded(), anchor->encoded());
  ASSERT_NE(signature->client(), nullptr);
  ASSERT_NE(signature->identity(), nullptr);
  EXPECT_EQ(signature->identity()->certificate(), signature->client());
  EXPECT_EQ(log.count("notary signature valid until"), 1U);
}

TEST_F(NotaryTest, EmptyAnchorGivesASignatureWithoutAnchorButWithIdentity) {
  KVLNotary fresh(std::nullopt, environment);
  script.reply = Dictionary{{"url", kURLs}, {"anchor", ""}, {"certificate", certificateFor(fresh)}};
  const auto signature = notarise(fresh).signature;
  ASSERT_NE(signature, nullptr);
  EXPECT_EQ(signature->anchor(), nullptr);
  EXPECT_NE(signature->identity(), nullptr);
}

TEST_F(NotaryTest, AnchorThatIsNoCertificateFails) {
  script.reply = Dictionary{{"url", kURLs}, {"anchor", "no certificate"}};
  const auto error = notarise().error;
  ASSERT_TRUE(error);
  EXPECT_EQ(error->domain(), kvl::NSPOSIXErrorDomain);
  EXPECT_EQ(error->code(), kvl::errSecUnknownFormat);
}

TEST_F(NotaryTest, ClientCertificateThatIsNoneIsLogged) {
  script.reply = Dictionary{{"url", kURLs}, {"certificate", "no certificate"}};
  const auto signature = notarise().signature;
  ASSERT_NE(signature, nullptr);
  EXPECT_EQ(signature->client(), nullptr);
  EXPECT_EQ(signature->identity(), nullptr);
  EXPECT_EQ(log.count("client certificate error: Error Domain=NSPOSIXErrorDomain"), 1U);
}

TEST_F(NotaryTest, CertificateForAnotherKeyGivesNoIdentity) {
  const auto other = kvltest::certificateEnding(kvl::Date::now().adding(5000));
  script.reply = Dictionary{{"url", kURLs}, {"certificate", other->pem()}};
  const auto signature = notarise().signature;
  ASSERT_NE(signature, nullptr);
  EXPECT_NE(signature->client(), nullptr);
  EXPECT_EQ(signature->identity(), nullptr);
  EXPECT_EQ(log.count("client identity error: Error Domain=NSPOSIXErrorDomain Code=-25300"), 1U);
}

TEST_F(NotaryTest, EntriesOfTheWrongTypeCountAsMissing) {
  script.reply = Dictionary{{"url", kURLs}, {"anchor", 5}, {"certificate", Array{}}};
  const auto signature = notarise().signature;
  ASSERT_NE(signature, nullptr);
  EXPECT_EQ(signature->anchor(), nullptr);
  EXPECT_EQ(signature->client(), nullptr);
}

TEST_F(NotaryTest, DecodingTakesTheFirstCertificateAndLeavesTheSlotAloneOtherwise) {
  const auto first = kvltest::certificateEnding(kvl::Date(8e8));
  const auto second = kvltest::certificateEnding(kvl::Date(9e8));
  kvl::CertificateRef slot;
  EXPECT_FALSE(KVLNotary::decode(first->pem() + second->pem(), &slot));
  EXPECT_EQ(slot->encoded(), first->encoded());
  EXPECT_FALSE(KVLNotary::decode(std::nullopt, &slot));
  EXPECT_FALSE(KVLNotary::decode("", &slot));
  EXPECT_TRUE(KVLNotary::decode("rubbish", &slot));
  EXPECT_EQ(slot->encoded(), first->encoded());
  EXPECT_FALSE(KVLNotary::decode(second->pem(), nullptr));
  EXPECT_TRUE(KVLNotary::decode("rubbish", nullptr));
}

TEST_F(NotaryTest, KeysOfRequestAndReplyAreWritable) {
  const std::string_view before = NotaryResponseKeyURL;
  EXPECT_EQ(before, "url");
  EXPECT_EQ(NotaryRequestKeyCertificateSigningRequest, "csr");
  EXPECT_EQ(NotaryResponseKeyAnchor, "anchor");
  EXPECT_EQ(NotaryResponseKeyCertificate, "certificate");
  NotaryResponseKeyURL = "addresses";
  script.reply = Dictionary{{"addresses", kURLs}};
  EXPECT_NE(notarise().signature, nullptr);
  NotaryResponseKeyURL = before;
}

TEST_F(NotaryTest, NotaryMayBeDestroyedInsideItsOwnHandler) {
  script.reply = Dictionary{{"url", kURLs}};
  auto notary = std::make_shared<KVLNotary>("p", environment);
  auto* raw = notary.get();
  bool called = false;
  raw->notariseWithCompletionHandler([&](auto&&...) {
    notary.reset();
    called = true;
  });
  EXPECT_TRUE(called);
}

// Whether it has a pair, of which both halves are in the process's key store, and a request.
bool hasKeys(const KVLNotary& notary) {
  auto query = KVLNotary::keyQuery();
  query.remove(kvl::security::kSecAttrKeyClass);
  query.set(kvl::security::kSecMatchLimit, kvl::security::kSecMatchLimitAll);
  std::vector<kvl::KeyRef> stored;
  const auto status =
      kvl::security::SecItemCopyMatching(*kvl::security::defaultKeyStore(), query, stored);
  return status == kvl::kSuccess && stored.size() == 2 && notary.publicKey() &&
         notary.privateKey() && notary.pemCertificateSigningRequest();
}

// Runs in a process of its own, since the shared notary is made once.
void showSharedNotary(const char* path) {
  path != nullptr ? setenv("korvale_vandrel_notary", path, 1) : unsetenv("korvale_vandrel_notary");
  kvl::setLogSink([](std::string_view line) {
    // Where they are kept depends on the machine.
    if (line.starts_with("key store: keys are kept in the ")) return;
    fprintf(stderr, "%s\n", std::string(line).c_str());
  });
  int result = 0;
  {
    const kvltest::OwnKeys own("org.example.NotaryTest.shared");
    const auto notary = KVLNotary::sharedNotary();
    if (notary != KVLNotary::sharedNotary()) result = 1;
    if (!hasKeys(*notary)) result = 2;
    fprintf(stderr, "path=%s.\n", kvl::describe(notary->path()).c_str());
  }
  _exit(testing::Test::HasFailure() ? 3 : result);
}

TEST_F(NotaryTest, SharedNotaryTakesItsPathFromTheEnvironment) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(showSharedNotary("/a/path"), testing::ExitedWithCode(0),
              "notary: /a/path\npath=/a/path\\.");
}

TEST_F(NotaryTest, SharedNotaryHasNoPathWithoutTheVariable) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(showSharedNotary(nullptr), testing::ExitedWithCode(0), "path=\\(null\\)\\.");
  EXPECT_EXIT(showSharedNotary(""), testing::ExitedWithCode(0), "path=\\(null\\)\\.");
}

}  // namespace
