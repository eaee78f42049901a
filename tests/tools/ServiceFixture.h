// The program beside the development notary and service.
#pragma once

#include "tests/tools/ProgramFixture.h"

#include <functional>
#include <string>

namespace kvltest {

class ServiceTest : public ProgramTest {
 protected:
  static constexpr auto kDocument = "/bytes.bin";
  static const std::string kDocumentBytes;

  // Starts a bus with a key store, the service and the notary.
  void SetUp() override;

  // The session bus that all of them are on.
  [[nodiscard]] const std::string& busAddress() const { return bus_.address(); }

  // The path of a new file with these bytes.
  std::string file(const std::string& name, const std::string& bytes) const;

  // Starts the notary anew, with these options.
  void restartNotary(const Arguments& options);
  void killService() { service_.kill(); }
  // Kills the service and returns when the next one listens.
  void restartService();

  // Waits until what the notary has logged is as it should be; false when it will not be.
  [[nodiscard]] bool waitForNotaryLog(const std::function<bool(const std::string& log)>& condition);

  // Waits until the service has logged `part` so many times; false when it will not.
  [[nodiscard]] bool waitForServiceLog(const std::string& part, int times = 1);

  // What the notary and the service have logged so far.
  std::string notaryLog() const;
  std::string serviceLog() const;

 private:
  // Returns when it listens.
  void startService();
  void startNotary(const Arguments& options);
  std::string state() const { return directory.path() / "state"; }

  PrivateBus bus_;
  ChildProcess service_;
  ChildProcess notary_;
};

}  // namespace kvltest
