/// @file
/// HTTPS session objects and their tasks.
#pragma once

#include <local/platform/Credential.h>
#include <local/platform/Data.h>
#include <local/platform/Error.h>
#include <local/platform/Export.h>
#include <local/platform/Observation.h>
#include <local/platform/URLRequest.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

namespace kvl {

class URLSession;
class DataTask;

/// Settings of a session object. A plain value, copied by the session object that is made from it.
struct URLSessionConfiguration {
  /// Longest silence in an exchange, for requests that set none.
  std::chrono::nanoseconds timeoutIntervalForRequest = std::chrono::seconds(60);
  /// Fields that every request carries unless it sets them itself.
  HeaderFields additionalHeaders;
  /// Connections that may be open to one host at once. Further exchanges wait for their turn, which
  /// does not count towards their idle time-out once the host has been reached. With HTTP/2 one of
  /// them carries all requests except those with bodies above 1 MiB, which share the others, or
  /// have a second one when this is 1.
  int maximumConnectionsPerHost = 6;
  /// Whether HTTP/2 may be negotiated. Requests with bodies above 1 MiB always use HTTP/1.1.
  bool allowsHTTP2 = true;
  /// Redirects followed before a request fails with `NSURLErrorHTTPTooManyRedirects`.
  int maximumRedirects = 20;
  /// The longest time from a task's start to its end, redirects included, after which it fails with
  /// `NSURLErrorTimedOut`; without limit by default. Event streams, which have no end, are left
  /// out.
  std::chrono::nanoseconds timeoutIntervalForResource = std::chrono::nanoseconds::max();
  /// Whether `http://` addresses are loaded, in clear text. Otherwise a request for one fails with
  /// `NSURLErrorAppTransportSecurityRequiresSecureConnection`, and nothing reaches the wire. A
  /// redirect from https to http is never followed: it is the answer itself.
  bool allowsInsecureHTTPLoads = false;

  /// @name Longest bodies
  /// In bytes after any content encoding was taken off, so that they bound what a small compressed
  /// answer can unfold to. Which one holds says the request's `contentKind`. A larger body fails
  /// with `NSURLErrorDataLengthExceedsMaximum` as soon as that shows. A body that goes to the
  /// delegate or to a `BodyReceiver` piece by piece has none.
  /// @{
  std::size_t maximumBodySize = std::size_t{1} << 30;         ///< of any kind
  std::size_t maximumDocumentBytes = std::size_t{128} << 20;  ///< of `ContentKind::document`
  std::size_t maximumImageBytes = std::size_t{16} << 20;      ///< of `ContentKind::image`
  /// @}
  /// Values that a decoded document may hold, each key, element and container counting as one. A
  /// small text can stand for many: memory goes with their number.
  std::size_t maximumDocumentCells = std::size_t{8} << 20;
  /// Bytes of one line of an event stream; what a longer one loses is documented at
  /// `KVLEventStreamState`.
  std::size_t maximumEventLineBytes = std::size_t{64} << 20;
  /// Bytes of all header fields and trailers of one answer, interim answers included; a longer head
  /// fails with `NSURLErrorDataLengthExceedsMaximum`.
  std::size_t maximumHeaderBytes = std::size_t{64} << 10;
  /// Bytes of one task's body that may wait for the delegate before the sender is held back. Of a
  /// `KVLSession`'s event stream, one event that has not arrived completely may be held besides;
  /// one of more than 64 MiB, or than `maximumEventLineBytes` if that is more, may be cut.
  std::size_t deliveryBufferSize = std::size_t{4} << 20;

  /// `ephemeralSessionConfiguration`: the defaults above; cookies live in the session object's
  /// memory only, and nothing is cached or written anywhere.
  [[nodiscard]] static URLSessionConfiguration ephemeral() { return {}; }
};

/// Receives what a session object has to tell. All calls come on the session object's own serial
/// queue, one at a time and in order, with none of the framework's locks held.
class KVL_EXPORT URLSessionDelegate {
 public:
  virtual ~URLSessionDelegate();

  /// `URLSession:didReceiveChallenge:completionHandler:` for every new TLS connection: once for the
  /// server's trust, and once for the client certificate when the server asks for one. Default
  /// handling of both is refusal. The connection waits for the answer, and so do the session
  /// object's other transfers; an answer that does not come within the request's idle time-out,
  /// within a minute at the latest, ends the request with `NSURLErrorTimedOut`. A refusal without
  /// an evaluation by a session object that has been invalidated meanwhile ends it with
  /// `NSURLErrorNetworkConnectionLost`, since it says nothing about the server's certificate.
  virtual void didReceiveChallenge(URLSession& session, const Challenge& challenge,
                                   ChallengeHandler completionHandler);

  /// `URLSession:dataTask:didReceiveData:` with a piece of the body, for tasks without a
  /// completion handler. Never empty.
  virtual void didReceiveData(URLSession& session, const std::shared_ptr<DataTask>& task,
                              const Data& data);

  /// `URLSession:task:didCompleteWithError:` once per task without a completion handler, as the
  /// last call for that task.
  virtual void didCompleteWithError(URLSession& session, const std::shared_ptr<DataTask>& task,
                                    const std::optional<Error>& error);
};

/// Receives the outcome of a task: body, response and error, each possibly absent. Called exactly
/// once, on the session object's serial queue: waiting there for another request of the same
/// session object never ends.
using DataTaskHandler =
    std::function<void(std::optional<Data>, URLResponseRef, std::optional<Error>)>;

/// How far an exchange has come, in bytes of the two bodies. What is to come is absent while nobody
/// knows: of an answer without a length, or with a content encoding, since what is received counts
/// once decoded. What is sent begins again with a redirect.
struct TransferProgress {
  std::uint64_t sent = 0;                  ///< of the request's body so far
  std::uint64_t received = 0;              ///< of the answer's body so far
  std::optional<std::uint64_t> toSend;     ///< the whole request body, where its length is known
  std::optional<std::uint64_t> toReceive;  ///< the whole answer body, where its length is known

