#include "platform/core/ThisThread.h"

#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace kvl::core {

std::int64_t thisThread() noexcept {
  return syscall(SYS_gettid);
}

bool isFirstThread() noexcept {
  return syscall(SYS_gettid) == getpid();
}

void nameThisThread(const char* name) noexcept {
  pthread_setname_np(pthread_self(), name);
}

}  // namespace kvl::core
