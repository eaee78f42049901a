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

bool HostSlots::admit(Identifier identifier, const std::string& name, Time now, Use use,
                      RequestPriority priority) {
  const auto [place, isNew] = hosts_.try_emplace(name);
  Host& host = place->second;
  if (isNew) host.probedSince = now;
  if (isNew && !mayMultiplex_) open(host, false);
  places_[identifier] = place;
  // Nobody is overtaken unseen: whoever waits found no room, and is taken up as soon as there is
  // some.
  if (!hasRoom(host, use)) {
    const auto next = std::ranges::find_if(
        host.waiting, [priority](const Waiting& other) { return other.priority < priority; });
    host.waiting.insert(next, {identifier, use, priority});
    return false;
  }
  host.running.emplace(identifier, use);
  return true;
}

bool HostSlots::hasRoom(const Host& host, Use use) const {
  if (!host.probed) return host.running.empty();
  if (!host.multiplexes) return host.running.size() < connections_;
  const auto alike = static_cast<std::size_t>(std::ranges::count_if(
      host.running, [use](const auto& running) { return running.second == use; }));
  // One of the connections is the shared one.
  return alike <
         (use == Use::shared ? kStreamsPerConnection : std::max<std::size_t>(connections_ - 1, 1));
}

void HostSlots::release(Identifier identifier) {
  const auto found = places_.extract(identifier);
  if (found.empty()) return;
  const auto place = found.mapped();
  Host& host = place->second;
  host.running.erase(identifier);
  std::erase_if(host.waiting, [&](const Waiting& other) { return other.identifier == identifier; });
  std::erase(admitted_, identifier);
  admitWaiting(host);
  if (host.running.empty()) hosts_.erase(place);
}

void HostSlots::noteMultiplexing(Identifier identifier, bool multiplexes) {
  const auto found = places_.find(identifier);
  if (found == places_.end() || !mayMultiplex_) return;
  open(found->second->second, multiplexes);
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
    open(host, false);
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

void HostSlots::open(Host& host, bool multiplexes) {
  host.probed = true;
  host.multiplexes = multiplexes;
  admitWaiting(host);
}

void HostSlots::admitWaiting(Host& host) {
  std::erase_if(host.waiting, [&](const Waiting& next) {
    if (!hasRoom(host, next.use)) return false;
    host.running.emplace(next.identifier, next.use);
    admitted_.push_back(next.identifier);
    return true;
  });
}

std::vector<HostSlots::Identifier> HostSlots::takeAdmitted() {
  return std::exchange(admitted_, {});
}

}  // namespace kvl::urlloading
