// kvlocal-devservice: a local service for people who develop a host.
#include "devservice/CommandLine.h"
#include "devservice/Log.h"
#include "devservice/Server.h"

#include <signal.h>

#include <exception>

int main(int count, char** arguments) {
  devservice::setLogName("kvlocal-devservice");
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGTERM);
  sigaddset(&signals, SIGINT);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);  // before any thread exists
  try {
    const auto parsed = devservice::parseServiceOptions(count, arguments);
    if (const int* status = std::get_if<int>(&parsed)) return *status;
    return devservice::runService(std::get<devservice::ServiceOptions>(parsed));
  } catch (const std::exception& error) {
    devservice::log(error.what());
    return 1;
  }
}
