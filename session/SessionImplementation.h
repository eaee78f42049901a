// What a session is made of.
#pragma once

#include "platform/core/Observer.h"
#include "platform/core/Threads.h"
#include "platform/dispatch/ObserverList.h"
#include "platform/environment/Environment.h"
#include "platform/urlloading/BodyFraming.h"
#include "session/Ending.h"
#include "session/EstablishmentWaiters.h"
#include "session/Monitors.h"

#include <local/KVLSession.h>
#include <local/platform/Atomic.h>
#include <local/platform/Mutex.h>
#include <local/platform/URLSession.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace kvl::session {

// One chain of renewals, however many timers are set.
//
// Every completed notarisation and every forced disconnect sets a timer, and none is ever
// cancelled. So that their number does not multiply the notarisations, a timer acts only when no
// other has acted since it was set: the first to fire overtakes all others that are still pending.
// Nothing is lost, since what it starts sets a timer again when it completes. Thread-safe.
class RenewalChain {
 public:
  using Ticket = std::uint64_t;

  // Taken when a timer is set.
  [[nodiscard]] Ticket ticket() const noexcept { return generation_.load(); }

  // Whether the timer that fires with this ticket may act.
  [[nodiscard]] bool redeem(Ticket ticket) noexcept {
    return generation_.compare_exchange_strong(ticket, ticket + 1);
  }

 private:
  std::atomic<Ticket> generation_ = 0;
};

// The order in which several queues deliver events: hands out turns, and lets those who have one go
// on in that order, one at a time. Thread-safe.
class DeliveryOrder {
 public:
  // A place in the order. Others wait for it until it is destroyed.
  class Turn {
   public:
    explicit Turn(DeliveryOrder& order) : order_(&order), number_(order.draw()) {}
    ~Turn() { order_->finish(number_); }
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;

    // Returns once every turn before has ended.
    void wait() { order_->waitFor(number_); }

   private:
    DeliveryOrder* const order_;
    const std::uint64_t number_;
  };

 private:
  std::uint64_t draw() {
    MutexLock lock(mutex_);
    return drawn_++;
  }
  void waitFor(std::uint64_t number) {
    MutexLock lock(mutex_);
    while (ended_ != number) finished_.wait(lock);
  }
  void finish(std::uint64_t number) {
    waitFor(number);
    MutexLock lock(mutex_);
    ++ended_;
    finished_.notifyAll();
  }

  Mutex mutex_;
  Condition finished_;
  std::uint64_t drawn_ KVL_GUARDED_BY(mutex_) = 0;
  std::uint64_t ended_ KVL_GUARDED_BY(mutex_) = 0;
};

// Observers of events, which are told where the delegate is called. Thread-safe.
class EventObservers {
 public:
  using Events = std::vector<std::shared_ptr<KVLEvent>>;
  using Observer = core::Observer<const Events&>;

  [[nodiscard]] Observation add(std::function<void(const Events&)> handler) {
    auto observer = std::make_shared<Observer>(std::move(handler));
    const MutexLock lock(mutex_);
    prune();
    observers_.push_back(observer);
    return Observation(std::move(observer));
  }
  [[nodiscard]] bool isEmpty() {
    const MutexLock lock(mutex_);
    prune();
    return observers_.empty();
  }
  // With no lock held.
  void tell(const Events& events) {
    for (const auto& weak : all())
      if (const auto observer = weak.lock()) observer->tell(events);
  }

 private:
  [[nodiscard]] std::vector<std::weak_ptr<Observer>> all() {
    const MutexLock lock(mutex_);
    return observers_;
  }
  void prune() KVL_REQUIRES(mutex_) {
    std::erase_if(observers_, [](const auto& other) { return other.expired(); });
  }

  Mutex mutex_;
  std::vector<std::weak_ptr<Observer>> observers_ KVL_GUARDED_BY(mutex_);
};

