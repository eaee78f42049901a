// The accounts of a soak: what was asked and what came back. Each request is answered once, with
// its own answer.
#pragma once

#include <local/platform/Error.h>
#include <local/platform/Mutex.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace kvltest {

class Ledger;

// The requests of other hosts have greater numbers.
inline constexpr std::int64_t kVisitors = 1'000'000'000'000;

// One request. Handlers hold it; when the last one is gone without having been called, the ledger
// knows that the answer was lost. Usable from any thread.
class Ticket {
 public:
  Ticket(std::shared_ptr<Ledger> ledger, std::int64_t number, const char* kind)
      : ledger_(std::move(ledger)), number_(number), kind_(kind) {}
  ~Ticket();
  Ticket(const Ticket&) = delete;
  Ticket& operator=(const Ticket&) = delete;

  [[nodiscard]] std::int64_t number() const noexcept { return number_; }
  // Appears in what is asked, and in its answer.
  [[nodiscard]] std::string text() const { return std::to_string(number_); }
  [[nodiscard]] const char* kind() const noexcept { return kind_; }

  // The request's outcome; exactly one of these is to be called, once.
  void answered();
  void failed(const std::optional<kvl::Error>& error);
  // An answer that is not the one to this request.
  void answeredWrongly(const std::string& answer);

 private:
  // Whether this is the first outcome.
  bool settle();

  const std::shared_ptr<Ledger> ledger_;
  const std::int64_t number_;
  const char* const kind_;
  std::atomic<int> outcomes_{0};
};
using TicketRef = std::shared_ptr<Ticket>;

class Ledger : public std::enable_shared_from_this<Ledger> {
 public:
  // Numbers follow this one.
  explicit Ledger(std::int64_t before = 0) : before_(before) {}

  struct Totals {
    std::int64_t sent = 0;
    std::int64_t answered = 0;
    std::int64_t failed = 0;
    std::int64_t lost = 0;     // the handler went without a call
    std::int64_t doubled = 0;  // called more than once
    std::int64_t wrong = 0;    // somebody else's answer
    std::int64_t open = 0;
    std::map<std::string, std::int64_t> sentByKind;
    std::map<std::string, std::int64_t> errors;  // by domain and code
  };

  [[nodiscard]] TicketRef open(const char* kind);
  [[nodiscard]] Totals totals() const;
  // What went wrong, a line for each of the first ones.
  [[nodiscard]] std::vector<std::string> faults() const;
  // Waits until nothing is open; false when something still is at the end of that time.
  [[nodiscard]] bool waitUntilNothingIsOpen(std::chrono::milliseconds limit) const;
  // The requests that have been open for longer than that, a line for each of the first ones.
  [[nodiscard]] std::vector<std::string> openForLongerThan(std::chrono::seconds time) const;

 private:
  friend class Ticket;
  using Clock = std::chrono::steady_clock;
  struct Open {
    const char* kind;
    Clock::time_point since;
  };

  void count(std::int64_t Totals::* column, const Ticket& ticket);
  void fault(std::int64_t Totals::* column, const Ticket& ticket, const std::string& what);

  const std::int64_t before_;
  mutable kvl::Mutex mutex_;
  mutable kvl::Condition changed_;
  Totals totals_ KVL_GUARDED_BY(mutex_);
  std::map<std::int64_t, Open> open_ KVL_GUARDED_BY(mutex_);
  std::vector<std::string> faults_ KVL_GUARDED_BY(mutex_);
};

}  // namespace kvltest
