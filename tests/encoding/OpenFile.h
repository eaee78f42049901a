// Files that are open and have no name.
#pragma once

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <string_view>

namespace kvltest {

// The open file that holds these bytes.
class OpenFile {
 public:
  explicit OpenFile(std::string_view bytes) : descriptor_(memfd_create("file", MFD_CLOEXEC)) {
    EXPECT_EQ(pwrite(descriptor_, bytes.data(), bytes.size(), 0),
              static_cast<ssize_t>(bytes.size()));
  }
  ~OpenFile() { close(descriptor_); }
  OpenFile(const OpenFile&) = delete;
  OpenFile& operator=(const OpenFile&) = delete;
  [[nodiscard]] int descriptor() const { return descriptor_; }
  // Zeros, which take no memory, are added or bytes taken away.
  void resize(off_t size) const { EXPECT_EQ(ftruncate(descriptor_, size), 0); }

 private:
  const int descriptor_;
};

}  // namespace kvltest
