// How many exchanges run with one host at a time.
#pragma once

#include <local/platform/URLRequest.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace kvl::urlloading {

// Admits exchanges by priority, and those of one priority in the order in which they ask. Until a
// connection to a host shows whether it multiplexes, one exchange probes it, so that a host that
// does gets one connection; then as many run as that connection carries streams, or as there may be
// connections. Exchanges that need a connection of their own share the others with a host that
// multiplexes. A host with which nothing runs is forgotten. libcurl's own limit and waiting list
// are not used: in 7.88 an exchange on that list is sometimes never taken up again. However many
// wait, what is done for one takes as long. The engine asks it on its I/O thread.
class HostSlots {
 public:
  using Identifier = std::uint64_t;
  using Time = std::chrono::steady_clock::time_point;

  // How long others wait for the exchange that probes their host.
  static constexpr std::chrono::seconds kProbingTime{2};

  // Without `mayMultiplex` no host does, and none is probed.
  HostSlots(int connections, bool mayMultiplex);

  // How an exchange uses its connection.
  enum class Use { shared, exclusive };

  // Whether the exchange may begin; otherwise it waits until `takeAdmitted` names it.
  [[nodiscard]] bool admit(Identifier identifier, const std::string& host, Time now,
                           Use use = Use::shared,
                           RequestPriority priority = RequestPriority::usual);
  // Gives up the exchange's slot, or its place among those that wait.
  void release(Identifier identifier);
  // The connection of this running exchange shows whether its host multiplexes.
  void noteMultiplexing(Identifier identifier, bool multiplexes);
  // Whether the probing of the exchange's host is over, with or without a result.
  [[nodiscard]] bool isProbed(Identifier identifier) const;
  // Lets those go on that have waited for a probe long enough; true when there were any.
  bool endProbes(Time now);
  // When `endProbes` is due, if anybody waits for a probe.
  [[nodiscard]] std::optional<Time> nextProbeEnd() const;
  // With how many hosts something runs.
  [[nodiscard]] std::size_t hosts() const noexcept { return hosts_.size(); }
  // Exchanges that waited and may begin now.
  [[nodiscard]] std::vector<Identifier> takeAdmitted();

 private:
  struct Waiting {
    Identifier identifier;
    std::uint64_t turn;
  };
  // Those of one priority, for each use in the order in which they asked.
  using Line = std::list<Waiting>;
  using Lines = std::array<Line, 2>;
  struct Host {
    std::array<std::size_t, 2> running{};
    std::map<RequestPriority, Lines, std::greater<>> waiting;
    std::size_t waits = 0;
    bool probed = false;
    bool multiplexes = false;
    Time probedSince;
  };
  using Hosts = std::map<std::string, Host>;
  struct Place {
    Hosts::iterator host;
    Use use;
    Line* line = nullptr;  // null: it runs
    Line::iterator position = {};
  };
  [[nodiscard]] static std::size_t running(const Host& host) {
    return host.running[0] + host.running[1];
  }
  [[nodiscard]] static bool waitsForProbe(const Host& host);
  [[nodiscard]] bool hasRoom(const Host& host, Use use) const;
  void stand(Identifier identifier, Place& place, RequestPriority priority);
  void leave(Place& place);
  void open(Host& host, bool multiplexes);
  // The line whose first is the next to begin; null when nobody may.
  [[nodiscard]] Line* nextLine(Host& host) const;
  void admitWaiting(Host& host);

  const std::size_t connections_;
  const bool mayMultiplex_;
  Hosts hosts_;
  std::unordered_map<Identifier, Place> places_;
  std::vector<Identifier> admitted_;
  std::uint64_t turns_ = 0;
};

}  // namespace kvl::urlloading
