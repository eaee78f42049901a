/// @file
/// The fetches and submissions for coroutines.
#pragma once

#include <local/KVLEncodingDownload.h>
#include <local/KVLEncodingForm.h>
#include <local/KVLEncodingRoot.h>
#include <local/KVLEncodingSession.h>
#include <local/KVLSession.h>
#include <local/platform/Data.h>
#include <local/platform/DispatchQueue.h>
#include <local/platform/Error.h>
#include <local/platform/Exchange.h>
#include <local/platform/Geometry.h>
#include <local/platform/Image.h>
#include <local/platform/Mutex.h>
#include <local/platform/Observation.h>
#include <local/platform/Task.h>
#include <local/platform/URLRequest.h>
#include <local/platform/Value.h>

#include <atomic>
#include <chrono>
#include <coroutine>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <thread>
#include <utility>

/// What `co_await` takes: the operations of the same names, with their arguments but without their
/// completion handlers, and some of the session's own. In a `kvl::Task`, or in any other coroutine
/// type.
///
/// ```
/// const auto [document, response, error] =
///     co_await KVLEncoding::awaitable::jsonFromSession(session, path);
/// ```
///
/// **Start.** Nothing is sent before the operation is awaited. It holds the session from the moment
/// it is made, and is awaited once.
///
/// **In a `kvl::Task`** the coroutine always stops and goes on at the task's home, whatever the
/// outcome. When the task is cancelled, what it waits for is, too.
///
/// **In any other coroutine type** it goes on where the completion handler would have been called,
/// so read there: a document arrives on the main queue, but a failed transfer on the HTTPS session
/// object's queue, and everything on the options' queue where they name one. Where the handler
/// would have been called before the operation returns, as when the session is not established, the
/// coroutine does not stop at all. `onMainQueue` asks for the main queue whatever the outcome. A
/// coroutine that waits here may be destroyed: the exchange runs to its end, and its outcome is
/// dropped without touching the coroutine. As with every coroutine, nobody may destroy it while
/// another thread makes it go on. Where it goes on on one thread only, as images and everything
/// `onMainQueue` do on the main thread, that thread may destroy it at any time.
///
/// **g++ 12** compiles no braced list within an expression that awaits ("array used as
/// initializer", corrected in g++ 13), be the list a `kvl::Dictionary`, a `kvl::Array` or any
/// other. Name it before; see `submit`.
namespace KVLEncoding::awaitable {

/// @name Outcomes, each part possibly none as for the completion handlers
/// @{

/// Of `submit`.
struct RootResult {
  std::optional<kvl::Value> root;   ///< none for an empty answer, `null`, and an error
  kvl::URLResponseRef response;     ///< null where none has come
  std::optional<kvl::Error> error;  ///< the status is not judged
};
/// Of `jsonFromSession`.
struct DocumentResult {
  std::optional<kvl::Value> document;  ///< none for `null`, and for an error
  kvl::URLResponseRef response;        ///< null where none has come
  std::optional<kvl::Error> error;     ///< the status is not judged
};
/// Of `imageFromSession`.
struct ImageResult {
  std::shared_ptr<kvl::Image> image;  ///< null where there is none
  kvl::URLResponseRef response;       ///< null where none has come
  std::optional<kvl::Error> error;    ///< none too for a body that is no image
};
/// Of `submitForm`.
struct FormResult {
  std::optional<kvl::Data> body;    ///< the answer as it came
  kvl::URLResponseRef response;     ///< null where none has come
  std::optional<kvl::Error> error;  ///< the status is not judged
};
/// Of `request`.
struct RequestResult {
  std::optional<kvl::Data> body;    ///< the answer as it came
  kvl::URLResponseRef response;     ///< null where none has come
  std::optional<kvl::Error> error;  ///< the status is not judged
};
/// @}

namespace detail {

// Where the outcome of an operation meets the coroutine that waits for it. Both sides share it, so
// that an outcome that nobody waits for any more still has somewhere to go.
template <class Result>
class Rendezvous : public std::enable_shared_from_this<Rendezvous<Result>> {
 public:
  explicit Rendezvous(bool onMainQueue) noexcept : onMainQueue_(onMainQueue) {}

  // The calls of the coroutine's side. `waitIn` and `expect` come before the operation starts,
  // `suspend` after it has on the same thread: false when the outcome is there and the coroutine
  // goes on at once.
  void waitIn(std::shared_ptr<kvl::detail::TaskScope> scope) noexcept { scope_ = std::move(scope); }
  [[nodiscard]] bool isLetGo() const noexcept { return scope_ && scope_->isLetGo(); }
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
  [[nodiscard]] Result take() {
    isTaken_ = true;
    return std::move(*result_);
  }
  [[nodiscard]] bool isTaken() const noexcept { return isTaken_; }

