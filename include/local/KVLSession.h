/// @file
/// The notarised HTTPS session with the local service.
#pragma once

#include <local/KVLEvent.h>
#include <local/KVLEventStreamState.h>
#include <local/KVLNotary.h>
#include <local/KVLNotarySignature.h>
#include <local/platform/Credential.h>
#include <local/platform/DispatchQueue.h>
#include <local/platform/Error.h>
#include <local/platform/Export.h>
#include <local/platform/Observation.h>
#include <local/platform/Progress.h>
#include <local/platform/URLSession.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

class KVLSession;

namespace kvl {
struct Environment;
}

/// States of a session, with the values that clients see.
enum KVLSessionState : std::uint64_t {
  /// 0: just created; no notarisation has completed yet. Never entered again.
  KVLSessionStateConnecting = 0,
  /// 1: a signature is held and an HTTPS session object exists. Entered by a notarisation that
  /// brings a signature; renewed before it expires.
  KVLSessionStateEstablished = 1,
  /// 2: no usable signature. Entered by a notarisation without one, by one with an error that is
  /// not recoverable, and by `disconnectAfterError`. Left by the next notarisation.
  KVLSessionStateDisconnected = 2,
  /// 3: the last notarisation failed with a recoverable error; the next follows in 5 s.
  KVLSessionStateRecovering = 3,
  /// 4: the host has ended the session. Entered by `end` and left by nothing.
  KVLSessionStateEnded = 4,
};

/// "connecting", "established", "disconnected", "recovering" or "ended"; for logs and tools, in
/// English.
[[nodiscard]] KVL_EXPORT std::string_view KVLSessionStateText(KVLSessionState state);

/// What else than its limit ends a wait for a session to be established.
enum class KVLSessionWait : std::uint8_t {
  untilLimit,         ///< nothing: failures are sat out
  untilFirstFailure,  ///< the next notarisation that fails, or the last one if none is outstanding
};

/// Receives a session's events. A session never tells its delegate about states or failures: the
/// host observes `observeState` and `progress`.
class KVL_EXPORT KVLSessionDelegate {
 public:
  virtual ~KVLSessionDelegate();

  /// `session:eventStream:` The events that one received chunk completed, in order; never empty.
  /// Called on the HTTPS session object's serial queue, off the main thread, with no lock held.
  /// Calls never overlap and come in the stream's order, also when a renewal changes the queue;
  /// while one runs the service is held back, and so is whatever else that queue has to do. Do not
  /// wait inside for a request's completion or for another thread that does; hand long work on.
  virtual void eventStream(KVLSession& session,
                           const std::vector<std::shared_ptr<KVLEvent>>& events) = 0;
};

