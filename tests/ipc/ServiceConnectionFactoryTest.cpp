#include "platform/ipc/CallConnection.h"
#include "platform/ipc/ServiceConnection.h"
#include "tests/ipc/NotaryBusFixture.h"

namespace kvltest {
namespace {

using kvl::Dictionary;
using kvl::ipc::CallConnection;
using kvl::ipc::makeServiceConnection;

class ServiceConnectionFactoryTest : public NotaryBusFixture {};

TEST_F(ServiceConnectionFactoryTest, MakesTheRealChannel) {
  EXPECT_NE(dynamic_cast<CallConnection*>(makeServiceConnection("a.b").get()), nullptr);
}

TEST_F(ServiceConnectionFactoryTest, ItsConnectionsCallTheServiceOnTheSessionBus) {
  startNotary();
  const auto connection = makeServiceConnection(kNotaryName);
  const auto recorder = CallRecorder::create();
  connection->activate();
  recorder->send(*connection, "/path", {{"key", "value"}});
  recorder->waitForEnd();
  EXPECT_EQ(recorder->channelError(), std::nullopt);
  EXPECT_EQ(recorder->replyError(), std::nullopt);
  const Dictionary reply = recorder->reply().value_or(Dictionary{});
  EXPECT_EQ(reply["path"], kvl::Value(kvl::Array{"/path"}));
  EXPECT_EQ(reply["request"], kvl::Value(Dictionary{{"key", "value"}}));
  EXPECT_EQ(reply["requests"].integer(), 1);
}

}  // namespace
}  // namespace kvltest
