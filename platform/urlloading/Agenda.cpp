#include "platform/urlloading/Agenda.h"

namespace kvl::urlloading {

void Agenda::set(Identifier identifier, Time time) {
  remove(identifier);
  if (time == Time::max()) return;
  times_.emplace(identifier, time);
  order_.emplace(time, identifier);
}

void Agenda::remove(Identifier identifier) {
  const auto found = times_.extract(identifier);
  if (!found.empty()) order_.erase({found.mapped(), identifier});
}

Agenda::Time Agenda::earliest() const noexcept {
  return order_.empty() ? Time::max() : order_.begin()->first;
}

std::vector<Agenda::Identifier> Agenda::takeDue(Time now) {
  std::vector<Identifier> due;
  while (!order_.empty() && earliest() <= now) {
    due.push_back(order_.begin()->second);
    remove(due.back());
  }
  return due;
}

}  // namespace kvl::urlloading
