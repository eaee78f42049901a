#include "tests/encoding/SlowDisk.h"

#include <dlfcn.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>

namespace {

using Write = ssize_t (*)(int, const void*, std::size_t);

std::atomic<bool> isHeld = false;

bool isRegularFile(int descriptor) {
  struct stat status{};
  return fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
}

}  // namespace

// What a sanitizer has put in its place.
// NOLINTNEXTLINE(bugprone-reserved-identifier)
extern "C" __attribute__((weak)) ssize_t __interceptor_write(int, const void*, std::size_t);

// In the place of the C library's.
extern "C" __attribute__((visibility("default"))) ssize_t write(int descriptor, const void* bytes,
                                                                std::size_t count) {
  if (isHeld && isRegularFile(descriptor)) isHeld.wait(true);
  static const auto original = &__interceptor_write != nullptr
                                   ? &__interceptor_write
                                   : reinterpret_cast<Write>(dlsym(RTLD_NEXT, "write"));
  return original(descriptor, bytes, count);
}

namespace kvltest {

SlowDisk::SlowDisk() {
  isHeld = true;
}

SlowDisk::~SlowDisk() {
  isHeld = false;
  isHeld.notify_all();
}

}  // namespace kvltest
