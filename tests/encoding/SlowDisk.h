// A disk that takes nothing while it lives: no disk is slow on demand.
#pragma once

namespace kvltest {

// Whoever writes to a regular file waits meanwhile. One at a time.
class SlowDisk {
 public:
  SlowDisk();
  ~SlowDisk();
  SlowDisk(const SlowDisk&) = delete;
  SlowDisk& operator=(const SlowDisk&) = delete;
};

}  // namespace kvltest
