// Prints when main began, in seconds of CLOCK_MONOTONIC. Linked with the library or with a peer, of
// which it uses nothing.
#include <time.h>

#include <cstdio>

int main() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  std::printf("%lld.%09ld\n", static_cast<long long>(now.tv_sec), now.tv_nsec);
  return 0;
}
