#include "platform/urlloading/HostSlots.h"

#include <algorithm>
#include <utility>

namespace kvl::urlloading {
namespace {

// What servers are asked to allow at least (RFC 9113, 6.5.2).
constexpr std::size_t kStreamsPerConnection = 100;

}  // namespace

HostSlots::HostSlots(int connections, bool mayMultiplex)
    : connections_(static_cast<std::size_t>(std::max(connections, 1))),
      mayMultiplex_(mayMultiplex) {}

bool HostSlots::admit(Identifier identifier, const std::string& name, Time now) {
  const auto [place, isNew] = hosts_.try_emplace(name);
  Host& host = place->second;
  if (isNew) host.probedSince = now;
  if (isNew && !mayMultiplex_) open(host, connections_);
  places_[identifier] = place;
  if (host.running.size() >= host.room || !host.waiting.empty()) {
    host.waiting.push_back(identifier);
    return false;
  }
  host.running.insert(identifier);
  return true;
}

void HostSlots::release(Identifier identifier) {
  const auto found = places_.extract(identifier);
  if (found.empty()) return;
  const auto place = found.mapped();
  Host& host = place->second;
  host.running.erase(identifier);
  std::erase(host.waiting, identifier);
  std::erase(admitted_, identifier);
  admitWaiting(host);
  if (host.running.empty()) hosts_.erase(place);
}

void HostSlots::noteMultiplexing(Identifier identifier, bool multiplexes) {
  const auto found = places_.find(identifier);
  if (found == places_.end() || !mayMultiplex_) return;
  open(found->second->second, multiplexes ? kStreamsPerConnection : connections_);
}

bool HostSlots::isProbed(Identifier identifier) const {
  const auto found = places_.find(identifier);
  return found != places_.end() && found->second->second.probed;
}

bool HostSlots::waitsForProbe(const Host& host) {
  return !host.probed && !host.waiting.empty();
}

bool HostSlots::endProbes(Time now) {
  bool ended = false;
  for (auto& [name, host] : hosts_) {
    if (!waitsForProbe(host) || host.probedSince + kProbingTime > now) continue;
    open(host, connections_);
    ended = true;
  }
  return ended;
}

std::optional<HostSlots::Time> HostSlots::nextProbeEnd() const {
  std::optional<Time> next;
  for (const auto& [name, host] : hosts_) {
    if (!waitsForProbe(host)) continue;
    const auto end = host.probedSince + kProbingTime;
    next = next ? std::min(*next, end) : end;
  }
  return next;
}

void HostSlots::open(Host& host, std::size_t room) {
  host.probed = true;
  host.room = room;
  admitWaiting(host);
}

void HostSlots::admitWaiting(Host& host) {
  while (!host.waiting.empty() && host.running.size() < host.room) {
    host.running.insert(host.waiting.front());
    admitted_.push_back(host.waiting.front());
    host.waiting.pop_front();
  }
}

std::vector<HostSlots::Identifier> HostSlots::takeAdmitted() {
  return std::exchange(admitted_, {});
}

}  // namespace kvl::urlloading
