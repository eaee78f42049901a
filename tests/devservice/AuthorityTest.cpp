#include "devservice/Authority.h"
#include "tests/devservice/MadeRequest.h"
#include "tests/support/PrivateBus.h"

#include <gtest/gtest.h>
#include <openssl/x509v3.h>
#include <sys/stat.h>

#include <filesystem>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace kvltest {
namespace {

using devservice::Authority;
using devservice::CertificatePtr;
using devservice::StateDirectory;

class AuthorityTest : public testing::Test {
 protected:
  TemporaryDirectory temporary_;
  StateDirectory state_{temporary_.path() / "state"};
};

mode_t modeOf(const std::filesystem::path& path) {
  struct stat status{};
  stat(path.c_str(), &status);
  return status.st_mode & 0777U;
}

TEST_F(AuthorityTest, IsKeptUntilItIsReplaced) {
  const std::string first = Authority::open(state_).anchorPem();
  EXPECT_EQ(Authority::open(state_).anchorPem(), first);
  const std::string second = Authority::replace(state_).anchorPem();
  EXPECT_NE(second, first);
  EXPECT_EQ(Authority::open(state_).anchorPem(), second);
}

TEST_F(AuthorityTest, FilesAreTheOwnersOnly) {
  (void)Authority::open(state_);
  EXPECT_EQ(modeOf(temporary_.path() / "state"), 0700u);
  EXPECT_EQ(modeOf(state_.file("ca.key")), 0600u);
  EXPECT_EQ(modeOf(state_.file("ca.pem")), 0600u);
}

TEST_F(AuthorityTest, DirectoryOpenToOthersIsRefused) {
  std::filesystem::permissions(temporary_.path() / "state", std::filesystem::perms::all);
  EXPECT_THROW(StateDirectory(temporary_.path() / "state"), std::runtime_error);
}

TEST_F(AuthorityTest, DamagedAuthorityIsReplaced) {
  const std::string first = Authority::open(state_).anchorPem();
  state_.write("ca.key", "rubbish");
  const std::string second = Authority::open(state_).anchorPem();
  EXPECT_NE(second, first);
  state_.write("ca.pem", first);  // of another key
  EXPECT_NE(Authority::open(state_).anchorPem(), first);
}

TEST_F(AuthorityTest, TwoMayBeFirst) {
  std::vector<std::string> anchors(8);
  std::vector<std::thread> threads;
  for (std::string& anchor : anchors)
    threads.emplace_back([&] { anchor = Authority::open(state_).anchorPem(); });
  for (std::thread& thread : threads) thread.join();
  for (const std::string& anchor : anchors) EXPECT_EQ(anchor, anchors.front());
}

TEST_F(AuthorityTest, ClientCertificateIsForTheKeyAndForClients) {
  const Authority authority = Authority::open(state_);
  const devservice::KeyPtr key = makeRSAKey();
  const CertificatePtr made =
      authority.issueClient(key.get(), "kvlocal client", std::chrono::hours(1));
  EXPECT_EQ(X509_check_private_key(made.get(), key.get()), 1);
  EXPECT_EQ(X509_check_issued(authority.certificate(), made.get()), X509_V_OK);
  EXPECT_EQ(X509_check_purpose(made.get(), X509_PURPOSE_SSL_CLIENT, 0), 1);
  EXPECT_EQ(X509_check_purpose(made.get(), X509_PURPOSE_SSL_SERVER, 0), 0);
  EXPECT_LT(X509_cmp_current_time(X509_get0_notBefore(made.get())), 0);
  EXPECT_GT(X509_cmp_current_time(X509_get0_notAfter(made.get())), 0);
  const CertificatePtr other =
      authority.issueClient(key.get(), "kvlocal client", std::chrono::hours(1));
  EXPECT_NE(
      ASN1_INTEGER_cmp(X509_get0_serialNumber(made.get()), X509_get0_serialNumber(other.get())), 0);
}

TEST_F(AuthorityTest, OverlongNameIsCutBetweenCharacters) {
  const devservice::KeyPtr key = makeRSAKey();
  std::string name = "x";
  for (int count = 0; count < 60; ++count) name += "ü";
  const CertificatePtr made =
      Authority::open(state_).issueClient(key.get(), name, std::chrono::hours(1));
  const X509_NAME* subject = X509_get_subject_name(made.get());
  const ASN1_STRING* text = X509_NAME_ENTRY_get_data(X509_NAME_get_entry(subject, 0));
  unsigned char* utf8 = nullptr;
  const int size = ASN1_STRING_to_UTF8(&utf8, text);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(utf8), static_cast<std::size_t>(size)),
            name.substr(0, 63));
  OPENSSL_free(utf8);
}

TEST_F(AuthorityTest, ServerCertificateNamesItsHosts) {
  const devservice::KeyPtr key = makeRSAKey();
  const CertificatePtr made =
      Authority::open(state_).issueServer(key.get(), {"localhost", "127.0.0.1", "::1"},
                                          {devservice::kClockTolerance, std::chrono::hours(1)});
  EXPECT_EQ(X509_check_host(made.get(), "localhost", 0, 0, nullptr), 1);
  EXPECT_EQ(X509_check_ip_asc(made.get(), "127.0.0.1", 0), 1);
  EXPECT_EQ(X509_check_ip_asc(made.get(), "::1", 0), 1);
  EXPECT_EQ(X509_check_host(made.get(), "other.example", 0, 0, nullptr), 0);
  EXPECT_EQ(X509_check_purpose(made.get(), X509_PURPOSE_SSL_SERVER, 0), 1);
}

}  // namespace
}  // namespace kvltest
