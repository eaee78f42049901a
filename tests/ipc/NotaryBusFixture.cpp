#include "tests/ipc/NotaryBusFixture.h"

namespace kvltest {

using kvl::ipc::ServiceConnection;

void NotaryBusFixture::startNotary() {
  notary_ = ChildProcess({KVL_FAKE_NOTARY},
                         environmentWith({"DBUS_SESSION_BUS_ADDRESS=" + bus_.address()}),
                         bus_.directory() / "notary.log");
  bus_.waitForName(kNotaryName);
}

void NotaryBusFixture::makeNotaryActivatable(const std::string& command) {
  bus_.addService(kNotaryName, command);
}

std::shared_ptr<ServiceConnection> NotaryBusFixture::makeConnection(kvl::ipc::BusOptions options) {
  return kvl::ipc::makeBusConnection(kNotaryName, options);
}

std::shared_ptr<CallRecorder> NotaryBusFixture::callAndWait(const kvl::Dictionary& request,
                                                            const std::optional<std::string>& path,
                                                            kvl::ipc::BusOptions options) {
  const auto connection = makeConnection(options);
  auto recorder = CallRecorder::create();
  connection->activate();
  recorder->send(*connection, path, request);
  recorder->waitForEnd();
  return recorder;
}

std::int64_t NotaryBusFixture::requestsSeen() {
  const auto recorder = callAndWait({});
  return recorder->reply().value_or(kvl::Dictionary{})["requests"].integer().value_or(-1);
}

void NotaryBusFixture::waitForOneOtherRequest() {
  for (std::int64_t own = 1; requestsSeen() <= own; ++own) {
  }
}

void expectFailure(const CallRecorder& recorder, std::string_view domain, std::int64_t code) {
  const std::optional<kvl::Error> error = recorder.channelError();
  ASSERT_TRUE(error.has_value());
  EXPECT_EQ(error->domain(), domain) << error->description();
  EXPECT_EQ(error->code(), code) << error->description();
  EXPECT_TRUE(error->userInfo()[kvl::NSLocalizedDescriptionKey].string().has_value());
  EXPECT_TRUE(error->userInfo()[kvl::NSLocalizedFailureReasonErrorKey].string().has_value());
}

}  // namespace kvltest
