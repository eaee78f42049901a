#include "tests/support/NoThreads.h"

#include <dlfcn.h>
#include <pthread.h>

#include <atomic>
#include <cerrno>

namespace {

using Start = int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);

std::atomic<bool> refused = false;
std::atomic<int> started = 0;

}  // namespace

// What a sanitizer has put in its place.
// NOLINTNEXTLINE(bugprone-reserved-identifier)
extern "C" __attribute__((weak)) int __interceptor_pthread_create(pthread_t*, const pthread_attr_t*,
                                                                  void* (*)(void*), void*);

// In the place of the C library's, for the libraries that the program has loaded as well: limits of
// the kernel do not bind root.
extern "C" __attribute__((visibility("default"))) int pthread_create(
    pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
    void* argument) noexcept {
  if (refused) return EAGAIN;
  ++started;
  static const auto start = &__interceptor_pthread_create != nullptr
                                ? &__interceptor_pthread_create
                                : reinterpret_cast<Start>(dlsym(RTLD_NEXT, "pthread_create"));
  return start(thread, attributes, body, argument);
}

namespace kvltest {

NoThreads::NoThreads() {
  refused = true;
}

NoThreads::~NoThreads() {
  refused = false;
}

int startedThreads() {
  return started;
}

}  // namespace kvltest
