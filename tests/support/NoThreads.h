// A process that gets no threads. For programs that NoThreads.cpp is linked into.
#pragma once

namespace kvltest {

// While it lives, nobody in this process, libraries included, can start a thread.
class NoThreads {
 public:
  NoThreads();
  ~NoThreads();
  NoThreads(const NoThreads&) = delete;
  NoThreads& operator=(const NoThreads&) = delete;
};

// How many threads this process has started so far.
[[nodiscard]] int startedThreads();

}  // namespace kvltest
