#include "platform/core/ThisThread.h"

#include <pthread.h>

#include <atomic>

namespace kvl::core {
namespace {

std::atomic<std::int64_t> last = 0;
thread_local std::int64_t number = 0;
std::atomic<std::int64_t> first = 0;

void becomeFirst() {
  first = thisThread();
}

// What is static comes to be on the thread that the process begins with, unless another one loads
// the library: POSIX does not tell which thread that is.
[[maybe_unused]] const bool firstIsFollowed = [] {
  becomeFirst();
  return pthread_atfork(nullptr, nullptr, becomeFirst) == 0;
}();

}  // namespace

std::int64_t thisThread() noexcept {
  if (number == 0) number = ++last;
  return number;
}

bool isFirstThread() noexcept {
  return thisThread() == first;
}

// POSIX has no names. Of the functions that systems have instead, this is the most frequent one.
void nameThisThread([[maybe_unused]] const char* name) noexcept {
#ifdef __GLIBC__
  pthread_setname_np(pthread_self(), name);
#endif
}

}  // namespace kvl::core