  // What the operation has started, and how a task ends it that goes away meanwhile. Let go of when
  // nobody waits any more.
  void holds(std::function<void()> end) {
    {
      const kvl::MutexLock lock(mutex_);
      if (phase_.load() != Phase::over) {
        end_ = std::move(end);
        return;
      }
    }
    if (scope_) end();
  }
  void holds(const kvl::Exchange& exchange) {
    holds([exchange] { exchange.cancel(); });
  }

  // The outcome is here, on any thread. Only the first one counts.
  void complete(Result result) {
    if (scope_) return arriveInTask(std::move(result));
    if (!onMainQueue_) return arrive(std::move(result));
    kvl::DispatchQueue::main()->async(
        [self = this->shared_from_this(), result = std::move(result)]() mutable {
          self->arrive(std::move(result));
        });
  }

  // The coroutine goes away, or has no more need of this.
  void abandon() {
    std::function<void()> end;
    {
      const kvl::MutexLock lock(mutex_);
      phase_.store(Phase::over);
      end.swap(end_);
    }
    if (end && scope_) end();
  }

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

  void arriveInTask(Result result) {
    if (phase_.exchange(Phase::over) == Phase::over) return;
    result_.emplace(std::move(result));
    scope_->arrive(coroutine_);
  }

  [[nodiscard]] bool isStartingHere() const noexcept {
    return std::this_thread::get_id() == starter_ && phase_.load() == Phase::starting;
  }

  const bool onMainQueue_;
  // Set before the start.
  std::shared_ptr<kvl::detail::TaskScope> scope_;  // of a `kvl::Task` alone
  std::coroutine_handle<> coroutine_;
  std::thread::id starter_;

  std::atomic<Phase> phase_ = Phase::starting;
  bool arrivedWhileStarting_ = false;  // the starting thread's alone
  std::optional<Result> result_;
  bool isTaken_ = false;

  kvl::Mutex mutex_;
  std::function<void()> end_ KVL_GUARDED_BY(mutex_);
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
  /// Starts the operation, whose outcome it brings to what it is given. For the framework itself.
  using Start = std::function<void(const detail::RendezvousRef<Result>&)>;

  /// For the framework itself: use the functions below.
  explicit Operation(Start start) : Operation(std::move(start), false) {}
  Operation(const Operation&) = delete;
  Operation& operator=(const Operation&) = delete;
  ~Operation() { rendezvous_->abandon(); }

  /// The same operation, after which the coroutine goes on on the main queue whatever the outcome:
  /// it always stops, and the main thread may destroy it at any time. Of no effect in a
  /// `kvl::Task`.
  [[nodiscard]] Operation onMainQueue() && { return Operation(std::move(start_), true); }

  /// @name What `co_await` calls
  /// @{

