// A program of another user that owns the notary's name.
#include "platform/ipc/BusTransport.h"
#include "tests/ipc/NotaryBusFixture.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <filesystem>

namespace kvltest {
namespace {

constexpr std::uint32_t kOtherUser = 65534;

class AnotherUsersNotaryTest : public testing::Test {
 protected:
  void SetUp() override {
    if (geteuid() != 0) GTEST_SKIP() << "only root can start a program of another user";
    // The other user need not be able to read the build tree.
    const auto program = bus_.directory() / "notary";
    std::filesystem::copy_file(KVL_FAKE_NOTARY, program);
    const std::string id = std::to_string(kOtherUser);
    notary_ = ChildProcess(
        {"setpriv", "--reuid=" + id, "--regid=" + id, "--clear-groups", "--", program.string()},
        environmentWith({"DBUS_SESSION_BUS_ADDRESS=" + bus_.address()}),
        bus_.directory() / "notary.log");
    bus_.waitForName(kNotaryName);
  }

  [[nodiscard]] static std::shared_ptr<CallRecorder> call(kvl::ipc::BusOptions options = {}) {
    const auto connection = kvl::ipc::makeBusConnection(kNotaryName, options);
    auto recorder = CallRecorder::create();
    connection->activate();
    recorder->send(*connection, std::nullopt, {{"csr", "a request"}});
    recorder->waitForEnd();
    return recorder;
  }

  const PrivateBus bus_{{}, PrivateBus::Users::all};
  const SessionBusVariable variable_{bus_.address()};
  ChildProcess notary_;
};

TEST_F(AnotherUsersNotaryTest, NeverSeesARequest) {
  const auto refused = call();
  ASSERT_TRUE(refused->channelError());
  expectFailure(*refused, kvl::NSCocoaErrorDomain, 4099);
  EXPECT_EQ(refused->channelError()->localizedFailureReason(),
            "The service of this name belongs to another user.");
  // To those who trust that user it answers, and says that this is the first request.
  kvl::ipc::BusOptions trusting;
  trusting.trustedUser = kOtherUser;
  const auto reply = call(trusting)->reply();
  ASSERT_TRUE(reply);
  EXPECT_EQ((*reply)["requests"].integer(), 1);
}

}  // namespace
}  // namespace kvltest
