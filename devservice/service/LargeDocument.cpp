#include "devservice/service/LargeDocument.h"

#include <algorithm>
#include <string_view>

namespace devservice {
namespace {

constexpr std::string_view kEnd = "]}";

// All records are equally long: the last one has a blank in place of the comma.
void appendRecord(std::string& text, std::size_t number, bool isLast) {
  const std::size_t end = text.size() + LargeDocument::kRecordSize;
  const std::string digits = std::to_string(number);
  text.append(R"({"number":)").append(digits);
  text.append(R"(,"name":"record )").append(digits).append(R"(","text":")");
  const std::string_view close = isLast ? "\"} \n" : "\"},\n";
  text.append(end - close.size() - text.size(), 'x').append(close);
}

}  // namespace

LargeDocument::LargeDocument(std::size_t records)
    : records_(records), start_("{\"count\":" + std::to_string(records) + ",\"records\":[\n") {}

std::size_t LargeDocument::size() const noexcept {
  return start_.size() + records_ * kRecordSize + kEnd.size();
}

void LargeDocument::append(std::string& text, std::size_t offset, std::size_t most) const {
  if (offset < start_.size()) {
    text.append(start_, offset);
    return;
  }
  offset -= start_.size();
  const std::size_t first = offset / kRecordSize;
  if (first >= records_) {
    text.append(kEnd.substr(std::min(offset - records_ * kRecordSize, kEnd.size())));
    return;
  }
  std::string made;
  const std::size_t last = std::min(records_, first + std::max<std::size_t>(1, most / kRecordSize));
  for (std::size_t i = first; i < last; ++i) appendRecord(made, i, i + 1 == records_);
  text.append(made, offset % kRecordSize);
}

}  // namespace devservice
