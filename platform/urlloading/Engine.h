// The I/O thread of one session object, and the libcurl multi handle that it drives.
#pragma once

#include "platform/urlloading/Agenda.h"
#include "platform/urlloading/EasyHandles.h"
#include "platform/urlloading/HostSlots.h"
#include "platform/urlloading/IOThreads.h"
#include "platform/urlloading/Outbox.h"
#include "platform/urlloading/URLSessionObject.h"
#include "platform/urlloading/Waker.h"

#include <local/platform/Mutex.h>
#include <local/platform/URLSession.h>

#include <curl/curl.h>

#include <map>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

namespace kvl::urlloading {

class Transfer;

struct MultiDeleter {
  void operator()(CURLM* multi) const noexcept { curl_multi_cleanup(multi); }
};
using MultiHandle = std::unique_ptr<CURLM, MultiDeleter>;

// Runs transfers from the first task on. The session object and its tasks call the public part from
// any thread; it becomes commands, which the I/O thread executes between two passes over all
// transfers. The thread keeps the engine alive; it ends by itself when the engine is invalidated
// and no task runs. What tasks are to be told goes to `queue`.
class Engine final : public Abandonable, public std::enable_shared_from_this<Engine> {
 public:
  Engine(URLSessionConfiguration configuration, std::shared_ptr<DispatchQueue> queue);
  ~Engine() override;

  // From any thread.
  // Starts the task with `request`, which is fit to be sent; why not, when it cannot be.
  [[nodiscard]] std::optional<Error> start(std::shared_ptr<DataTaskObject> task,
                                           RequestRef request);
  void cancel(std::uint64_t identifier);
  void unpause(std::uint64_t identifier);
  void feed(std::uint64_t identifier);
  // Refuses tasks from now on.
  void invalidate();
  [[nodiscard]] bool isInvalidated() const;
  [[nodiscard]] std::vector<std::shared_ptr<DataTaskObject>> runningTasks() const;
  void abandon() override;

  // For the I/O thread.
  [[nodiscard]] Outbox& outbox() noexcept { return outbox_; }

 private:
  static constexpr int kQuietPasses = 2;

  struct Command {
    enum class Kind { start, cancel, unpause, feed } kind;
    std::uint64_t identifier;
    std::shared_ptr<DataTaskObject> task;
    RequestRef request;
  };

  [[nodiscard]] bool ensureThread() KVL_REQUIRES(mutex_);
  void postIfRunning(Command::Kind kind, std::uint64_t identifier);
  // Whether whoever has just changed what the I/O thread has to do must wake it, unlocked.
  [[nodiscard]] bool takeSleep() KVL_REQUIRES(mutex_) { return std::exchange(isAsleep_, false); }
  [[nodiscard]] bool isOver() const KVL_REQUIRES(mutex_);

  // On the I/O thread.
  void run();
  // False when there is something to do at once.
  [[nodiscard]] bool fallAsleep();
  [[nodiscard]] bool takeCommands(std::vector<Command>& commands);
  void execute(Command& command);
  void begin(Command& command);
  // Begins the exchange, now or when its host has room for it.
  void launch(Transfer& transfer);
  void perform(Transfer& transfer);
  void activate(Transfer& transfer);
  [[nodiscard]] bool isActive(const Transfer& transfer) const;
  // Takes the transfer back from libcurl if it was there, and its slot.
  void withdraw(Transfer& transfer);
  // Looks at a transfer that is not in libcurl again when its time comes.
  void lookLater(Transfer& transfer);
  void keepConnections();
  void launchAdmitted();
  void stop(Transfer& transfer);
  // One pass over all transfers.
  void step();
  // Whether several exchanges use one connection in this pass.
  [[nodiscard]] bool sharesConnection() const;
  void notePass(bool isQuiet, bool isShared);
  void flushBodies(SteadyTime passBegan);
  // Waits for something to do.
  void waitForActivity();
  [[nodiscard]] bool timerIsDue() const;
  // Whether the next pass has something to do at once.
  [[nodiscard]] bool isReady() const;
  // Whether a chunk that is being collected grows at once.
  [[nodiscard]] bool isGrowing() const;
  void noteConnections();
  // The I/O thread read nothing while it waited for answers, which is nobody's silence.
  void extendDeadlinesByChallenges();
  // Whether there were any.
  bool finishExchanges();
  void finishExchange(Transfer& transfer, CURLcode code);
  void expireIdle();
  [[nodiscard]] std::vector<Transfer*> takeExpired(SteadyTime now);
  // Ends an exchange before its time, so that the server hears of it.
  void breakOff(Transfer& transfer, TaskOutcome outcome);
  void end(Transfer& transfer, TaskOutcome outcome);
  // Sends what waits on the connection if anybody still uses it.
  void flush(const std::shared_ptr<TLSConnection>& connection);
  [[nodiscard]] int pollMilliseconds() const;
  void tearDown();

  const URLSessionConfiguration configuration_;

  mutable Mutex mutex_;
  bool threadRuns_ KVL_GUARDED_BY(mutex_) = false;
  bool invalidated_ KVL_GUARDED_BY(mutex_) = false;
  bool abandoned_ KVL_GUARDED_BY(mutex_) = false;
  std::vector<Command> commands_ KVL_GUARDED_BY(mutex_);
  std::map<std::uint64_t, std::shared_ptr<DataTaskObject>> running_ KVL_GUARDED_BY(mutex_);
  // Whether the I/O thread waits, or is about to, and nobody has set about waking it.
  bool isAsleep_ KVL_GUARDED_BY(mutex_) = false;

  // Open from the thread's start on.
  Waker waker_;

  // The I/O thread's own, once it runs.
  MultiHandle multi_;
  std::optional<EasyHandles> handles_;
  const std::shared_ptr<BodyMemory> bodyMemory_ = std::make_shared<BodyMemory>();
  HostSlots slots_;
  Outbox outbox_;
  long keptConnections_ = 0;
  std::map<std::uint64_t, std::unique_ptr<Transfer>> transfers_;
  // Those of them that are in libcurl, by identifier. Only these are looked at in each pass.
  std::vector<Transfer*> active_;
  // When to look at the others, whose deadlines mostly move away before they come.
  Agenda waiting_;
  // Whether something called for the next pass, and how many in a row nothing did and found
  // nothing: as many as it takes while no connection is shared.
  bool isDisturbed_ = true;
  int quietPasses_ = kQuietPasses;
};

}  // namespace kvl::urlloading