  /// Called by a `kvl::Task` that is about to wait, before the start.
  void waitIn(std::shared_ptr<kvl::detail::TaskScope> scope) noexcept {
    rendezvous_->waitIn(std::move(scope));
  }
  /// Never: what is asked starts only now.
  bool await_ready() const noexcept { return false; }
  /// Starts the operation. False when its outcome is there already and `coroutine` goes on at once.
  bool await_suspend(std::coroutine_handle<> coroutine) {
    // Another thread may resume and end the coroutine while the start is still running, and this
    // object with it.
    const auto rendezvous = rendezvous_;
    const auto start = std::move(start_);
    if (rendezvous->isLetGo()) return true;  // the task is on its way out
    rendezvous->expect(coroutine);
    start(rendezvous);
    return rendezvous->suspend();
  }
  /// The outcome, once.
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
                                    KVLSession& session, const kvl::RequestOptions& options = {}) {
  return Operation<RootResult>(
      [root, relativePath, session = session.shared_from_this(), options](const auto& rendezvous) {
        rendezvous->holds(KVLEncoding::submit(root, relativePath, *session,
                                              detail::arrivalAt(rendezvous), options));
      });
}

/// `jsonFromSession:withRelativePath:completionHandler:` as `KVLEncoding::jsonFromSession`.
inline Operation<DocumentResult> jsonFromSession(KVLSession& session,
                                                 const RelativePath& relativePath,
                                                 const kvl::RequestOptions& options = {}) {
  return Operation<DocumentResult>(
      [relativePath, session = session.shared_from_this(), options](const auto& rendezvous) {
        rendezvous->holds(KVLEncoding::jsonFromSession(*session, relativePath,
                                                       detail::arrivalAt(rendezvous), options));
      });
}

/// `requireObjectOfClass:fromSession:withRelativePath:completionHandler:` as
/// `KVLEncoding::requireObjectOfClass`, but the coroutine always goes on: with none where the
/// handler would not have been called, after the same line in the log and on the thread that wrote
/// it.
template <class T>
Operation<std::optional<T>> requireObjectOfClass(KVLSession& session,
                                                 const RelativePath& relativePath,
                                                 const kvl::RequestOptions& options = {}) {
  return Operation<std::optional<T>>(
      [relativePath, session = session.shared_from_this(), options](const auto& rendezvous) {
        rendezvous->holds(KVLEncoding::jsonFromSession(
            *session, relativePath,
            [relativePath, rendezvous](const std::optional<kvl::Value>& document,
                                       const kvl::URLResponseRef&,
                                       const std::optional<kvl::Error>& error) {
              rendezvous->complete(
                  KVLEncoding::detail::requiredObject<T>(document, error, relativePath));
            },
            options));
      });
}

/// `imageFromSession:withRelativePath:size:completionHandler:` as `KVLEncoding::imageFromSession`.
inline Operation<ImageResult> imageFromSession(KVLSession& session,
                                               const RelativePath& relativePath, kvl::Size size,
                                               const kvl::RequestOptions& options = {}) {
  return Operation<ImageResult>(
      [relativePath, size, session = session.shared_from_this(), options](const auto& rendezvous) {
        rendezvous->holds(KVLEncoding::imageFromSession(*session, relativePath, size,
                                                        detail::arrivalAt(rendezvous), options));
      });
}

/// `submitForm:additionalInputs:relativePath:session:completionHandler:` as
/// `KVLEncoding::submitForm`, but the coroutine always goes on: at once and with nothing where the
/// handler is never called, for no form and for an action that the browser has opened.
inline Operation<FormResult> submitForm(const std::optional<kvl::Dictionary>& form,
                                        const std::optional<kvl::Array>& additionalInputs,
                                        const RelativePath& relativePath, KVLSession& session,
                                        const FormOptions& options = {}) {
  return Operation<FormResult>([form, additionalInputs, relativePath,
                                session = session.shared_from_this(),
                                options](const auto& rendezvous) {
    auto token = std::make_shared<std::nullopt_t>(std::nullopt);
    const std::weak_ptr<std::nullopt_t> handler = token;
    rendezvous->holds(KVLEncoding::submitForm(
        form, additionalInputs, relativePath, *session,
        [arrival = detail::arrivalAt(rendezvous), token = std::move(token)](
            std::optional<kvl::Data> body, kvl::URLResponseRef response,
            std::optional<kvl::Error> error) {
          arrival(std::move(body), std::move(response), std::move(error));
        },
        options));
    // A handler that nobody kept will not be called any more.
    if (handler.expired()) rendezvous->complete({});
  });
}

/// A document of any kind and size into `file`, as `KVLEncoding::downloadFromSession`. The file of
/// a task that is cancelled before it has its name is removed.
///
/// @param file a relative path counts from the folder that the process is in when it is awaited.
inline Operation<DownloadResult> downloadFromSession(KVLSession& session,
                                                     const RelativePath& relativePath,
                                                     const std::filesystem::path& file,
                                                     const DownloadOptions& options = {}) {
  return Operation<DownloadResult>([relativePath, file, session = session.shared_from_this(),
                                    options](const auto& rendezvous) {
    rendezvous->holds(KVLEncoding::downloadFromSession(
        *session, relativePath, file,
        [rendezvous](DownloadResult result) { rendezvous->complete(std::move(result)); }, options));
  });
}

/// `request:completionHandler:` as `KVLSession::request`.
inline Operation<RequestResult> request(KVLSession& session, const kvl::URLRequest& request) {
  return Operation<RequestResult>(
      [request, session = session.shared_from_this()](const auto& rendezvous) {
        const auto task = session->request(request, detail::arrivalAt(rendezvous));
        if (task) rendezvous->holds([task] { task->cancel(); });
      });
}

/// Waits until the session is established, as `KVLSession::whenEstablished`: the result is none
/// then.
inline Operation<std::optional<kvl::Error>> established(
    KVLSession& session, std::chrono::nanoseconds limit,
    KVLSessionWait how = KVLSessionWait::untilLimit) {
  return Operation<std::optional<kvl::Error>>(
      [limit, how, session = session.shared_from_this()](const auto& rendezvous) {
        auto waiting = std::make_shared<kvl::Observation>(session->whenEstablished(
            limit,
            [rendezvous](const std::optional<kvl::Error>& error) { rendezvous->complete(error); },
            how));
        // The handler goes with its observation.
        rendezvous->holds([waiting = std::move(waiting)] { waiting->end(); });
      });
}

/// Ends the session, as `KVLSession::end`, and waits until that is done: its notary's keys are gone
/// then, or the result says why they are not. A task that is cancelled meanwhile does not take it
/// back.
inline Operation<std::optional<kvl::Error>> ended(KVLSession& session) {
  return Operation<std::optional<kvl::Error>>(
      [session = session.shared_from_this()](const auto& rendezvous) {
        session->end(
            [rendezvous](const std::optional<kvl::Error>& error) { rendezvous->complete(error); });
      });
}

}  // namespace KVLEncoding::awaitable
