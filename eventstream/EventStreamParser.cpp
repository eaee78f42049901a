// The event-stream grammar: from the bytes of one chunk to the events that it completes.
#include "eventstream/EventCollector.h"
#include "eventstream/KVLEventStreamStateImplementation.h"
#include "platform/core/LineScan.h"

#include <cstring>
#include <utility>

namespace {

using kvl::core::ScannedLine;
using kvl::eventstream::EventCollector;

// The length of `bytes` up to and with its last line end.
std::size_t lengthOfLines(std::string_view bytes) {
  const void* last = bytes.empty() ? nullptr : memrchr(bytes.data(), '\n', bytes.size());
  if (last == nullptr) return 0;
  return static_cast<std::size_t>(static_cast<const char*>(last) - bytes.data()) + 1;
}

// Whole lines of `source`, each with its end.
void takeLines(EventCollector& collector, std::string_view lines, const kvl::Data& source) {
  static const auto scan = kvl::core::lineScan();
  while (!lines.empty()) {
    const ScannedLine line = scan(lines);
    collector.take(line.text, line.isASCII, source);
    lines.remove_prefix(line.text.size() + 1);
  }
}

}  // namespace

std::vector<std::shared_ptr<KVLEvent>> KVLEventStreamState::read(const kvl::Data& chunk) {
  auto& self = *implementation_;
  const std::string_view bytes = chunk.text();
  std::string_view lines = bytes.substr(0, lengthOfLines(bytes));
  const std::string_view rest = bytes.substr(lines.size());
  self.partialLine.resume(data());
  if (lines.empty()) {
    self.partialLine.append(rest);
    setData(self.partialLine.share());
    return {};
  }
  EventCollector collector(event());
  kvl::Data carriedLine;
  if (!self.partialLine.empty()) {
    const auto end = lines.find('\n') + 1;
    self.partialLine.append(lines.substr(0, end));
    lines.remove_prefix(end);
    carriedLine = self.partialLine.share();
    takeLines(collector, carriedLine.text(), carriedLine);
  }
  takeLines(collector, lines, chunk);
  self.partialLine.resume(std::nullopt);
  self.partialLine.append(rest);
  setData(self.partialLine.share());
  auto events = collector.finish();
  if (const auto identifier = collector.lastIdentifier()) setLastEventID(std::string(*identifier));
  return events;
}
