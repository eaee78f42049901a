// The key pair of a session object's own session.
#include "tests/qt/Patience.h"
#include "tests/support/PrivateBus.h"
#include "tests/support/QtApplication.h"

#include <local/KVLNotary.h>
#include <local/platform/HostApplication.h>
#include <local/platform/Semaphore.h>
#include <local/qt/SessionObject.h>

#include <gtest/gtest.h>
#include <unistd.h>

#include <QTest>
#include <chrono>
#include <memory>
#include <string>

namespace {

using kvl::qt::SessionObject;

// With a key store that does not answer meanwhile.
TEST(SessionObjectKeysTest, TheGUIThreadDoesNotWaitForThem) {
  kvltest::PrivateBus bus;
  bus.startKeyring();
  const kvltest::SessionBusVariable variable(bus.address());
  kvl::setHostIdentifier("org.example.SessionObjectKeysTest-" + std::to_string(getpid()));
  const kvltest::QtApplication application;
  bus.freezeKeyring();
  auto object = std::make_unique<SessionObject>();
  const auto session = object->session();
  EXPECT_FALSE(KVLNotary::sharedNotaryInBackground()->hasKeys());
  QCoreApplication::processEvents();
  EXPECT_FALSE(KVLNotary::sharedNotaryInBackground()->hasKeys());
  bus.thawKeyring();
  // With them it looks for a notary, and there is none.
  const auto isDisconnected = [&] { return object->state() == SessionObject::Disconnected; };
  EXPECT_TRUE(QTest::qWaitFor(isDisconnected, kvltest::kPatience));
  EXPECT_TRUE(KVLNotary::sharedNotaryInBackground()->hasKeys());
  object.reset();
  kvl::Semaphore ended;
  session->end([&](const auto&) { ended.signal(); });
  EXPECT_TRUE(ended.waitFor(std::chrono::milliseconds(kvltest::kPatience)));
  EXPECT_FALSE(KVLNotary::deleteKeys());
}

}  // namespace
