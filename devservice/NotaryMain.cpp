// kvlocal-devnotary: a notary for people who develop a host.
#include "devservice/CommandLine.h"
#include "devservice/Log.h"
#include "devservice/NotaryAnswer.h"
#include "devservice/NotaryBus.h"

#include <exception>

int main(int count, char** arguments) {
  devservice::setLogName("kvlocal-devnotary");
  try {
    const auto parsed = devservice::parseNotaryOptions(count, arguments);
    if (const int* status = std::get_if<int>(&parsed)) return *status;
    const auto& options = std::get<devservice::NotaryOptions>(parsed);
    devservice::Notary notary(options);
    return devservice::runNotary(notary, options.delay);
  } catch (const std::exception& error) {
    devservice::log(error.what());
    return 1;
  }
}
