// A process without descriptors.
#pragma once

#include "tests/support/Sanitized.h"

#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

namespace kvltest {

// With which sanitizers look at memory.
inline constexpr int kLeftToSanitizers = kSanitized ? 4 : 0;

// While it lives, the process gets no descriptor but those that are left.
class NoDescriptors {
 public:
  explicit NoDescriptors(int left = 0) {
    getrlimit(RLIMIT_NOFILE, &before_);
    rlimit few = before_;
    few.rlim_cur = kFew;
    setrlimit(RLIMIT_NOFILE, &few);
    for (int taken = 0; (taken = eventfd(0, EFD_CLOEXEC)) >= 0;) taken_.push_back(taken);
    EXPECT_EQ(errno, EMFILE);
    for (; left > 0; --left) {
      close(taken_.back());
      taken_.pop_back();
    }
  }
  ~NoDescriptors() {
    for (const int taken : taken_) close(taken);
    setrlimit(RLIMIT_NOFILE, &before_);
  }
  NoDescriptors(const NoDescriptors&) = delete;
  NoDescriptors& operator=(const NoDescriptors&) = delete;

 private:
  static constexpr rlim_t kFew = 256;
  rlimit before_{};
  std::vector<int> taken_;
};

}  // namespace kvltest
