#include "platform/ipc/CallConnection.h"
#include "platform/ipc/ServiceConnection.h"

#include <gtest/gtest.h>

namespace kvltest {
namespace {

using kvl::ipc::CallConnection;
using kvl::ipc::makeServiceConnection;

TEST(ServiceConnectionFactoryTest, MakesTheRealChannel) {
  EXPECT_NE(dynamic_cast<CallConnection*>(makeServiceConnection("a.b").get()), nullptr);
}

}  // namespace
}  // namespace kvltest
