#include "platform/interface/client/Schedule.h"

#include <algorithm>
#include <utility>

namespace kvl::interface {

Schedule::Ticket Schedule::add(bool isSlow, std::size_t favouredPlace) {
  (isSlow ? slow_ : quick_).emplace(++lastTicket_, favouredPlace);
  return lastTicket_;
}

// A slow one takes the place that becomes free while a quick one has the other: without that, quick
// ones that keep coming would leave it no turn.
Schedule::Waiting* Schedule::nextList() {
  const auto isFree = [](const auto& place) { return !place; };
  if (std::ranges::none_of(places_, isFree)) return nullptr;
  if (slow_.empty()) return quick_.empty() ? nullptr : &quick_;
  const bool isQuickFirst = holder_ || std::ranges::all_of(places_, isFree);
  return !quick_.empty() && isQuickFirst ? &quick_ : &slow_;
}

std::optional<Schedule::Grant> Schedule::grant(Clock::time_point now) noexcept {
  Waiting* const list = nextList();
  if (list == nullptr) return std::nullopt;
  auto entry = list->extract(list->begin());
  const auto ticket = entry.key();
  std::size_t place = entry.mapped();
  if (place >= kPlaces || places_[place]) place = places_[0] ? 1 : 0;
  const bool isSlow = list == &slow_;
  places_[place] = Running{std::move(entry), now, isSlow, false};
  if (isSlow && !holder_) holder_ = ticket;
  return Grant{ticket, place};
}

std::optional<Schedule::Running>* Schedule::placeOf(Ticket ticket) {
  const auto place = std::ranges::find_if(
      places_, [ticket](const auto& running) { return running && running->ticket() == ticket; });
  return place == places_.end() ? nullptr : &*place;
}

void Schedule::restart(Ticket ticket, Clock::time_point now) {
  if (auto* const place = placeOf(ticket)) (*place)->since = now;
}

Schedule::Judgement Schedule::judge(Ticket ticket, Clock::time_point now) {
  auto* const place = placeOf(ticket);
  if (place == nullptr) return {Verdict::kEnd, std::nullopt};
  Running& running = **place;
  if (now - running.since < share_) return {Verdict::kGoOn, running.since + share_};
  if (running.isLetGo) return {Verdict::kEnd, std::nullopt};
  if (quick_.empty()) return {};
  running.isSlow = true;
  if (!holder_) holder_ = ticket;
  return {holder_ == ticket ? Verdict::kGoOn : Verdict::kPutOff, std::nullopt};
}

Schedule::Waiting::node_type Schedule::leave(std::optional<Running>& place) {
  auto entry = std::move(place->entry);
  place.reset();
  if (holder_ != entry.key()) return entry;
  holder_.reset();
  for (const auto& other : places_) {
    if (other && other->isSlow) holder_ = other->ticket();
  }
  return entry;
}

void Schedule::putOff(Ticket ticket) noexcept {
  auto* const place = placeOf(ticket);
  if (place == nullptr) return;
  slow_.insert(leave(*place));
}

bool Schedule::finish(Ticket ticket, Clock::time_point now) noexcept {
  auto* const place = placeOf(ticket);
  if (place == nullptr) return false;
  const bool isSlow = (*place)->isSlow || now - (*place)->since >= share_;
  leave(*place);
  return isSlow;
}

bool Schedule::letGo(Ticket ticket) noexcept {
  if (auto* const place = placeOf(ticket)) (*place)->isLetGo = true;
  return quick_.erase(ticket) + slow_.erase(ticket) > 0;
}

bool Schedule::isOverdue(std::size_t place, Clock::time_point now) const {
  return places_[place] && now - places_[place]->since >= share_;
}

bool Schedule::isIdle() const {
  return quick_.empty() && slow_.empty() &&
         std::ranges::none_of(places_, [](const auto& place) { return place.has_value(); });
}

}  // namespace kvl::interface
