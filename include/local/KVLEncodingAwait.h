/// @file
/// The fetches and submissions for coroutines.
#pragma once

#include <local/KVLEncodingForm.h>
#include <local/KVLEncodingRoot.h>
#include <local/KVLEncodingSession.h>
#include <local/KVLSession.h>
#include <local/platform/Data.h>
#include <local/platform/DispatchQueue.h>
#include <local/platform/Error.h>
#include <local/platform/Geometry.h>
#include <local/platform/Image.h>
#include <local/platform/URLRequest.h>
#include <local/platform/Value.h>

#include <atomic>
#include <coroutine>
#include <functional>
#include <memory>
#include <optional>
#include <thread>
#include <utility>

/// What `co_await` takes in any coroutine type: the operations of the same names, with their
/// arguments but without their completion handlers.
///
/// ```
/// const auto [document, response, error] =
///     co_await KVLEncoding::awaitable::jsonFromSession(session, path).onMainQueue();
/// ```
///
/// **Start.** Nothing is sent before the operation is awaited. It holds the session from the moment
/// it is made, and is awaited once.
///
/// **Thread.** The coroutine goes on where the completion handler would have been called, so read
/// there: a document arrives on the main queue, but a failed transfer on the HTTPS session object's
/// queue. Where the handler would have been called before the operation returns, as when the
/// session is not established, the coroutine does not stop at all. `onMainQueue` asks for the main
/// queue whatever the outcome.
///
/// **Life.** A coroutine that waits here may be destroyed: the exchange runs to its end, and its
/// outcome is dropped without touching the coroutine. As with every coroutine, nobody may destroy
/// it while another thread makes it go on. Where it goes on on one thread only, as images and
/// everything `onMainQueue` do on the main thread, that thread may destroy it at any time.
///
/// **g++ 12** compiles no braced list within an expression that awaits ("array used as
/// initializer", corrected in g++ 13), be the list a `kvl::Dictionary`, a `kvl::Array` or any
/// other. Name it before; see `submit`.
namespace KVLEncoding::awaitable {

/// @name Outcomes, each part possibly none as for the completion handlers
/// @{
struct RootResult {
  std::optional<kvl::Value> root;
  kvl::URLResponseRef response;
  std::optional<kvl::Error> error;
};
struct DocumentResult {
  std::optional<kvl::Value> document;
  kvl::URLResponseRef response;
  std::optional<kvl::Error> error;
};
struct ImageResult {
  std::shared_ptr<kvl::Image> image;
  kvl::URLResponseRef response;
  std::optional<kvl::Error> error;
};
struct FormResult {
  std::optional<kvl::Data> body;
  kvl::URLResponseRef response;
  std::optional<kvl::Error> error;
};
/// @}

namespace detail {

// Where the outcome of an operation meets the coroutine that waits for it. Both sides share it, so
// that an outcome that nobody waits for any more still has somewhere to go.
template <class Result>
class Rendezvous : public std::enable_shared_from_this<Rendezvous<Result>> {
 public:
  explicit Rendezvous(bool onMainQueue) noexcept : onMainQueue_(onMainQueue) {}

  // The calls of the coroutine's side. `expect` comes before the operation starts, `suspend` after
  // it has on the same thread: false when the outcome is there and the coroutine goes on at once.
  void expect(std::coroutine_handle<> coroutine) noexcept {
    coroutine_ = coroutine;
    starter_ = std::this_thread::get_id();
  }
  [[nodiscard]] bool suspend() noexcept {
    if (arrivedWhileStarting_) return false;
    auto expected = Phase::starting;
    phase_.compare_exchange_strong(expected, Phase::suspended);
    return true;
  }
  [[nodiscard]] Result take() { return std::move(*result_); }

  // The outcome is here, on any thread. Only the first one counts.
  void complete(Result result) {
    if (!onMainQueue_) return arrive(std::move(result));
    kvl::DispatchQueue::main()->async(
        [self = this->shared_from_this(), result = std::move(result)]() mutable {
          self->arrive(std::move(result));
        });
  }

  // The coroutine goes away, or has no more need of this.
  void abandon() noexcept { phase_.store(Phase::over); }

 private:
  enum class Phase : unsigned char { starting, suspended, over };

  void arrive(Result result) {
    if (isStartingHere()) {
      // The starting thread is below this call, and learns of it when the start returns.
      if (!std::exchange(arrivedWhileStarting_, true)) result_.emplace(std::move(result));
      return;
    }
    if (phase_.exchange(Phase::over) == Phase::over) return;
    result_.emplace(std::move(result));
    coroutine_.resume();
  }

  [[nodiscard]] bool isStartingHere() const noexcept {
    return std::this_thread::get_id() == starter_ && phase_.load() == Phase::starting;
  }

  const bool onMainQueue_;
  // Set before the start.
  std::coroutine_handle<> coroutine_;
  std::thread::id starter_;

  std::atomic<Phase> phase_ = Phase::starting;
  bool arrivedWhileStarting_ = false;  // the starting thread's alone
  std::optional<Result> result_;
};

template <class Result>
using RendezvousRef = std::shared_ptr<Rendezvous<Result>>;

// A completion handler that brings its three arguments together.
template <class Result>
[[nodiscard]] auto arrivalAt(RendezvousRef<Result> rendezvous) {
  return [rendezvous = std::move(rendezvous)](auto outcome, kvl::URLResponseRef response,
                                              std::optional<kvl::Error> error) {
    rendezvous->complete({std::move(outcome), std::move(response), std::move(error)});
  };
}

}  // namespace detail

/// An operation that starts when it is awaited. It stays where it was made: await it in the
/// expression that makes it.
template <class Result>
class [[nodiscard]] Operation {
 public:
  using Start = std::function<void(const detail::RendezvousRef<Result>&)>;

