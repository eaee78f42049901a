#include "platform/ipc/BusServiceConnection.h"
#include "platform/ipc/ServiceConnection.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace kvltest {
namespace {

using kvl::ipc::BusServiceConnection;
using kvl::ipc::makeServiceConnection;
using kvl::ipc::ServiceConnection;
using kvl::ipc::setServiceConnectionFactory;

TEST(ServiceConnectionFactoryTest, RealChannelUnlessReplaced) {
  EXPECT_NE(dynamic_cast<BusServiceConnection*>(makeServiceConnection("a.b").get()), nullptr);
}

TEST(ServiceConnectionFactoryTest, ReplacementGetsTheNameAndCanBeTakenBack) {
  std::string asked;
  setServiceConnectionFactory([&](const std::string& name) {
    asked = name;
    return std::shared_ptr<ServiceConnection>();
  });
  EXPECT_EQ(makeServiceConnection("korvale.vandrel.local.notary"), nullptr);
  EXPECT_EQ(asked, "korvale.vandrel.local.notary");
  setServiceConnectionFactory({});
  EXPECT_NE(makeServiceConnection("a.b"), nullptr);
}

}  // namespace
}  // namespace kvltest
