// Wakes a thread that waits for the sockets of a libcurl multi handle.
#pragma once

#include <curl/curl.h>

namespace kvl::urlloading {

// Unlike `curl_multi_wakeup`, which sends through a pair of sockets and empties it in two calls,
// and needs the multi handle to be there.
class Waker {
 public:
  Waker() noexcept = default;
  ~Waker();
  Waker(const Waker&) = delete;
  Waker& operator=(const Waker&) = delete;

  // Before anything else. False when the system has no descriptor to give.
  [[nodiscard]] bool open() noexcept;
  // Has the wait under way return, or the next one. From any thread.
  void wake() const noexcept;
  // Waits until libcurl or somebody who wakes has something to do, at most for `milliseconds`.
  // Whether a socket of libcurl's was ready.
  [[nodiscard]] bool wait(CURLM* multi, int milliseconds) const noexcept;

 private:
  // The same where the system has a descriptor that wakes by itself.
  int reader_ = -1;
  int writer_ = -1;
};

}  // namespace kvl::urlloading
