/// @file
/// Handles of fetches and submissions, and what may be asked of one.
#pragma once

#include <local/platform/DispatchQueue.h>
#include <local/platform/Export.h>
#include <local/platform/Observation.h>
#include <local/platform/URLRequest.h>
#include <local/platform/URLSession.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <utility>

namespace kvl {

namespace urlloading {
class ExchangeState;
}

/// What a fetch or submission wants beside the usual.
struct RequestOptions {
  HeaderFields headers = {};  ///< each replaces the operation's own of that name
  /// Longest silence; else the configuration's.
  std::optional<std::chrono::nanoseconds> idleTimeout = std::nullopt;
  /// From start to end, redirects included.
  std::optional<std::chrono::nanoseconds> totalTimeout = std::nullopt;
  RequestPriority priority = RequestPriority::usual;  ///< in which turn it is sent when many wait
  /// What an empty body means.
  enum class EmptyAnswer : std::uint8_t {
    usual,  ///< what the operation documents
    none,   ///< neither result nor error
    error,  ///< an error
  };
  EmptyAnswer emptyAnswer = EmptyAnswer::usual;  ///< of this exchange
  /// Where the handler runs, whatever the outcome; else where the operation documents.
  std::shared_ptr<DispatchQueue> queue = nullptr;
};

/// One fetch or submission under way: a handle, cheap to copy, empty by default. Letting go of it
/// changes nothing. Any thread.
class KVL_EXPORT Exchange {
 public:
  Exchange() noexcept = default;
  /// For whoever makes exchanges.
  explicit Exchange(std::shared_ptr<urlloading::ExchangeState> state) noexcept
      : state_(std::move(state)) {}

  /// Ends it: the handler gets `NSURLErrorCancelled` in the place of its result, unless it has
  /// begun already. Never calls the handler itself and never waits.
  void cancel() const;
  /// Whether the handler has begun, or there is nothing whose handler could.
  [[nodiscard]] bool isOver() const;
  /// Zeros while nothing has been sent.
  [[nodiscard]] TransferProgress progress() const;
  /// See `DataTask::observeProgress`; silent when nothing has been sent yet.
  [[nodiscard]] Observation observeProgress(
      std::function<void(const TransferProgress&)> handler) const;
  /// Null when nothing has been sent.
  [[nodiscard]] std::shared_ptr<DataTask> task() const;

 private:
  std::shared_ptr<urlloading::ExchangeState> state_;
};

}  // namespace kvl
