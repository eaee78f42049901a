// The program beside the development notary and service.
#pragma once

#include "tests/tools/ProgramFixture.h"

#include <cstddef>
#include <functional>
#include <string>

namespace kvltest {

class ServiceTest : public ProgramTest {
 protected:
  static constexpr auto kDocument = "/bytes.bin";
  static const std::string kDocumentBytes;

  // Starts the service. The bus with a key store and the notary are there already, made by the
  // first test of the program; a notary with options is replaced by the usual one.
  void SetUp() override;

  // The session bus that all of them are on.
  [[nodiscard]] static const std::string& busAddress();

  // The path of a new file with these bytes.
  std::string file(const std::string& name, const std::string& bytes) const;

  // Starts the notary anew, with these options.
  void restartNotary(const Arguments& options);
  // There is no notary until one is started with `restartNotary`.
  static void stopNotary();
  void killService() { service_.kill(); }
  // Kills the service and returns when the next one listens.
  void restartService();

  // Waits until what the notary has logged is as it should be; false when it will not be.
  [[nodiscard]] bool waitForNotaryLog(const std::function<bool(const std::string& log)>& condition);

  // Waits until the service has logged `part` so many times; false when it will not.
  [[nodiscard]] bool waitForServiceLog(const std::string& part, int times = 1);

  // What the notary and the service have logged in this test so far.
  std::string notaryLog() const;
  std::string serviceLog() const;

 private:
  // Returns when it listens.
  void startService();
  void startNotary(const Arguments& options);

  ChildProcess service_;
  std::size_t notaryLogStart_ = 0;
};

}  // namespace kvltest
