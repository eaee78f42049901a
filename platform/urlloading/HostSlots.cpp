#include "platform/urlloading/HostSlots.h"

#include <algorithm>
#include <utility>

namespace kvl::urlloading {
namespace {

// What servers are asked to allow at least (RFC 9113, 6.5.2).
constexpr std::size_t kStreamsPerConnection = 100;

constexpr std::size_t indexOf(HostSlots::Use use) {
  return static_cast<std::size_t>(use);
}

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
  Place& own = places_.insert_or_assign(identifier, Place{place, use}).first->second;
  // Nobody is overtaken unseen: whoever waits found no room, and is taken up as soon as there is
  // some.
  if (!hasRoom(host, use)) {
    stand(identifier, own, priority);
    return false;
  }
  ++host.running[indexOf(use)];
  return true;
}

void HostSlots::stand(Identifier identifier, Place& place, RequestPriority priority) {
  Host& host = place.host->second;
  place.line = &host.waiting[priority][indexOf(place.use)];
  place.position = place.line->insert(place.line->end(), {identifier, ++turns_});
  ++host.waits;
}

void HostSlots::leave(Place& place) {
  std::exchange(place.line, nullptr)->erase(place.position);
  --place.host->second.waits;
}

bool HostSlots::hasRoom(const Host& host, Use use) const {
  if (!host.probed) return running(host) == 0;
  if (!host.multiplexes) return running(host) < connections_;
  // One of the connections is the shared one.
  return host.running[indexOf(use)] <
         (use == Use::shared ? kStreamsPerConnection : std::max<std::size_t>(connections_ - 1, 1));
}

void HostSlots::release(Identifier identifier) {
  const auto found = places_.find(identifier);
  if (found == places_.end()) return;
  Place& place = found->second;
  const auto named = place.host;
  Host& host = named->second;
  if (place.line != nullptr) {
    leave(place);
  } else {
    --host.running[indexOf(place.use)];
    std::erase(admitted_, identifier);
  }
  places_.erase(found);
  admitWaiting(host);
  if (running(host) == 0) hosts_.erase(named);
}

void HostSlots::noteMultiplexing(Identifier identifier, bool multiplexes) {
  const auto found = places_.find(identifier);
  if (found == places_.end() || !mayMultiplex_) return;
  open(found->second.host->second, multiplexes);
}

bool HostSlots::isProbed(Identifier identifier) const {
  const auto found = places_.find(identifier);
  return found != places_.end() && found->second.host->second.probed;
}

bool HostSlots::waitsForProbe(const Host& host) {
  return !host.probed && host.waits > 0;
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

// A priority whose exchanges find no room lets those of lower ones pass that do.
HostSlots::Line* HostSlots::nextLine(Host& host) const {
  for (auto& [priority, lines] : host.waiting) {
    Line* next = nullptr;
    for (const Use use : {Use::shared, Use::exclusive}) {
      Line& line = lines[indexOf(use)];
      if (line.empty() || !hasRoom(host, use)) continue;
      if (next == nullptr || line.front().turn < next->front().turn) next = &line;
    }
    if (next != nullptr) return next;
  }
  return nullptr;
}

void HostSlots::admitWaiting(Host& host) {
  if (host.waits == 0) return;
  while (const Line* line = nextLine(host)) {
    const auto identifier = line->front().identifier;
    Place& place = places_.at(identifier);
    leave(place);
    ++host.running[indexOf(place.use)];
    admitted_.push_back(identifier);
  }
}

std::vector<HostSlots::Identifier> HostSlots::takeAdmitted() {
  return std::exchange(admitted_, {});
}

}  // namespace kvl::urlloading
