// How many exchanges run with one host at a time.
#pragma once

#include <local/platform/URLRequest.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace kvl::urlloading {

// Admits exchanges by priority, and those of one priority in the order in which they ask. Until a
// connection to a host shows whether it multiplexes, one exchange probes it, so that a host that
// does gets one connection; then as many run as that connection carries streams, or as there may be
// connections. Exchanges that need a connection of their own share the others with a host that
// multiplexes. A host with which nothing runs is forgotten. libcurl's own limit and waiting list
// are not used: in 7.88 an exchange on that list is sometimes never taken up again. The engine asks
// it on its I/O thread.
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
    Use use;
    RequestPriority priority;
  };
  struct Host {
    std::map<Identifier, Use> running;
    std::deque<Waiting> waiting;
    bool probed = false;
    bool multiplexes = false;
    Time probedSince;
  };
  using Hosts = std::map<std::string, Host>;
  [[nodiscard]] static bool waitsForProbe(const Host& host);
  [[nodiscard]] bool hasRoom(const Host& host, Use use) const;
  void open(Host& host, bool multiplexes);
  void admitWaiting(Host& host);

  const std::size_t connections_;
  const bool mayMultiplex_;
  Hosts hosts_;
  std::map<Identifier, Hosts::iterator> places_;
  std::vector<Identifier> admitted_;
};

}  // namespace kvl::urlloading
