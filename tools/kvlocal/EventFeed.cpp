#include "tools/kvlocal/EventFeed.h"

#include "tools/kvlocal/Text.h"

#include <local/platform/Text.h>

#include <iterator>
#include <utility>

namespace kvlocal {

std::string plainEventLine(const KVLEvent& event) {
  std::string line = escaped(event.event().value_or(""));
  if (const auto identifier = event.identifier()) line += "\tid=" + escaped(*identifier);
  if (const auto data = event.data()) line += "\tdata=" + escaped(*data);
  return line + '\n';
}

std::string jsonEventLine(const KVLEvent& event) {
  kvl::Dictionary value;
  if (const auto name = event.event()) value.set("event", *name);
  if (const auto data = event.data()) value.set("data", *data);
  if (const auto identifier = event.identifier()) value.set("id", *identifier);
  return kvl::jsonText(value) + '\n';
}

EventFeed::EventFeed(std::shared_ptr<Rendezvous> rendezvous, Format format)
    : rendezvous_(std::move(rendezvous)), format_(std::move(format)) {}

void EventFeed::add(const std::vector<std::shared_ptr<KVLEvent>>& events) {
  received_ = true;
  std::vector<std::string> lines;
  lines.reserve(events.size());
  for (const auto& event : events) lines.push_back(format_(*event));
  const auto result =
      rendezvous_->wait({}, [&] { return closed_ || waitingBytes_ < kMostWaitingBytes; });
  if (result != Rendezvous::Result::met) return;
  rendezvous_->change([&] {
    if (!closed_) append(std::move(lines));
  });
}

void EventFeed::append(std::vector<std::string> lines) {
  for (const std::string& line : lines) waitingBytes_ += line.size();
  lines_.insert(lines_.end(), std::make_move_iterator(lines.begin()),
                std::make_move_iterator(lines.end()));
}

std::vector<std::string> EventFeed::take(Rendezvous::Limit limit) {
  std::vector<std::string> taken;
  if (rendezvous_->isOver(limit)) return taken;
  const auto result = rendezvous_->wait(limit, [this] { return closed_ || !lines_.empty(); });
  if (result != Rendezvous::Result::met) return taken;
  rendezvous_->change([&] {
    if (closed_) return;
    taken.swap(lines_);
    waitingBytes_ = 0;
  });
  return taken;
}

void EventFeed::close() {
  rendezvous_->change([this] {
    closed_ = true;
    lines_.clear();
  });
}

void EventFeed::eventStream(KVLSession& /*session*/,
                            const std::vector<std::shared_ptr<KVLEvent>>& events) {
  add(events);
}

}  // namespace kvlocal
