// One fault, seen by a host: a session on a private bus with a key store, the development notary
// and service as processes, and a record of everything that the host is told.
//
//   TEST_F(NotaryFaults, Absent) {
//     begin();                                  // established, idle; figures are taken
//     beginFault();
//     notary().kill();
//     session->enqueueNotarisation();
//     expectLog("notarisation error: Error Domain=NSCocoaErrorDomain Code=4099");
//     expectFailure(ask(), kvl::NSURLErrorDomain, kvl::NSURLErrorUnknown);
//     endFault();
//     startNotary();
//     recover();                                // established and answered again; figures as
//     before EXPECT_EQ(statesSeen(), "established, disconnected, established"); report("notary",
//     "absent");               // a row of the table
//   }
#pragma once

#include "platform/environment/Environment.h"
#include "tests/integration/LocalService.h"
#include "tests/support/ImpatientQueue.h"

#include <local/platform/Mutex.h>
#include <local/platform/Semaphore.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kvltest {

// What a host is told, in order; what repeats itself is told once ("a, b, a, b" is "a, b").
class Story {
 public:
  void add(const std::string& step);
  // Begins anew with the last step.
  void forget();
  [[nodiscard]] std::string text() const;

 private:
  mutable kvl::Mutex mutex_;
  std::vector<std::string> steps_ KVL_GUARDED_BY(mutex_);
};

// What the process holds when nothing is under way.
struct Figures {
  std::size_t threads = 0;
  std::size_t descriptors = 0;
  std::int64_t memory = 0;
};

class FaultScene : public LocalService {
 public:
  // For how long what counts as part of the host must stay.
  static constexpr std::chrono::hours kNever{1};

 protected:
  // A request on its way. Each carries a number of its own, as `number=N` in its query, which a
  // successful answer must hold; no answer may hold another one.
  struct Question {
    std::uint64_t number = 0;
    std::shared_ptr<kvl::DataTask> task;
    std::shared_ptr<Reply> reply = std::make_shared<Reply>();
    std::shared_ptr<kvl::Semaphore> done = std::make_shared<kvl::Semaphore>();
  };

  FaultScene();
  ~FaultScene() override;

  // What notary and session get; for changes before `startHost`. Retries come after 50 ms, and the
  // intervals asked for are recorded.
  kvl::Environment& environment() { return *environment_; }

  // Starts the notary as a process of the test's, and returns when it is on the bus.
  void startNotary(const std::vector<std::string>& options = {});
  // Retries wait until they are released or the notary is started anew; none is under way any more.
  void holdRetries();
  void releaseRetries();
  // In the place of the one that runs; nobody finds none.
  void restartNotary(const std::vector<std::string>& options = {});
  [[nodiscard]] ChildProcess& notary() { return notary_; }
  [[nodiscard]] bool waitForNotaryLog(std::string_view part) const;
  // Makes notary client and session, and begins to record.
  void startHost();

  // A renewal that brings a signature.
  void renew();

  // Waits until the session is established, answered and idle, twice, and takes the figures.
  void settle();
  // Notary, service and host as everybody wants them, settled.
  void begin();

  // The stories, logs and intervals begin here.
  void beginFault();
  // The fault's cause is about to go; the time until all is well is taken from here.
  void endFault();

  // The longest silence that requests bear from now on; the session's own without one.
  void setLongestSilence(std::optional<std::chrono::nanoseconds> silence) { silence_ = silence; }
  [[nodiscard]] Question startAsking(const std::string& path = "echo");
  // Waits for the outcome and looks at the numbers in it.
  [[nodiscard]] static Reply outcomeOf(const Question& question);
  [[nodiscard]] Reply ask(const std::string& path = "echo") { return outcomeOf(startAsking(path)); }
  // Many at a time.
  [[nodiscard]] std::vector<Reply> askMany(std::size_t count, const std::string& path = "echo");

  // Waits until the host has been told of the state, since the fault began.
  [[nodiscard]] bool waitForState(KVLSessionState state, std::size_t times = 1);
  [[nodiscard]] std::string statesSeen() const { return seen_->states.text(); }
  [[nodiscard]] std::string progressSeen() const { return seen_->progress.text(); }

  // The delays of the session's timers in seconds, since the fault began.
  [[nodiscard]] std::vector<double> delays() const;

  // These put what they expect into the row.
  void expectAnswer(const Reply& reply, int status = 200);
  void expectFailure(const Reply& reply, std::string_view domain, std::int64_t code);
  // Waits for a line that holds `part`, since the fault began.
  void expectLog(std::string_view part);
  // That long after a failure, in seconds, the session meant to notarise.
  void expectRetryAfter(double seconds);

  // Waits until a request is answered, and then until nothing is left of the fault: descriptors as
  // before, no more threads, everybody answered.
  void recover();
  // Ends the test's row; where the variable KVL_FAULT_TABLE names a file, it goes there.
  void report(std::string_view part, std::string_view fault) const;

 private:
  struct Seen {
    Story states;
    Story progress;
  };
  struct Row {
    Story requests;
    std::vector<std::string> log;
    std::vector<double> retries;
    std::chrono::milliseconds recovery{0};
  };

  void runOnce();
  [[nodiscard]] static Figures figuresAtRest();

  const std::shared_ptr<ImpatientQueue> timers_;
  const std::shared_ptr<kvl::Environment> environment_ = std::make_shared<kvl::Environment>();
  ChildProcess notary_;
  Figures before_;
  Figures after_;
  Row row_;
  std::optional<std::chrono::nanoseconds> silence_;
  std::size_t firstDelay_ = 0;
  std::size_t countsBefore_[4] = {};
  std::chrono::steady_clock::time_point faultEnd_;
  const std::shared_ptr<Seen> seen_ = std::make_shared<Seen>();
  kvl::Observation states_;
  kvl::Observation progress_;
};

}  // namespace kvltest
