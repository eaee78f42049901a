// Whose turn it is at the decoders. Rules only: it waits for nothing and reads no clock.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>

namespace kvl::interface {

// Requests take turns at two places, first come, first served, in two lists. A request is quick
// until it has run for its share while quick ones wait; then it is slow. One slow request, the
// holder, keeps its place to its end. A second one may have the other place, but gives it up as
// soon as a quick one waits and its share is over: it is put off, and begins anew at its old rank.
// So a quick one waits for one share for each of those before it, and slow ones never have more
// than half of what there is.
class Schedule {
 public:
  static constexpr std::size_t kPlaces = 2;
  using Clock = std::chrono::steady_clock;
  using Ticket = std::uint64_t;

  struct Grant {
    Ticket ticket;
    std::size_t place;
  };
  enum class Verdict {
    kGoOn,
    kPutOff,  // while it has not been told so by `putOff`, it runs
    kEnd      // it has been let go, and its share is over
  };
  struct Judgement {
    Verdict verdict = Verdict::kGoOn;
    std::optional<Clock::time_point> again;  // none: when `isOverdue` and something has changed
  };

  explicit Schedule(Clock::duration share) : share_(share) {}

  // `isSlow`: its image has taken more than a share before. It gets `favouredPlace` if that is
  // free.
  [[nodiscard]] Ticket add(bool isSlow, std::size_t favouredPlace);
  // The next one that is to run, if any may; called until there is none.
  [[nodiscard]] std::optional<Grant> grant(Clock::time_point now) noexcept;
  // Its share counts from now on.
  void restart(Ticket ticket, Clock::time_point now);
  [[nodiscard]] Judgement judge(Ticket ticket, Clock::time_point now);
  // It has stopped running and waits again.
  void putOff(Ticket ticket) noexcept;
  // It has stopped running for good. Whether it was slow.
  bool finish(Ticket ticket, Clock::time_point now) noexcept;
  // Whether it waited and is forgotten. One that runs ends with its share at the latest.
  [[nodiscard]] bool letGo(Ticket ticket) noexcept;

  // Whether one runs there that has to be judged anew when a quick one comes or it is let go.
  [[nodiscard]] bool isOverdue(std::size_t place, Clock::time_point now) const;
  [[nodiscard]] bool isIdle() const;

 private:
  using Waiting = std::map<Ticket, std::size_t>;  // with the favoured place
  struct Running {
    Waiting::node_type entry;  // put off, it needs no memory
    Clock::time_point since;
    bool isSlow;
    bool isLetGo;

    [[nodiscard]] Ticket ticket() const { return entry.key(); }
  };

  [[nodiscard]] Waiting* nextList();
  [[nodiscard]] std::optional<Running>* placeOf(Ticket ticket);
  Waiting::node_type leave(std::optional<Running>& place);

  const Clock::duration share_;
  Ticket lastTicket_ = 0;
  Waiting quick_;
  Waiting slow_;
  std::array<std::optional<Running>, kPlaces> places_;
  std::optional<Ticket> holder_;
};

}  // namespace kvl::interface
