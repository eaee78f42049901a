// What docs/guides/sandbox.md says of programs in a sandbox.
#include "tests/sandbox/Sandbox.h"
#include "tests/tools/ServiceFixture.h"

#include <gmock/gmock.h>

#include <stdexcept>

namespace {

using namespace kvltest;
using testing::HasSubstr;
using testing::Not;

constexpr auto kNotary = "korvale.vandrel.local.notary";
constexpr auto kSecrets = "org.freedesktop.secrets";
constexpr auto kSoon = "3";  // what waits for it in vain

class SandboxTest : public ServiceTest {
 protected:
  void SetUp() override {
    ServiceTest::SetUp();
    if (run({"-c", "bwrap --unshare-all --ro-bind / / true"}).exitCode != 0)
      GTEST_SKIP() << "nobody may make namespaces here, as in most containers";
  }
  Outcome runInside(const Permissions& permissions, const Arguments& command) {
    const BusProxy bus(busAddress(), permissions, directory.path());
    return run(sandboxed(bus, permissions, command, directory.path()));
  }
  Outcome client(const Permissions& permissions, const Arguments& arguments,
                 const char* seconds = "60") {
    Arguments command{KVL_CLIENT, "--verbose", "--timeout", seconds};
    command.insert(command.end(), arguments.begin(), arguments.end());
    return runInside(permissions, command);
  }

  const Permissions manifest = permissionsOf(KVL_MANIFEST);
};

TEST_F(SandboxTest, TheManifestAsksForTheNotaryAndTheNetworkOnly) {
  EXPECT_THAT(manifest.names, testing::ElementsAre(kNotary));
  EXPECT_TRUE(manifest.network);
}

TEST_F(SandboxTest, AManifestThatAsksForMoreIsRefused) {
  const auto wide = file("wide.json", R"({"finish-args": ["--filesystem=home"]})");
  EXPECT_THROW(permissionsOf(wide), std::runtime_error);
  EXPECT_THROW(permissionsOf(file("empty.json", "{}")), std::runtime_error);
}

TEST_F(SandboxTest, AHostTalksToTheServiceWithWhatTheManifestAsksFor) {
  const auto outcome = runInside(manifest, {KVL_MINIMAL});
  EXPECT_EQ(outcome.exitCode, 0) << outcome.errors;
  EXPECT_THAT(outcome.output, HasSubstr("kvlocal-devservice"));
}

TEST_F(SandboxTest, AHostsLogGoesToItsStandardError) {
  const auto outcome = runInside(manifest, {KVL_MINIMAL});
  EXPECT_THAT(outcome.errors, HasSubstr("key store: keys are kept in"));
}

TEST_F(SandboxTest, WithoutTheNotarysNameTheNotaryCannotBeReached) {
  const auto outcome = client({{kSecrets}, true}, {"status"}, kSoon);
  EXPECT_EQ(outcome.exitCode, 3);
  EXPECT_THAT(outcome.errors, HasSubstr("No service of this name is known to the session bus. "
                                        "[NSCocoaErrorDomain 4099]"));
}

TEST_F(SandboxTest, WithoutTheNetworkTheServiceIsOutOfReach) {
  const auto outcome = client({{kNotary}, false}, {"get", "/status"}, kSoon);
  EXPECT_EQ(outcome.exitCode, 4);
  EXPECT_THAT(outcome.errors, HasSubstr("[NSURLErrorDomain -1004]"));
}

TEST_F(SandboxTest, WithoutTheSecretServiceKeysAreInTheProcess) {
  const auto outcome = client(manifest, {"status"});
  EXPECT_EQ(outcome.exitCode, 0) << outcome.errors;
  EXPECT_THAT(outcome.errors, HasSubstr("key store: keys are kept in the process memory"));
}

TEST_F(SandboxTest, WithTheSecretServiceKeysAreInIt) {
  const auto outcome = client({{kNotary, kSecrets}, true}, {"status"});
  EXPECT_EQ(outcome.exitCode, 0) << outcome.errors;
  EXPECT_THAT(outcome.errors, Not(HasSubstr("key store:")));
}

TEST_F(SandboxTest, ImagesAreDecodedAndTheirDecoderIsConfinedAsUsual) {
  const auto outcome = client(manifest, {"image", "/icon/report"});
  EXPECT_EQ(outcome.exitCode, 0) << outcome.errors;
  EXPECT_THAT(outcome.errors, Not(HasSubstr("images:")));
}

}  // namespace
