// What the trace is told of one transfer.
#pragma once

#include "platform/urlloading/TransferOptions.h"

#include <local/platform/URLRequest.h>
#include <local/platform/URLSession.h>

#include <chrono>
#include <cstdint>
#include <optional>

namespace kvl::urlloading {

// Knows since when the request runs, and when it went out, by times that somebody else needs as
// well: whoever is not observed reads no clock. On the I/O thread.
class TransferTrace {
 public:
  using Time = std::chrono::steady_clock::time_point;

  TransferTrace(std::uint64_t task, Time began) noexcept : task_(task), began_(began) {}

  void begin(const URLRequest& request) const;
  // The present request goes out, perhaps on a connection that was made for it.
  void noteSending(const URLRequest& request, CURL* easy, Time now);
  void noteAnswer(const URLRequest& request, std::int64_t status) const;
  // `next` follows, after a redirect of `status` or because nobody had looked at the one before.
  void noteRepetition(const URLRequest& next, std::int64_t status);
  // `easy` may be null.
  void end(const URLRequest& request, CURL* easy, const URLResponseRef& response,
           const std::optional<Error>& error) const;

 private:
  const std::uint64_t task_;
  const Time began_;
  std::optional<Time> sent_;  // first
  std::int64_t repetitions_ = 0;
};

}  // namespace kvl::urlloading
