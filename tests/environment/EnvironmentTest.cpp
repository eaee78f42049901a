#include "platform/environment/Environment.h"
#include "platform/ipc/CallConnection.h"

#include <gtest/gtest.h>

namespace {

using kvl::Environment;

TEST(EnvironmentTest, IsOneForTheProcess) {
  EXPECT_EQ(Environment::process(), Environment::process());
}

TEST(EnvironmentTest, TheProcessesOwnHasTheRealParts) {
  const Environment& own = *Environment::process();
  EXPECT_GT(own.now(), kvl::Date(7e8));
  EXPECT_EQ(own.keyStore(), kvl::security::defaultKeyStore());
  const auto connection = own.serviceConnection("a.b");
  EXPECT_NE(dynamic_cast<kvl::ipc::CallConnection*>(connection.get()), nullptr);
  EXPECT_EQ(own.serialQueue("s")->label(), "s");
  EXPECT_EQ(own.concurrentQueue("c")->label(), "c");
  EXPECT_EQ(own.frameworkQueue("f")->label(), "f");
  EXPECT_EQ(own.lookupQueue()->label(), "korvale.lookup");
  EXPECT_EQ(own.lookupQueue(), Environment().lookupQueue());
  EXPECT_NE(own.urlSession({}, {}), nullptr);
}

TEST(EnvironmentTest, TheProcessesOwnHasTheLimitsOfTheContract) {
  using namespace std::chrono_literals;
  const auto& limits = Environment::process()->limits;
  EXPECT_EQ(limits.eventStreamSilence, 3600s);
  EXPECT_EQ(limits.recoverableDelay, 5s);
  EXPECT_EQ(limits.defaultDelay, 15s);
  EXPECT_EQ(limits.reconnectionDelay, 1s);
}

TEST(EnvironmentTest, ReplacedPartsConcernNobodyElse) {
  Environment own;
  std::string asked;
  own.now = [] { return kvl::Date(42); };
  own.serviceConnection = [&](const std::string& name) {
    asked = name;
    return std::shared_ptr<kvl::ipc::ServiceConnection>();
  };
  EXPECT_EQ(own.now(), kvl::Date(42));
  EXPECT_EQ(own.serviceConnection("korvale.vandrel.local.notary"), nullptr);
  EXPECT_EQ(asked, "korvale.vandrel.local.notary");
  EXPECT_GT(Environment::process()->now(), kvl::Date(7e8));
  EXPECT_NE(Environment::process()->serviceConnection("a.b"), nullptr);
}

}  // namespace