  /// The same numbers, known or not.
  friend bool operator==(const TransferProgress&, const TransferProgress&) = default;
};

/// Receives an answer piece by piece, on the session object's serial queue and in this order; each
/// function may be empty. Waiting in one of them holds that queue up, see
/// `DataTask::suspendDelivery`. All of them are destroyed after `end`.
struct BodyReceiver {
  /// The last answer's head, after redirects; at most once.
  std::function<void(const URLResponseRef& head)> head;
  /// Never empty; decoded; of any number and size, and none after a cancel.
  std::function<void(const Data& piece)> piece;
  /// Exactly once, last, also after a cancel.
  std::function<void(const URLResponseRef& response, const std::optional<Error>& error)> end;
};

/// One request under way. Usable from any thread. A started task runs to its end even when nobody
/// holds it. The request goes out once: without an answer it has failed with
/// `NSURLErrorNetworkConnectionLost`, and the server may have taken it. Only one that the server
/// says it has not looked at (HTTP/2's GOAWAY) goes out again, three times at most.
class KVL_EXPORT DataTask {
 public:
  /// With the platform's numeric values.
  enum class State : std::int64_t {
    running = 0,    ///< it waits for its turn, is sent or is being answered
    suspended = 1,  ///< made, and not yet resumed
    canceling = 2,  ///< cancelled; its completion is on the way
    completed = 3,  ///< its completion is being delivered, or has been
  };

  virtual ~DataTask();
  /// Counts up from 1 over all session objects of the process.
  [[nodiscard]] virtual std::uint64_t taskIdentifier() const noexcept = 0;
  /// As it is now; it may change before the call returns.
  [[nodiscard]] virtual State state() const noexcept = 0;
  /// The request that the task was made for.
  [[nodiscard]] virtual const URLRequest& originalRequest() const noexcept = 0;
  /// The response's head once it has arrived, else null.
  [[nodiscard]] virtual URLResponseRef response() const = 0;
  /// Starts the task; a started task is left alone.
  virtual void resume() = 0;
  /// Ends the task with `NSURLErrorCancelled`. A task that is already complete stays as it is.
  virtual void cancel() = 0;
  /// Whether the body is to be handed over as it arrives. It always is; the preference is kept so
  /// that it can be read back.
  virtual void setPrefersIncrementalDelivery(bool prefers) = 0;
  /// What `setPrefersIncrementalDelivery` set last.
  [[nodiscard]] virtual bool prefersIncrementalDelivery() const noexcept = 0;

  /// How far the task is. Zeros unless overridden.
  [[nodiscard]] virtual TransferProgress progress() const;
  /// Tells `handler` on a serial queue: the present state at once, then each new one, at most every
  /// 50 ms, and the last one before the task's completion is delivered. Silent unless overridden.
  [[nodiscard]] virtual Observation observeProgress(
      std::function<void(const TransferProgress&)> handler);

  /// Holds the sender back until `resumeDelivery` has been called as often. What has been read by
  /// then still comes, `deliveryBufferSize` and one pass of reading at most. The task keeps its
  /// connection; its idle time-out stands still meanwhile and begins anew afterwards, the total one
  /// runs on. Nothing for a task with a completion handler, and unless overridden.
  virtual void suspendDelivery();
  /// Takes back one `suspendDelivery`. Nothing unless overridden.
  virtual void resumeDelivery();
};

/// An HTTPS session object: connections, cookies and transfers that share one identity. It owns an
/// I/O thread from its first task on. Letting go of the last reference lets running tasks finish
/// and then frees everything; no thread is ever joined from a callback.
///
/// The environment does not steer it: proxy variables, `.netrc` and key-log files are ignored.
class KVL_EXPORT URLSession {
 public:
  /// `sessionWithConfiguration:delegate:delegateQueue:` with a serial queue of its own. The
  /// delegate is held weakly and locked once per delivery.
  [[nodiscard]] static std::shared_ptr<URLSession> create(
      URLSessionConfiguration configuration, std::weak_ptr<URLSessionDelegate> delegate);

  virtual ~URLSession();

  /// Makes a suspended task; the body goes to the delegate.
  [[nodiscard]] virtual std::shared_ptr<DataTask> dataTask(const URLRequest& request) = 0;
  /// Makes a suspended task whose outcome goes to `completionHandler` in one piece.
  [[nodiscard]] virtual std::shared_ptr<DataTask> dataTask(const URLRequest& request,
                                                           DataTaskHandler completionHandler) = 0;

  /// Lets running tasks finish and refuses new ones: a task that is made or resumed afterwards
  /// completes with `NSURLErrorCancelled`.
  virtual void finishTasksAndInvalidate() = 0;
  /// Cancels running tasks and refuses new ones.
  virtual void invalidateAndCancel() = 0;

  /// As it was when the object was made.
  [[nodiscard]] virtual const URLSessionConfiguration& configuration() const noexcept = 0;

  /// Whether new tasks are refused. A class of the host's own that invalidates says so here, or a
  /// `KVLSession` goes on opening its event stream on it; false unless overridden.
  [[nodiscard]] virtual bool isInvalidated() const;

  /// Makes a suspended task whose answer goes to `receiver`, piece by piece as it arrives. Unless
  /// overridden, it arrives as a whole and is handed over in one piece, with the limits that hold
  /// for such a body.
  [[nodiscard]] virtual std::shared_ptr<DataTask> streamingTask(const URLRequest& request,
                                                                BodyReceiver receiver);
};

}  // namespace kvl