  explicit Operation(Start start) : Operation(std::move(start), false) {}
  Operation(const Operation&) = delete;
  Operation& operator=(const Operation&) = delete;
  ~Operation() { rendezvous_->abandon(); }

  /// The same operation, after which the coroutine goes on on the main queue whatever the outcome:
  /// it always stops, and the main thread may destroy it at any time.
  [[nodiscard]] Operation onMainQueue() && { return Operation(std::move(start_), true); }

  /// @name What `co_await` calls
  /// @{
  bool await_ready() const noexcept { return false; }
  bool await_suspend(std::coroutine_handle<> coroutine) {
    // Another thread may resume and end the coroutine while the start is still running, and this
    // object with it.
    const auto rendezvous = rendezvous_;
    const auto start = std::move(start_);
    rendezvous->expect(coroutine);
    start(rendezvous);
    return rendezvous->suspend();
  }
  Result await_resume() { return rendezvous_->take(); }
  /// @}

 private:
  Operation(Start start, bool onMainQueue)
      : start_(std::move(start)),
        rendezvous_(std::make_shared<detail::Rendezvous<Result>>(onMainQueue)) {}

  Start start_;
  const detail::RendezvousRef<Result> rendezvous_;
};

/// `submit:relativePath:session:completionHandler:` as `KVLEncoding::submit`.
///
/// ```
/// const kvl::Dictionary root{{"name", "value"}};  // g++ 12 takes no braces below
/// const auto [answer, response, error] =
///     co_await KVLEncoding::awaitable::submit(root, path, session);
/// ```
inline Operation<RootResult> submit(const kvl::Value& root, const RelativePath& relativePath,
                                    KVLSession& session) {
  return Operation<RootResult>(
      [root, relativePath, session = session.shared_from_this()](const auto& rendezvous) {
        KVLEncoding::submit(root, relativePath, *session, detail::arrivalAt(rendezvous));
      });
}

/// `jsonFromSession:withRelativePath:completionHandler:` as `KVLEncoding::jsonFromSession`.
inline Operation<DocumentResult> jsonFromSession(KVLSession& session,
                                                 const RelativePath& relativePath) {
  return Operation<DocumentResult>(
      [relativePath, session = session.shared_from_this()](const auto& rendezvous) {
        KVLEncoding::jsonFromSession(*session, relativePath, detail::arrivalAt(rendezvous));
      });
}

/// `requireObjectOfClass:fromSession:withRelativePath:completionHandler:` as
/// `KVLEncoding::requireObjectOfClass`, but the coroutine always goes on: with none where the
/// handler would not have been called, after the same line in the log and on the thread that wrote
/// it.
template <class T>
Operation<std::optional<T>> requireObjectOfClass(KVLSession& session,
                                                 const RelativePath& relativePath) {
  return Operation<std::optional<T>>(
      [relativePath, session = session.shared_from_this()](const auto& rendezvous) {
        KVLEncoding::jsonFromSession(
            *session, relativePath,
            [relativePath, rendezvous](const std::optional<kvl::Value>& document,
                                       const kvl::URLResponseRef&,
                                       const std::optional<kvl::Error>& error) {
              rendezvous->complete(
                  KVLEncoding::detail::requiredObject<T>(document, error, relativePath));
            });
      });
}

/// `imageFromSession:withRelativePath:size:completionHandler:` as `KVLEncoding::imageFromSession`.
inline Operation<ImageResult> imageFromSession(KVLSession& session,
                                               const RelativePath& relativePath, kvl::Size size) {
  return Operation<ImageResult>(
      [relativePath, size, session = session.shared_from_this()](const auto& rendezvous) {
        KVLEncoding::imageFromSession(*session, relativePath, size, detail::arrivalAt(rendezvous));
      });
}

/// `submitForm:additionalInputs:relativePath:session:completionHandler:` as
/// `KVLEncoding::submitForm`, but the coroutine always goes on: at once and with nothing where the
/// handler is never called, for no form and for an action that the browser has opened.
inline Operation<FormResult> submitForm(const std::optional<kvl::Dictionary>& form,
                                        const std::optional<kvl::Array>& additionalInputs,
                                        const RelativePath& relativePath, KVLSession& session) {
  return Operation<FormResult>([form, additionalInputs, relativePath,
                                session = session.shared_from_this()](const auto& rendezvous) {
    auto token = std::make_shared<std::nullopt_t>(std::nullopt);
    const std::weak_ptr<std::nullopt_t> handler = token;
    KVLEncoding::submitForm(form, additionalInputs, relativePath, *session,
                            [arrival = detail::arrivalAt(rendezvous), token = std::move(token)](
                                std::optional<kvl::Data> body, kvl::URLResponseRef response,
                                std::optional<kvl::Error> error) {
                              arrival(std::move(body), std::move(response), std::move(error));
                            });
    // A handler that nobody kept will not be called any more.
    if (handler.expired()) rendezvous->complete({});
  });
}

}  // namespace KVLEncoding::awaitable
