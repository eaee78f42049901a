// What a request does at each of its steps over the bus, and what a failure there is called.
#include "platform/ipc/BusTransport.h"
#include "tests/ipc/CallRecorder.h"
#include "tests/ipc/ScriptedBus.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

namespace kvltest {
namespace {

using testing::ElementsAre;

constexpr const char* kFind = "GetNameOwner to org.freedesktop.DBus";
constexpr const char* kStart = "StartServiceByName to org.freedesktop.DBus";
constexpr const char* kCheck = "GetConnectionUnixUser to org.freedesktop.DBus";
constexpr const char* kSend = "SendNotary to :1.7";

constexpr std::string_view kUnreachable = "The service “a.b” cannot be reached.";
constexpr std::string_view kInterrupted = "The connection to the service “a.b” was interrupted.";
constexpr std::string_view kSilent = "The service “a.b” does not answer.";
constexpr std::string_view kStrange =
    "The service “a.b” and this program do not understand each other.";

// An error of GIO's own domain, as GIO puts it on the wire.
std::string gioError(int code) {
  return "org.gtk.GDBus.UnmappedGError.Quark._g_2dio_2derror_2dquark.Code" + std::to_string(code);
}

std::string busError(const char* name) {
  return std::string("org.freedesktop.DBus.Error.") + name;
}

class ChannelStepsTest : public testing::Test {
 protected:
  static std::shared_ptr<CallRecorder> callAndWait(const kvl::Dictionary& request = {}) {
    const auto connection = kvl::ipc::makeBusConnection("a.b");
    auto recorder = CallRecorder::create();
    connection->activate();
    recorder->send(*connection, std::nullopt, request);
    recorder->waitForEnd();
    return recorder;
  }

