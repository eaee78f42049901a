#include "session/StreamTimeout.h"

#include <local/KVLEventStreamState.h>

#include <atomic>

namespace kvl::eventstream {
namespace {

using std::chrono::duration_cast;
using std::chrono::nanoseconds;

constexpr auto kTimeoutInterval =
    duration_cast<nanoseconds>(std::chrono::duration<double>(KVLEventStreamStateTimeoutInterval));

std::atomic<nanoseconds> interval = kTimeoutInterval;

}  // namespace

std::chrono::nanoseconds timeoutInterval() {
  return interval;
}
void setTimeoutInterval(std::chrono::nanoseconds changed) {
  interval = changed;
}

}  // namespace kvl::eventstream