// The holding back of a session's event stream.
//
// Every stream that lives is suspended exactly while somebody holds: streams come and go meanwhile,
// and one that is the session's no more would otherwise keep its connection for good. Thread-safe.
class EventHold {
 public:
  // A stream's task, before it starts.
  void add(const std::shared_ptr<DataTask>& task) {
    const RecursiveMutexLock lock(mutex_);
    std::erase_if(streams_, [](const auto& other) { return other.expired(); });
    streams_.push_back(task);
    if (holds_ > 0) task->suspendDelivery();
  }
  // The first suspends and the last resumes.
  void change(bool hold) {
    const RecursiveMutexLock lock(mutex_);
    const int before = std::exchange(holds_, holds_ + (hold ? 1 : -1));
    if (before != (hold ? 0 : 1)) return;
    const auto streams = streams_;  // a task of the host's own class may have another one made
    for (const auto& stream : streams) {
      const auto task = stream.lock();
      if (task) hold ? task->suspendDelivery() : task->resumeDelivery();
    }
  }

 private:
  RecursiveMutex mutex_;
  int holds_ KVL_GUARDED_BY(mutex_) = 0;
  std::vector<std::weak_ptr<DataTask>> streams_ KVL_GUARDED_BY(mutex_);
};

// What is said of a session that has no signature.
[[nodiscard]] Error notEstablished();

}  // namespace kvl::session

// Called by the session that owns it, and by the handlers of its notarisations, requests and
// timers, which keep that session: `owner`.
struct KVLSession::Implementation {
  Implementation(std::shared_ptr<KVLNotary> initialNotary,
                 std::weak_ptr<KVLSessionDelegate> initialDelegate,
                 std::shared_ptr<const kvl::Environment> givenEnvironment);

  // In a child of fork(2) nothing is locked and nothing is started.
  const kvl::core::HomeProcess home;
  const std::shared_ptr<const kvl::Environment> environment;
  kvl::Atomic<std::shared_ptr<KVLNotary>> notary;
  kvl::Atomic<std::weak_ptr<KVLSessionDelegate>> delegate;
  kvl::Atomic<std::shared_ptr<KVLNotarySignature>> signature;
  std::atomic<bool> awaitingSignature = false;
  kvl::Atomic<std::shared_ptr<KVLEventStreamState>> eventStream;
  kvl::Atomic<std::string> eventSource;
  kvl::Atomic<std::shared_ptr<kvl::DispatchQueue>> queue;
  // Hosts may use `queue`, too, and block it; unless they have replaced it, the session's own
  // blocks run beside it.
  const std::shared_ptr<kvl::DispatchQueue> firstQueue = queue.get();
  const std::shared_ptr<kvl::DispatchQueue> frameworkQueue;
  kvl::Atomic<kvl::URLSessionConfiguration> configuration;
  kvl::Atomic<std::shared_ptr<kvl::URLSession>> session;
  // States and progress are told in the order in which they change.
  const std::shared_ptr<kvl::DispatchQueue> observerQueue;
  const std::shared_ptr<kvl::Progress> progress;
  kvl::session::RenewalChain renewals;
  kvl::session::PendingTimers timers;
  // A renewed stream comes on another queue than the one before, whose last events are still first.
  kvl::session::DeliveryOrder deliveries;
  kvl::session::EventObservers eventObservers;
  kvl::session::EventHold eventHold;
  kvl::session::DrainingSessions draining;
  mutable kvl::session::EstablishmentWaiters waiters{observerQueue};
  // Completions of notarisations that run: what they change is told when they are through.
  std::atomic<int> completing = 0;
  // Closed by `end`.
  kvl::session::Gate gate;
  const std::shared_ptr<kvl::session::EndHandlers> endHandlers =
      std::make_shared<kvl::session::EndHandlers>(observerQueue);

  // The notary counts the sessions that use it.
  kvl::Mutex notaryMutex;
  bool usesNotary KVL_GUARDED_BY(notaryMutex) = true;

