// What the trace is told of one transfer.
#pragma once

#include "platform/urlloading/TransferOptions.h"

#include <local/platform/URLRequest.h>
#include <local/platform/URLSession.h>

#include <chrono>
#include <cstdint>
#include <optional>

namespace kvl::urlloading {

// Knows since when the request runs, and when it went out. On the I/O thread.
class TransferTrace {
 public:
  explicit TransferTrace(std::uint64_t task) noexcept : task_(task) {}

  void begin(const URLRequest& request) const;
  // The present request goes out, perhaps on a connection that was made for it.
  void noteSending(const URLRequest& request, CURL* easy);
  void noteAnswer(const URLRequest& request, std::int64_t status) const;
  // `next` follows, after a redirect of `status` or because nobody had looked at the one before.
  void noteRepetition(const URLRequest& next, std::int64_t status);
  // `easy` may be null.
  void end(const URLRequest& request, CURL* easy, const URLResponseRef& response,
           const std::optional<Error>& error) const;

 private:
  using Clock = std::chrono::steady_clock;

  const std::uint64_t task_;
  const Clock::time_point began_ = Clock::now();
  std::optional<Clock::time_point> sent_;  // first
  std::int64_t repetitions_ = 0;
};

}  // namespace kvl::urlloading
