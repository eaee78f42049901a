// Makes so many requests of a URL, one after the other, and prints the seconds of processor time
// that they took. Nobody observes the trace. Built with the points at which it is told and without.
#include <local/platform/Semaphore.h>
#include <local/platform/URLSession.h>

#include <time.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <string>

namespace {

constexpr int kRounds = 10;

double processorSeconds() {
  timespec time{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

void request(kvl::URLSession& loader, const std::string& url, int times) {
  for (int i = 0; i < times; ++i) {
    kvl::Semaphore over;
    const auto task =
        loader.dataTask(kvl::URLRequest(url), [&over](const auto&, const auto&, const auto& error) {
          if (error) std::_Exit(EXIT_FAILURE);
          over.signal();
        });
    task->resume();
    over.wait();
  }
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 3) return EXIT_FAILURE;
  const std::string url = arguments[1];
  auto configuration = kvl::URLSessionConfiguration::ephemeral();
  configuration.allowsInsecureHTTPLoads = true;
  const auto loader = kvl::URLSession::create(configuration, {});
  const int times = std::atoi(arguments[2]);
  request(*loader, url, times);
  double least = std::numeric_limits<double>::max();
  for (int i = 0; i < kRounds; ++i) {
    const double start = processorSeconds();
    request(*loader, url, times);
    least = std::min(least, processorSeconds() - start);
  }
  std::printf("%.9f\n", least);
  return EXIT_SUCCESS;
}
