// A private session bus on which the channel's tests run, with a notary that obeys its requests.
#pragma once

#include "platform/ipc/BusTransport.h"
#include "tests/ipc/CallRecorder.h"
#include "tests/support/PrivateBus.h"

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>

namespace kvltest {

inline constexpr const char* kNotaryName = "korvale.vandrel.local.notary";

class NotaryBusFixture : public testing::Test {
 protected:
  void startNotary();
  // Has the bus start the notary when it is called.
  void makeNotaryActivatable(const std::string& command = KVL_FAKE_NOTARY);

  [[nodiscard]] static std::shared_ptr<kvl::ipc::ServiceConnection> makeConnection(
      kvl::ipc::BusOptions options = {});
  // Sends over a connection of its own, waits for the end and lets go of the connection.
  [[nodiscard]] static std::shared_ptr<CallRecorder> callAndWait(
      const kvl::Dictionary& request, const std::optional<std::string>& path = std::nullopt,
      kvl::ipc::BusOptions options = {});
  // How many requests have reached the notary, the one that asks included.
  [[nodiscard]] static std::int64_t requestsSeen();

  // Blocks until the notary has seen one request beside those of this function.
  static void waitForOneOtherRequest();

  PrivateBus bus_;
  SessionBusVariable variable_{bus_.address()};
  ChildProcess notary_;
};

// A channel failure with its texts in place.
void expectFailure(const CallRecorder& recorder, std::string_view domain, std::int64_t code);

}  // namespace kvltest
