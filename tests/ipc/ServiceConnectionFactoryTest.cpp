#include "platform/ipc/BusServiceConnection.h"
#include "platform/ipc/ServiceConnection.h"

#include <gtest/gtest.h>

namespace kvltest {
namespace {

using kvl::ipc::BusServiceConnection;
using kvl::ipc::makeServiceConnection;

TEST(ServiceConnectionFactoryTest, MakesTheRealChannel) {
  EXPECT_NE(dynamic_cast<BusServiceConnection*>(makeServiceConnection("a.b").get()), nullptr);
}

}  // namespace
}  // namespace kvltest
