// A display of the test's own: an X server that shows its windows to nobody.
#pragma once

#include "tests/support/PrivateBus.h"

namespace kvltest {

// 1600 x 1200 pixels at 96 dots per inch, without a window manager. DISPLAY names it as long as it
// lives. Not while other threads read the environment.
class PrivateDisplay {
 public:
  // Returns when windows can be opened; throws std::runtime_error when the server does not start.
  PrivateDisplay();
  ~PrivateDisplay();
  PrivateDisplay(const PrivateDisplay&) = delete;
  PrivateDisplay& operator=(const PrivateDisplay&) = delete;

 private:
  TemporaryDirectory directory_;
  ChildProcess server_;
};

}  // namespace kvltest
