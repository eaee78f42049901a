// How the outcome of a fetch or submission gets to its handler.
#pragma once

#include "platform/core/ProcessExit.h"
#include "platform/core/Sentence.h"
#include "platform/urlloading/ExchangeState.h"

#include <local/KVLEncoding.h>
#include <local/KVLSession.h>
#include <local/platform/Data.h>
#include <local/platform/DispatchQueue.h>
#include <local/platform/Error.h>
#include <local/platform/Exchange.h>
#include <local/platform/URLRequest.h>

#include <functional>
#include <memory>
#include <optional>
#include <utility>

namespace kvl::encoding {

// One outcome's way: to the queue that the options name, else where the operation documents. On
// arrival it gives way to a `cancel` that came first. It is used up by that: the handler goes where
// it ran, and with it what it holds, which may be for that thread only.
template <class Result>
class Delivery {
 public:
  using Handler = std::function<void(Result, URLResponseRef, std::optional<Error>)>;

  Delivery(Handler handler, const RequestOptions& options)
      : handler_(std::move(handler)), queue_(options.queue) {}
  // A function that was moved away may still hold what it held.
  Delivery(Delivery&& other) noexcept
      : handler_(std::exchange(other.handler_, nullptr)),
        queue_(std::move(other.queue_)),
        turn_(std::move(other.turn_)) {}
  Delivery(const Delivery&) = default;
  Delivery& operator=(const Delivery&) = delete;
  ~Delivery() = default;

  [[nodiscard]] const urlloading::HandlerTurnRef& turn() const noexcept { return turn_; }
  // Whether the result will not be asked for, so that nobody need make it.
  [[nodiscard]] bool isCancelled() const noexcept { return turn_->isCancelled(); }

  // On this thread, unless the options name a queue.
  void here(Result result, URLResponseRef response, std::optional<Error> error) && {
    if (queue_) return post(queue_, std::move(result), std::move(response), std::move(error));
    call(std::move(result), std::move(response), std::move(error));
  }

  // On the main queue, unless the options name another one.
  void onMainQueue(Result result, URLResponseRef response, std::optional<Error> error) && {
    post(queue_ ? queue_ : DispatchQueue::main(), std::move(result), std::move(response),
         std::move(error));
  }

 private:
  void post(const std::shared_ptr<DispatchQueue> queue, Result result, URLResponseRef response,
            std::optional<Error> error) {
    queue->async([delivery = std::move(*this), result = std::move(result),
                  response = std::move(response), error = std::move(error)]() mutable {
      const core::QueuedDelivery queued;
      delivery.call(std::move(result), std::move(response), std::move(error));
    });
  }

  void call(Result result, URLResponseRef response, std::optional<Error> error) {
    const Handler handler = std::exchange(handler_, nullptr);
    if (turn_->begin()) return handler(std::move(result), std::move(response), std::move(error));
    auto cancelled = urlloading::cancelledError(response);
    handler({}, std::move(response), std::move(cancelled));
  }

  Handler handler_;
  std::shared_ptr<DispatchQueue> queue_;
  urlloading::HandlerTurnRef turn_ = std::make_shared<urlloading::HandlerTurn>();
};

// Sends the request of an exchange whose handler looks at its turn.
inline void send(KVLSession& session, const URLRequest& request,
                 urlloading::ExchangeState& exchange, DataTaskHandler handler) {
  if (auto task = session.request(request, std::move(handler))) exchange.setTask(std::move(task));
}

// Sends the request for a handler that looks at `turn`.
[[nodiscard]] inline Exchange startExchange(KVLSession& session, const URLRequest& request,
                                            const urlloading::HandlerTurnRef& turn,
                                            DataTaskHandler handler) {
  auto state = std::make_shared<urlloading::ExchangeState>(turn);
  send(session, request, *state, std::move(handler));
  return Exchange(std::move(state));
}

// Of an operation that has failed before there was anything to send.
[[nodiscard]] inline Exchange exchangeWithoutTask(const urlloading::HandlerTurnRef& turn) {
  return Exchange(std::make_shared<urlloading::ExchangeState>(turn));
}

// The error of an empty answer where `RequestOptions::emptyAnswer` asks for one and the operation
// has none of its own.
[[nodiscard]] inline Error emptyAnswerError() {
  constexpr std::int64_t kNoContent = 204;
  return {KVLEncoding::KVLEncodingErrorDomain,
          kNoContent,
          {{NSLocalizedDescriptionKey, kvl::translatable("The answer is empty.")}}};
}

}  // namespace kvl::encoding
