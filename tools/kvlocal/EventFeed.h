// Events on their way from the session to standard output: as lines of text, one event always one
// line whatever stands in it, and in a queue until they are printed.
#pragma once

#include "tools/kvlocal/Rendezvous.h"

#include <local/KVLSession.h>

#include <atomic>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace kvlocal {

// For people and simple filters: the name, then "id=" and "data=" with their values when present,
// separated by tabs.
[[nodiscard]] std::string plainEventLine(const KVLEvent& event);

// An object with the properties "event", "data" and "id"; absent ones are left out.
[[nodiscard]] std::string jsonEventLine(const KVLEvent& event);

// A queue of lines to be printed, in the order in which their events came. `add` blocks when the
// queue is full, which holds the service back.
class EventFeed final : public KVLSessionDelegate {
 public:
  // A line feed belongs to the line.
  using Format = std::function<std::string(const KVLEvent&)>;

  // The queue takes one more batch as long as fewer bytes than this wait in it.
  static constexpr std::size_t kMostWaitingBytes = std::size_t{1} << 20;

  EventFeed(std::shared_ptr<Rendezvous> rendezvous, Format format);

  // Adds events as soon as there is room. They are dropped once the feed is closed or the user has
  // interrupted the program; nobody waits from then on. One call at a time, on any thread.
  void add(const std::vector<std::shared_ptr<KVLEvent>>& events);

  // Takes all lines that wait, and waits for the first; none when the limit has passed, the user
  // has interrupted or the feed is closed, even if lines wait.
  [[nodiscard]] std::vector<std::string> take(Rendezvous::Limit limit);

  void close();

  // Whether any event has come, taken or not. Any thread.
  [[nodiscard]] bool hasReceived() const { return received_; }

  void eventStream(KVLSession& session,
                   const std::vector<std::shared_ptr<KVLEvent>>& events) override;

 private:
  void append(std::vector<std::string> lines);

  const std::shared_ptr<Rendezvous> rendezvous_;
  const Format format_;
  std::atomic<bool> received_ = false;
  // Protected by the rendezvous.
  bool closed_ = false;
  std::size_t waitingBytes_ = 0;
  std::vector<std::string> lines_;
};

}  // namespace kvlocal