/// The one object through which a host talks to the service: it owns the client identity, the HTTPS
/// session object built on it, the event stream, and the loop that renews and recovers.
///
/// **Life.** A session keeps itself alive through the timer of its next notarisation: once created
/// it goes on renewing for the life of the process, until `end` is called. Only a notary that drops
/// its handler uncalled ends that, too.
///
/// **The loop.** Every completed notarisation schedules the next: after 80 % of the signature's
/// remaining lifetime in whole seconds (15 s when there is none), 5 s after a recoverable error,
/// 15 s after any other. A forced disconnect is followed by one after 1 s. There is *one* chain of
/// renewals: a timer that fires acts only if no other has acted since it was set, so forced
/// disconnects and direct calls never multiply the rate. At most one notarisation is outstanding.
///
/// **Threads.** Every operation may be called from any thread. Sections that belong together run
/// under the session monitor, a recursive mutex of the signature that is current when the section
/// begins; without a signature they run without exclusion, which the atomic properties make safe.
/// Whoever needs the event stream's monitor as well takes that one first.
///
/// **fork(2).** The parent goes on undisturbed. A child has none of the framework's threads and
/// must `exec` or end with `_exit`. Until then a session of the parent's does nothing there:
/// requests fail at once as when it is not established, and `enqueueNotarisation`,
/// `disconnectAfterError`, `setEventStreamSource` and `end` return, the latter without calling its
/// handler. Its other operations, and anything else of the framework, may wait for ever.
class KVL_EXPORT KVLSession final : public kvl::URLSessionDelegate,
                                    public std::enable_shared_from_this<KVLSession> {
  struct Private {
    explicit Private() = default;
  };

 public:
  /// Runs once, on the queue on which observers of the state are told, with the error of the
  /// deletion of the notary's keys if that has failed.
  using EndHandler = std::function<void(const std::optional<kvl::Error>& keyError)>;
  /// Runs once, on the queue on which observers of the state are told: without an error when the
  /// session is established.
  using EstablishedHandler = std::function<void(const std::optional<kvl::Error>& error)>;

  /// `sessionWithNotary:delegate:` Creates a session and starts its loop. The call itself never
  /// waits for the notary service. Without a notary it makes one of its own, and then costs what
  /// `KVLNotary()` costs. The delegate is held weakly.
  [[nodiscard]] static std::shared_ptr<KVLSession> sessionWithNotary(
      std::shared_ptr<KVLNotary> notary, std::weak_ptr<KVLSessionDelegate> delegate);

  /// With other surroundings than the process's; for the framework itself.
  [[nodiscard]] KVL_INTERNAL static std::shared_ptr<KVLSession> sessionWithNotary(
      std::shared_ptr<KVLNotary> notary, std::weak_ptr<KVLSessionDelegate> delegate,
      std::shared_ptr<const kvl::Environment> environment);

  /// Use `sessionWithNotary`.
  KVLSession(Private, std::shared_ptr<KVLNotary> notary,
             std::weak_ptr<KVLSessionDelegate> delegate);
  /// The same with other surroundings; for the framework itself.
  KVL_INTERNAL KVLSession(Private, std::shared_ptr<KVLNotary> notary,
                          std::weak_ptr<KVLSessionDelegate> delegate,
                          std::shared_ptr<const kvl::Environment> environment);
  ~KVLSession() override;

  /// `enqueueNotarisation` Asks the notary for a signature unless a request is outstanding.
  void enqueueNotarisation();

  /// `disconnectAfterError` Cancels the event stream, drops the signature and the HTTPS session
  /// object (running tasks may finish) and enters state 2. Schedules nothing.
  void disconnectAfterError();

  /// `request:completionHandler:` Sends a request to the service. Its URL is resolved against the
  /// signature's base URL by RFC 3986; an absolute URL stays as it is.
  ///
  /// Without a signature nothing is sent: the handler is called at once, on the caller's thread and
  /// with no lock held, with `NSURLErrorDomain`, -1, "Notarised session is not
  /// established.", and the result is null.
  ///
  /// Otherwise the handler runs once, on the HTTPS session object's serial queue. An error is
  /// logged and handed over unchanged; nothing is retried. After a notarisation error the session
  /// disconnects and notarises again 1 s later, unless another HTTPS session object has taken the
  /// place of the one that carried the request: its identity has not been refused. Further errors:
  /// `NSURLErrorBadURL` for a text that is no URL (spaces and control characters included) and
  /// `NSPOSIXErrorDomain` 22 for a header field that HTTP forbids; nothing is sent then.
  ///
  /// @return the started task, or null when not established. Without a handler its data and
  ///   completion go to this object's own delegate operations.
  std::shared_ptr<kvl::DataTask> request(const kvl::URLRequest& request,
                                         kvl::DataTaskHandler completionHandler = nullptr);

  /// As `request`, but the answer goes to `receiver`, piece by piece on the HTTPS session object's
  /// serial queue. When not established the result is null, and `receiver.end` has been called with
  /// the error by then, on the caller's thread.
  std::shared_ptr<kvl::DataTask> requestPieces(const kvl::URLRequest& request,
                                               kvl::BodyReceiver receiver);

  /// Ends the session for good: its renewals, its event stream and its requests, whose handlers get
  /// `NSURLErrorCancelled`, and then the keys of its notary if no other session uses that one. A
  /// session that begins on the same notary later has it make new keys. A host that wants the
  /// answers of running requests waits for them first.
  ///
  /// Any thread, also inside any handler, observer or delegate; nothing is waited for. A delegate
  /// that runs already runs on; no call of it begins afterwards. The session enters state 4, which
  /// is the last that is told, and then refuses requests as when it is not established; other calls
  /// that would start something return. A notarisation that is outstanding keeps the session until
  /// it is answered; nothing else does.
  ///
  /// @param completionHandler called when all of it is done, the keys included, each time that
  ///   `end` is called
  void end(EndHandler completionHandler = nullptr);

  /// Whether `end` has been called.
  [[nodiscard]] bool isEnded() const;

  /// Why the session is not established: the error of the last notarisation ("Notarised session is
  /// not established." when it brought neither signature nor error), or that of the request or of
  /// the event stream after which the session has disconnected (`NSURLErrorNetworkConnectionLost`
  /// for a stream that the service has ended). Set before the state changes; none before the first
  /// outcome and once established. It stays after `end`.
  [[nodiscard]] std::optional<kvl::Error> lastError() const;

  /// Calls `handler` once, after the observers of the state have been told: without an error when
  /// the session is established or becomes so; with `lastError()`, or `NSPOSIXErrorDomain` 60 when
  /// there is none, after `limit` (zero asks only) or the failure that `how` speaks of; with
  /// `NSURLErrorCancelled` when the session ends or goes. Once the handle is gone it is not called.
  [[nodiscard]] kvl::Observation whenEstablished(
      std::chrono::nanoseconds limit, EstablishedHandler handler,
      KVLSessionWait how = KVLSessionWait::untilLimit) const;

  /// The same, for threads that may wait. No loop is served meanwhile, and none need be. Inside an
  /// observer of the state or of the progress it comes to its limit, since it is told after those.
  [[nodiscard]] std::optional<kvl::Error> waitUntilEstablished(
      std::chrono::nanoseconds limit, KVLSessionWait how = KVLSessionWait::untilLimit) const;

  /// `isRecoverableError:` Whether the loop retries after 5 s rather than 15: any code of
  /// `NSPOSIXErrorDomain`, `NSOSStatusErrorDomain` -43, `NSCocoaErrorDomain` 260 and 256,
  /// `NSURLErrorDomain` -1002.
  [[nodiscard]] static bool isRecoverableError(const std::optional<kvl::Error>& error);

  /// `isNotarisationError:` Whether the error means that the identity is no longer accepted:
  /// `NSURLErrorDomain` -1200 to -1206 and -2000.
  [[nodiscard]] static bool isNotarisationError(const std::optional<kvl::Error>& error);

  /// `didReceiveAuthenticationChallenge:completionHandler:` Answers server trust (the chain must
  /// end at the signature's anchor) and client certificate (the signature's credential); any other
  /// method gets default handling. Calls the handler before it returns, and twice with a refusal
  /// when the evaluation itself fails.
  void didReceiveAuthenticationChallenge(const kvl::Challenge& challenge,
                                         const kvl::ChallengeHandler& completionHandler);

  /// `webView:didReceiveAuthenticationChallenge:completionHandler:` The same for pages of the
  /// service that the host shows in a web view, so that one identity serves both.
  void didReceiveAuthenticationChallenge(const void* webView, const kvl::Challenge& challenge,
                                         const kvl::ChallengeHandler& completionHandler);

  /// `setEventStreamSource:` Chooses the event stream: a URL relative to the service, or absolute.
  /// The same text again does nothing; another one cancels the stream and opens the new one, at
  /// once when established, else after the next notarisation.
  void setEventStreamSource(const std::string& source);

  /// Calls `handler` with the events that the delegate gets, after it, in the same order and under
  /// the same rules. While an observation lives, events are read without a delegate, too. Those
  /// that were read before are not told.
  [[nodiscard]] kvl::Observation observeEvents(
      std::function<void(const std::vector<std::shared_ptr<KVLEvent>>&)> handler) const;

  /// While more calls with true than with false were made, the service is held back and nothing
  /// more of the stream is read than what is under way; a renewal does not change that. For the
  /// framework itself.
  KVL_INTERNAL void holdEvents(bool hold);

  /// `progress` The record to show to the user. Updated from any thread.
  [[nodiscard]] std::shared_ptr<const kvl::Progress> progress() const;

  /// Calls `handler` with the present state and then with each state that is entered, in order, on
  /// a serial queue of the session's own and with no lock held. Observers of `progress` run on the
  /// same queue, so that states and texts are told in the order in which they change.
  [[nodiscard]] kvl::Observation observeState(std::function<void(KVLSessionState)> handler) const;

  /// @name Properties
  /// Atomic. The session changes them itself; setters are for hosts that replace a part.
  /// @{

  /// Who signs for the session; never null.
  [[nodiscard]] std::shared_ptr<KVLNotary> notary() const;
  /// @pre not null
  void setNotary(std::shared_ptr<KVLNotary> notary);
  /// Null where there is none, or it has gone.
  [[nodiscard]] std::shared_ptr<KVLSessionDelegate> delegate() const;
  /// Who gets the events from now on, held weakly; none for nobody.
  void setDelegate(std::weak_ptr<KVLSessionDelegate> delegate);
  /// What makes the session established; null until the first one and after a disconnection.
  [[nodiscard]] std::shared_ptr<KVLNotarySignature> signature() const;
  /// Stored as it is: neither state nor HTTPS session object follow, and no renewal is planned.
  void setSignature(std::shared_ptr<KVLNotarySignature> signature);
  /// True from the moment a notarisation is requested until its completion runs.
  [[nodiscard]] bool awaitingSignature() const;
  /// True keeps `enqueueNotarisation` from asking; false lets it ask again.
  void setAwaitingSignature(bool awaiting);
  /// The state that was entered last.
  [[nodiscard]] KVLSessionState state() const;
  /// Enters `state` and tells the observers, unless it is that already. Nothing leaves state 4, and
  /// only `end` enters it.
  void setState(KVLSessionState state);
  /// The parser and the task of the event stream; never null.
  [[nodiscard]] std::shared_ptr<KVLEventStreamState> eventStream() const;
  /// @pre not null
  void setEventStream(std::shared_ptr<KVLEventStreamState> eventStream);
  /// The source as `setEventStreamSource` stored it; setting it here opens nothing.
  [[nodiscard]] std::string eventSource() const;
  /// The next opening of the stream uses it.
  void setEventSource(std::string source);
  /// The concurrent queue "korvale.local.session", on which all timers fire. Blocks that a host
  /// posts to it may block: the session's own ones do not wait for them. On a queue that the host
  /// has set they do.
  [[nodiscard]] std::shared_ptr<kvl::DispatchQueue> queue() const;
  /// @pre not null
  void setQueue(std::shared_ptr<kvl::DispatchQueue> queue);
  /// Copied into every new HTTPS session object.
  [[nodiscard]] kvl::URLSessionConfiguration configuration() const;
  /// Counts from the next notarisation on; the present HTTPS session object keeps its own.
  void setConfiguration(kvl::URLSessionConfiguration configuration);
  /// With tasks of a class of the host's own, the event stream brings its body in the pieces in
  /// which the host hands it over. One that the host invalidates serves no request until the next
  /// notarisation brings another one; where it carried the event stream, the session disconnects
  /// and notarises 1 s later.
  [[nodiscard]] std::shared_ptr<kvl::URLSession> session() const;
  /// Takes the place of the present one, whose running tasks may finish; null refuses requests.
  void setSession(std::shared_ptr<kvl::URLSession> session);
  /// @}

  /// @name Delegate operations of the HTTPS session object
  /// @{
  void didReceiveChallenge(kvl::URLSession& session, const kvl::Challenge& challenge,
                           kvl::ChallengeHandler completionHandler) override;
  void didReceiveData(kvl::URLSession& session, const std::shared_ptr<kvl::DataTask>& task,
                      const kvl::Data& data) override;
  void didCompleteWithError(kvl::URLSession& session, const std::shared_ptr<kvl::DataTask>& task,
                            const std::optional<kvl::Error>& error) override;
  /// @}

 private:
  friend class KVLEventStreamState;
  struct KVL_INTERNAL Implementation;
  const std::unique_ptr<Implementation> implementation_;
};
