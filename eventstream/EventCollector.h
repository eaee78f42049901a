// Collects the fields of one event after the other from the lines of a chunk.
#pragma once

#include <local/KVLEvent.h>
#include <local/platform/Data.h>

#include <array>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kvl::eventstream {

// The lines are looked at where they stand, which has to stay until the collector is gone; an event
// is made when it is complete. One thread.
class EventCollector {
 public:
  using Events = std::vector<std::shared_ptr<KVLEvent>>;

  // Begins with `first` if there is one, otherwise with a new event.
  explicit EventCollector(std::shared_ptr<KVLEvent> first);

  // A line of `source` without its end. `isText`: it is known to be UTF-8.
  void take(std::string_view line, bool isText, const Data& source);

  // Drops what has been collected and returns the events in order.
  [[nodiscard]] Events finish();
  // The identifier of the last event that had one.
  [[nodiscard]] KVLEvent::TextView lastIdentifier() const { return lastIdentifier_; }

 private:
  using Value = KVLEvent::TextView;

  void dispatch();
  void reject(std::string_view line);
  void clear();
  void setField(std::string_view name, std::string_view value, const Data& source);
  [[nodiscard]] bool isValid() const noexcept;
  [[nodiscard]] bool sharesData() const noexcept;
  [[nodiscard]] std::shared_ptr<KVLEvent> makeEvent();
  void writeToFirst();

  // The event that was there before the chunk, until it is complete or given up, and what it held.
  std::shared_ptr<KVLEvent> first_;
  const std::array<KVLEvent::Text, 3> firstTexts_;
  Value event_;
  Value data_;
  const Data* dataSource_ = nullptr;
  Value identifier_;
  Events events_;
  Value lastIdentifier_;
};

}  // namespace kvl::eventstream
