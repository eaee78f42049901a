// One chain of renewals, however many timers are set.
#pragma once

#include <atomic>
#include <cstdint>

namespace kvl::session {

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

}  // namespace kvl::session