  mutable kvl::Mutex stateMutex;
  KVLSessionState state KVL_GUARDED_BY(stateMutex) = KVLSessionStateConnecting;
  mutable kvl::dispatch::ObserverList<KVLSessionState> stateObservers KVL_GUARDED_BY(stateMutex){
      observerQueue};
  std::optional<kvl::Error> lastError KVL_GUARDED_BY(stateMutex);
  bool lastNotarisationFailed KVL_GUARDED_BY(stateMutex) = false;

  void setLastError(std::optional<kvl::Error> error);
  // Of a notarisation, before the state changes.
  void noteOutcome(bool hasSignature, const std::optional<kvl::Error>& failure);
  // Nothing is shown any more once the session has ended.
  void show(kvl::ProgressState shown);
  void enterEnd();

  // The steps of a notarisation's completion; KVLSessionNotarisation.cpp has the story.
  void completeNotarisation(const std::shared_ptr<KVLSession>& owner,
                            const std::shared_ptr<KVLNotarySignature>& received,
                            const std::optional<kvl::Error>& error);
  // Whether it counts: not once the session has ended.
  [[nodiscard]] bool takeOutcome(KVLSession& owner,
                                 const std::shared_ptr<KVLNotarySignature>& received,
                                 const std::optional<kvl::Error>& error);
  void establish(KVLSession& owner, const KVLNotarySignature& received, KVLEventStreamState& stream)
      KVL_REQUIRES(kvl::session::streamMonitor, kvl::session::sessionMonitor);
  void disestablish(KVLSession& owner) KVL_REQUIRES(kvl::session::sessionMonitor);
  // In the section of the outcome: another notarisation may establish the session right behind it.
  void noteFailure(KVLSession& owner, const kvl::Error& error)
      KVL_REQUIRES(kvl::session::sessionMonitor);
  void tellWaiters(const std::optional<kvl::Error>& failure);
  void showFailure(const kvl::Error& error, std::chrono::seconds delay);
  [[nodiscard]] std::shared_ptr<kvl::DispatchQueue> timerQueue() const;
  void scheduleNotarisation(const std::shared_ptr<KVLSession>& owner, std::chrono::seconds delay);

  // Disconnects after an error and notarises anew soon.
  void reconnect(const std::shared_ptr<KVLSession>& owner, const std::optional<kvl::Error>& error);

  // The steps of the end; KVLSessionLife.cpp has the story.
  void shutDown();
  void letGoOfKeys();
  // What somebody who waits is told now, if anything.
  using Settled = std::optional<std::optional<kvl::Error>>;
  [[nodiscard]] Settled settled(KVLSessionWait how) const;
  // What somebody is told who does not wait any longer.
  [[nodiscard]] std::optional<kvl::Error> atLimit() const;
  // Null when the session is not established; the handler is then left as it is. A body that does
  // not go to a handler becomes chunks as `framing` says.
  [[nodiscard]] std::shared_ptr<kvl::DataTask> startTask(
      KVLSession& owner, const kvl::URLRequest& request, kvl::DataTaskHandler& completionHandler,
      std::unique_ptr<kvl::urlloading::BodyFraming> framing = nullptr);
  // With the task that `make` makes on the HTTPS session object for the resolved request.
  template <class Make>
  [[nodiscard]] std::shared_ptr<kvl::DataTask> start(const kvl::URLRequest& request,
                                                     const Make& make);
  void completeRequest(const std::shared_ptr<KVLSession>& owner,
                       const std::weak_ptr<kvl::URLSession>& carrier, const std::string& url,
                       const std::optional<kvl::Error>& error);
  // Whether there is an HTTPS session object, and it is another one than `carrier`: what fails
  // there says nothing about the present identity.
  [[nodiscard]] bool isReplaced(const kvl::URLSession* carrier) const;
  // Opens the stream again whose task has ended, from the session's queue.
  void reopenLater(const std::shared_ptr<KVLSession>& owner,
                   const std::shared_ptr<KVLEventStreamState>& stream,
                   const std::shared_ptr<kvl::DataTask>& task);
  void reopen(const std::shared_ptr<KVLSession>& owner,
              const std::shared_ptr<KVLEventStreamState>& stream, const kvl::DataTask& task);
};
