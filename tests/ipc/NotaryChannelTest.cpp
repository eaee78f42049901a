// How the channel is made and what a caller sees when it fails.
#include "tests/ipc/NotaryBusFixture.h"
#include "tests/support/WaitUntil.h"

#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <filesystem>
#include <iterator>
#include <vector>

namespace kvltest {
namespace {

using kvl::Dictionary;
using testing::ElementsAre;

using NotaryChannelTest = NotaryBusFixture;

constexpr std::chrono::milliseconds kShortLimit{200};

kvl::ipc::BusOptions limitedTo(std::chrono::milliseconds limit) {
  kvl::ipc::BusOptions options;
  options.replyTimeLimit = limit;
  return options;
}

// Accepts connections in the kernel's queue and says nothing.
class SilentSocket {
 public:
  explicit SilentSocket(const std::string& path) : socket_(socket(AF_UNIX, SOCK_STREAM, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    bind(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    listen(socket_, 8);
  }
  ~SilentSocket() { close(socket_); }
  SilentSocket(const SilentSocket&) = delete;
  SilentSocket& operator=(const SilentSocket&) = delete;

 private:
  int socket_;
};

TEST_F(NotaryChannelTest, UnknownNameCannotBeReached) {
  const auto recorder = callAndWait({});
  expectFailure(*recorder, kvl::NSCocoaErrorDomain, 4099);
  ASSERT_TRUE(recorder->waitForEvents(2));
  EXPECT_THAT(recorder->events(), ElementsAre("error", "invalidation"));
  EXPECT_TRUE(recorder->channelError()->userInfo().contains(kvl::NSDebugDescriptionErrorKey));
}

TEST_F(NotaryChannelTest, ServiceIsStartedOnTheFirstCall) {
  makeNotaryActivatable();
  EXPECT_TRUE(callAndWait({})->reply().has_value());
  EXPECT_EQ(requestsSeen(), 2);
}

TEST_F(NotaryChannelTest, ServiceThatCannotBeStartedCannotBeReached) {
  for (const char* command : {"/nonexistent/notary", "/bin/false"}) {
    SCOPED_TRACE(command);
    makeNotaryActivatable(command);
    const auto recorder = callAndWait({});
    expectFailure(*recorder, kvl::NSCocoaErrorDomain, 4099);
    ASSERT_TRUE(recorder->waitForEvents(2));
    EXPECT_THAT(recorder->events(), ElementsAre("error", "invalidation"));
  }
}

TEST_F(NotaryChannelTest, ServiceThatEndsInMidCallInterruptsAndIsStartedAgain) {
  makeNotaryActivatable();
  const auto recorder = callAndWait({{"act", "exit"}});
  expectFailure(*recorder, kvl::NSCocoaErrorDomain, 4097);
  EXPECT_THAT(recorder->events(), ElementsAre("interruption", "error"));
  EXPECT_EQ(requestsSeen(), 1);
}

TEST_F(NotaryChannelTest, KilledServiceInterrupts) {
  startNotary();
  const auto connection = makeConnection();
  const auto recorder = CallRecorder::create();
  connection->activate();
  recorder->send(*connection, std::nullopt, {{"act", "hang"}});
  waitForOneOtherRequest();
  notary_.kill();
  recorder->waitForEnd();
  expectFailure(*recorder, kvl::NSCocoaErrorDomain, 4097);
  EXPECT_THAT(recorder->events(), ElementsAre("interruption", "error"));
}

TEST_F(NotaryChannelTest, DyingBusInterruptsAndTheProcessLivesOn) {
  startNotary();
  const auto connection = makeConnection();
  const auto recorder = CallRecorder::create();
  connection->activate();
  recorder->send(*connection, std::nullopt, {{"act", "hang"}});
  waitForOneOtherRequest();
  bus_.stop();
  recorder->waitForEnd();
  expectFailure(*recorder, kvl::NSCocoaErrorDomain, 4097);
  EXPECT_THAT(recorder->events(), ElementsAre("interruption", "error"));
  expectFailure(*callAndWait({}), kvl::NSCocoaErrorDomain, 4099);
}

TEST_F(NotaryChannelTest, NoBusCannotBeReached) {
  const std::vector<std::string> addresses{"unix:path=/nonexistent/bus", "rubbish", "unix:"};
  for (const std::string& address : addresses) {
    SCOPED_TRACE(address);
    const SessionBusVariable nowhere(address);
    const auto recorder = callAndWait({});
    expectFailure(*recorder, kvl::NSCocoaErrorDomain, 4099);
    ASSERT_TRUE(recorder->waitForEvents(2));
    EXPECT_THAT(recorder->events(), ElementsAre("error", "invalidation"));
  }
}

TEST_F(NotaryChannelTest, BusIsFoundInTheRuntimeDirectory) {
  startNotary();
  const SessionBusVariable unset("");
  setenv("XDG_RUNTIME_DIR", bus_.directory().c_str(), 1);
  EXPECT_EQ(requestsSeen(), 1);
  unsetenv("XDG_RUNTIME_DIR");
}

TEST_F(NotaryChannelTest, ServiceThatHangsIsGivenUp) {
  startNotary();
  const auto recorder = callAndWait({{"act", "hang"}}, std::nullopt, limitedTo(kShortLimit));
  expectFailure(*recorder, kvl::NSPOSIXErrorDomain, kvl::kTimedOutPOSIXCode);
  EXPECT_THAT(recorder->events(), ElementsAre("error"));
}

TEST_F(NotaryChannelTest, ServiceThatHangsWhileItStartsIsGivenUp) {
  makeNotaryActivatable("/bin/sleep 600");
  const auto recorder = callAndWait({}, std::nullopt, limitedTo(kShortLimit));
  expectFailure(*recorder, kvl::NSPOSIXErrorDomain, kvl::kTimedOutPOSIXCode);
}

TEST_F(NotaryChannelTest, BusThatHangsIsGivenUp) {
  const std::string path = bus_.directory() / "silent";
  const SilentSocket silent(path);
  const SessionBusVariable address("unix:path=" + path);
  const auto recorder = callAndWait({}, std::nullopt, limitedTo(kShortLimit));
  expectFailure(*recorder, kvl::NSPOSIXErrorDomain, kvl::kTimedOutPOSIXCode);
}

// Those of the process.
std::size_t openDescriptors() {
  const std::filesystem::directory_iterator all("/proc/self/fd");
  return static_cast<std::size_t>(std::distance(begin(all), end(all)));
}

TEST_F(NotaryChannelTest, CallThatIsGivenUpLetsGoOfItsConnection) {
  const std::string path = bus_.directory() / "silent";
  const SilentSocket silent(path);
  startNotary();
  (void)requestsSeen();  // the reply thread has what it keeps
  const std::size_t before = openDescriptors();
  (void)callAndWait({{"act", "hang"}}, std::nullopt, limitedTo(kShortLimit));
  EXPECT_TRUE(waitUntil([=] { return openDescriptors() <= before; }));
  const SessionBusVariable address("unix:path=" + path);
  (void)callAndWait({}, std::nullopt, limitedTo(kShortLimit));
  EXPECT_TRUE(waitUntil([=] { return openDescriptors() <= before; }));
}

TEST_F(NotaryChannelTest, OwnerOfAnotherUserNeverSeesTheRequest) {
  startNotary();
  kvl::ipc::BusOptions options;
  options.trustedUser = getuid() + 1;
  const auto recorder = callAndWait({}, std::nullopt, options);
  expectFailure(*recorder, kvl::NSCocoaErrorDomain, 4099);
  ASSERT_TRUE(recorder->waitForEvents(2));
  EXPECT_THAT(recorder->events(), ElementsAre("error", "invalidation"));
  EXPECT_EQ(recorder->channelError()->localizedFailureReason(),
            "The service of this name belongs to another user.");
  EXPECT_EQ(requestsSeen(), 1);
}

// By its name it could reach another one that has taken the name since the owner was looked at.
TEST_F(NotaryChannelTest, RequestIsSentToTheOwnerThatWasLookedAt) {
  startNotary();
  const auto reply = callAndWait({})->reply();
  ASSERT_TRUE(reply);
  EXPECT_THAT((*reply)["destination"].string().value_or(""), testing::StartsWith(":"));
}

TEST_F(NotaryChannelTest, NameWithoutTheObjectIsNoNotary) {
  const auto connection = kvl::ipc::makeBusConnection("org.freedesktop.DBus");
  const auto recorder = CallRecorder::create();
  connection->activate();
  recorder->send(*connection, std::nullopt, {});
  recorder->waitForEnd();
  expectFailure(*recorder, kvl::NSCocoaErrorDomain, 4101);
}

TEST_F(NotaryChannelTest, TimeLimitEndsWithTheCall) {
  startNotary();
  const auto connection = makeConnection(limitedTo(kShortLimit));
  const auto recorder = CallRecorder::create();
  connection->activate();
  recorder->send(*connection, std::nullopt, {});
  recorder->waitForEnd();
  const auto later = callAndWait({{"act", "hang"}}, std::nullopt, limitedTo(2 * kShortLimit));
  EXPECT_THAT(recorder->events(), ElementsAre("reply"));
}

}  // namespace
}  // namespace kvltest
