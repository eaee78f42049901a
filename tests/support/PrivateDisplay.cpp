#include "tests/support/PrivateDisplay.h"

#include "tests/support/Pipe.h"

#include <signal.h>

#include <cstdlib>
#include <stdexcept>

namespace kvltest {

PrivateDisplay::PrivateDisplay() {
  Pipe display;
  server_ =
      ChildProcess({"Xvfb", "-displayfd", "1", "-screen", "0", "1600x1200x24", "-dpi", "96",
                    "-nolisten", "tcp", "-noreset"},
                   environmentWith({}), directory_.path() / "display.log", display.writeEnd());
  const std::string number = display.readLine();
  if (number.empty()) throw std::runtime_error("Xvfb did not start");
  setenv("DISPLAY", (":" + number).c_str(), 1);
}

PrivateDisplay::~PrivateDisplay() {
  unsetenv("DISPLAY");
  // It removes its socket and its lock file.
  server_.signal(SIGTERM);
  server_.wait();
}

}  // namespace kvltest