  ScriptedBus bus;
  const SessionBusVariable variable{bus.address()};
};

TEST_F(ChannelStepsTest, OwnerIsFoundAndCheckedAndGetsTheRequestByItsUniqueName) {
  EXPECT_THAT(callAndWait()->events(), ElementsAre("reply"));
  EXPECT_THAT(bus.calls(), ElementsAre(kFind, kCheck, kSend));
}

TEST_F(ChannelStepsTest, ServiceIsStartedWhenItsNameHasNoOwnerAndIsThenLookedForOnce) {
  bus.fail("GetNameOwner", {busError("NameHasNoOwner")});
  EXPECT_THAT(callAndWait()->events(), ElementsAre("reply"));
  EXPECT_THAT(bus.calls(), ElementsAre(kFind, kStart, kFind, kCheck, kSend));
}

TEST_F(ChannelStepsTest, OwnerThatLeavesIsLookedForOnceMore) {
  for (const char* step : {"GetConnectionUnixUser", "SendNotary"}) {
    ScriptedBus another;
    const SessionBusVariable itsAddress(another.address());
    another.fail(step, {busError(step[0] == 'G' ? "NameHasNoOwner" : "ServiceUnknown")});
    EXPECT_THAT(callAndWait()->events(), ElementsAre("reply")) << step;
    const auto calls = another.calls();
    EXPECT_EQ(std::count(calls.begin(), calls.end(), kFind), 2) << step;
    EXPECT_EQ(std::count(calls.begin(), calls.end(), kStart), 0) << step;
  }
}

TEST_F(ChannelStepsTest, OwnerThatLeavesAgainIsGivenUp) {
  const auto gone = busError("NameHasNoOwner");
  bus.fail("GetConnectionUnixUser", {gone, gone, gone});
  const auto error = callAndWait()->channelError();
  ASSERT_TRUE(error);
  EXPECT_TRUE(error->is(kvl::NSCocoaErrorDomain, kvl::NSXPCConnectionInvalid));
  EXPECT_THAT(bus.calls(), ElementsAre(kFind, kCheck, kFind, kCheck));
}

TEST_F(ChannelStepsTest, StartedServiceThatHasNoNameIsUnknown) {
  const auto gone = busError("NameHasNoOwner");
  bus.fail("GetNameOwner", {gone, gone, gone});
  const auto error = callAndWait()->channelError();
  ASSERT_TRUE(error);
  EXPECT_EQ(error->localizedFailureReason(),
            "No service of this name is known to the session bus.");
  EXPECT_THAT(bus.calls(), ElementsAre(kFind, kStart, kFind));
}

TEST_F(ChannelStepsTest, NothingMoreIsAskedOfABusThatFailed) {
  bus.fail("GetNameOwner", {busError("AccessDenied")});
  (void)callAndWait();
  EXPECT_THAT(bus.calls(), ElementsAre(kFind));
  bus.fail("GetNameOwner", {busError("NameHasNoOwner")});
  bus.fail("StartServiceByName", {busError("Spawn.ChildExited")});
  (void)callAndWait();
  EXPECT_THAT(bus.calls(), ElementsAre(kFind, kFind, kStart));
}

TEST_F(ChannelStepsTest, RequestThatTheWireCannotCarryAsksTheBusNothing) {
  const auto error = callAndWait({{"k", nullptr}})->channelError();
  ASSERT_TRUE(error);
  EXPECT_TRUE(error->is(kvl::NSCocoaErrorDomain, kvl::NSXPCConnectionReplyInvalid));
  EXPECT_EQ(error->localizedFailureReason(),
            "The request holds a value that the channel cannot carry.");
  EXPECT_EQ(error->localizedDescription(), kStrange);
  EXPECT_THAT(bus.calls(), ElementsAre());
}

struct FailedStep {
  const char* step;
  std::string name;
  std::int64_t code;
  std::string_view description;
  std::string_view reason;
};

TEST_F(ChannelStepsTest, FailureIsCalledAfterTheStepAndTheBussReason) {
  constexpr std::string_view kNoBus = "The session bus cannot be used.";
  constexpr std::string_view kForbidden = "The session bus did not let the request through.";
  constexpr std::string_view kNotStarted = "The service could not be started.";
  constexpr std::string_view kUnknown = "No service of this name is known to the session bus.";
  constexpr std::string_view kLate = "The service did not answer in time.";
  constexpr std::string_view kEnded = "The service ended before it answered.";
  const std::vector<FailedStep> rows{
      {"GetNameOwner", busError("AccessDenied"), 4099, kUnreachable, kForbidden},
      {"GetNameOwner", busError("AuthFailed"), 4099, kUnreachable, kForbidden},
      {"GetNameOwner", busError("LimitsExceeded"), 4099, kUnreachable, kForbidden},
      {"GetNameOwner", busError("NoMemory"), 4099, kUnreachable, kForbidden},
      {"GetNameOwner", busError("Failed"), 4099, kUnreachable, kNoBus},
      {"GetNameOwner", busError("TimedOut"), 60, kSilent, kLate},
      {"GetNameOwner", "close", 4099, kUnreachable, kNoBus},
      {"GetNameOwner", gioError(G_IO_ERROR_TIMED_OUT), 60, kSilent, kLate},
      // The numbers of both domains overlap.
      {"GetNameOwner", gioError(G_DBUS_ERROR_SERVICE_UNKNOWN), 4099, kUnreachable, kNoBus},
      {"GetNameOwner", gioError(G_DBUS_ERROR_ACCESS_DENIED), 4099, kUnreachable, kNoBus},
      {"StartServiceByName", gioError(G_DBUS_ERROR_SPAWN_FAILED), 4099, kUnreachable, kNoBus},
      {"StartServiceByName", busError("UnixProcessIdUnknown"), 4099, kUnreachable, kNoBus},
      {"StartServiceByName", busError("ServiceUnknown"), 4099, kUnreachable, kUnknown},
      {"StartServiceByName", busError("Spawn.ExecFailed"), 4099, kUnreachable, kNotStarted},
      {"StartServiceByName", busError("Spawn.ChildSignaled"), 4099, kUnreachable, kNotStarted},
      {"StartServiceByName", busError("Spawn.NoMemory"), 4099, kUnreachable, kNotStarted},
      {"StartServiceByName", busError("MatchRuleInvalid"), 4099, kUnreachable, kNoBus},
      {"StartServiceByName", busError("Timeout"), 60, kSilent, kLate},
      {"GetConnectionUnixUser", busError("Failed"), 4099, kUnreachable, kNoBus},
      {"SendNotary", busError("NoReply"), 4097, kInterrupted, kEnded},
      {"SendNotary", busError("Disconnected"), 4097, kInterrupted, kEnded},
      {"SendNotary", busError("NoMemory"), 4099, kUnreachable, kForbidden},
      {"SendNotary", busError("AuthFailed"), 4099, kUnreachable, kForbidden},
      {"SendNotary", busError("TimedOut"), 60, kSilent, kLate},
      {"SendNotary", "close", 4097, kInterrupted,
       "The session bus went away before the service answered."},
      {"SendNotary", busError("InvalidArgs"), 4101, kStrange,
       "The service's reply has the wrong shape."},
  };
  for (const auto& [step, name, code, description, reason] : rows) {
    SCOPED_TRACE(step + (": " + name));
    ScriptedBus failing;
    const SessionBusVariable itsAddress(failing.address());
    if (std::string_view(step) == "StartServiceByName") {
      failing.fail("GetNameOwner", {busError("NameHasNoOwner")});
    }
    failing.fail(step, {name});
    const auto error = callAndWait()->channelError();
    ASSERT_TRUE(error);
    EXPECT_EQ(error->domain(), code == 60 ? kvl::NSPOSIXErrorDomain : kvl::NSCocoaErrorDomain);
    EXPECT_EQ(error->code(), code);
    EXPECT_EQ(error->localizedDescription(), description);
    EXPECT_EQ(error->localizedFailureReason(), reason);
    EXPECT_TRUE(error->userInfo()[kvl::NSDebugDescriptionErrorKey].string().has_value());
  }
}

}  // namespace
}  // namespace kvltest
