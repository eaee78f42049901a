// The I/O thread of one session object.
#pragma once

#include "platform/urlloading/CurlLibrary.h"
#include "platform/urlloading/DataTaskObject.h"
#include "platform/urlloading/HostSlots.h"
#include "platform/urlloading/IOThreads.h"

#include <local/platform/URLSession.h>

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

namespace kvl::urlloading {

class Transfer;

// Runs transfers from the first task on. The thread keeps the engine alive; it ends by itself when
// the engine is invalidated and no task runs.
class Engine final : public Abandonable, public std::enable_shared_from_this<Engine> {
 public:
  explicit Engine(URLSessionConfiguration configuration);
  ~Engine() override;

  // From any thread.
  // Starts the task with `request`, which is fit to be sent; why not, when it cannot be.
  [[nodiscard]] std::optional<Error> start(std::shared_ptr<DataTaskObject> task,
                                           URLRequest request);
  void cancel(std::uint64_t identifier);
  void unpause(std::uint64_t identifier);
  // Refuses tasks from now on.
  void invalidate();
  [[nodiscard]] bool isInvalidated() const;
  [[nodiscard]] std::vector<std::shared_ptr<DataTaskObject>> runningTasks() const;
  void abandon() override;

 private:
  struct Command {
    enum class Kind { start, cancel, unpause } kind;
    std::uint64_t identifier;
    std::shared_ptr<DataTaskObject> task;
    std::optional<URLRequest> request;
  };

  // With `mutex_` held.
  [[nodiscard]] bool ensureThread();
  void post(Command command);
  void wake();
  [[nodiscard]] bool isOver() const;

  // On the I/O thread.
  void run();
  [[nodiscard]] bool hasWork() const;
  [[nodiscard]] bool takeCommands(std::vector<Command>& commands);
  void execute(Command& command);
  void begin(Command& command);
  // Begins the exchange, now or when its host has room for it.
  void launch(Transfer& transfer);
  void perform(Transfer& transfer);
  void launchAdmitted();
  void stop(std::uint64_t identifier);
  void step();
  void flushBodies(SteadyTime passBegan);
  // Waits for something to do.
  void rest();
  [[nodiscard]] bool timerIsDue() const;
  // Whether the next pass has something to do at once.
  [[nodiscard]] bool isReady() const;
  // Whether a chunk of events grows at once.
  [[nodiscard]] bool isGrowing() const;
  void noteConnections();
  void leaveOutChallenges();
  void reapFinished();
  void finishExchange(Transfer& transfer, CURLcode code);
  void expireIdle();
  void end(Transfer& transfer, TaskOutcome outcome);
  [[nodiscard]] int pollMilliseconds() const;
  void tearDown();

  const URLSessionConfiguration configuration_;

  mutable std::mutex mutex_;  // guards what follows
  MultiHandle multi_;         // used without the lock on the I/O thread, which alone frees it
  bool threadRuns_ = false;
  bool invalidated_ = false;
  bool abandoned_ = false;
  std::vector<Command> commands_;
  std::map<std::uint64_t, std::shared_ptr<DataTaskObject>> running_;

  // The I/O thread's own.
  ShareHandle cookies_;
  HostSlots slots_;
  std::map<std::uint64_t, std::unique_ptr<Transfer>> transfers_;
  // Whether the last pass may have left something undone.
  bool restless_ = true;
};

}  // namespace kvl::urlloading
