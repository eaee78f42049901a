#include "platform/urlloading/ResponseHead.h"

#include "platform/core/ASCII.h"

#include <charconv>
#include <string>

namespace kvl::urlloading {
namespace {

constexpr std::string_view kProtocolPrefix = "HTTP/";
constexpr int kFirstFinalStatus = 200;

int numberIn(std::string_view text) {
  int number = 0;
  std::from_chars(text.data(), text.data() + text.size(), number);
  return number;
}

// "1.1" is 11, "2" is 20.
int versionIn(std::string_view text) {
  const auto point = text.find('.');
  const int minor = point == std::string_view::npos ? 0 : numberIn(text.substr(point + 1));
  return 10 * numberIn(text.substr(0, point)) + minor;
}

}  // namespace

bool ResponseHead::take(std::string_view line) {
  if (complete_) return false;
  if (line.starts_with(kProtocolPrefix)) {
    takeStatusLine(line);
  } else if (ascii::trimmed(line).empty()) {
    complete_ = status_ >= kFirstFinalStatus;
  } else {
    takeField(line);
  }
  return complete_;
}

void ResponseHead::takeStatusLine(std::string_view line) {
  fields_.clear();
  const auto space = line.find(' ');
  version_ = versionIn(line.substr(kProtocolPrefix.size(), space - kProtocolPrefix.size()));
  status_ = space == std::string_view::npos ? 0 : numberIn(ascii::trimmed(line.substr(space)));
}

void ResponseHead::takeField(std::string_view line) {
  const auto colon = line.find(':');
  if (colon == std::string_view::npos) return;
  fields_.append(ascii::trimmed(line.substr(0, colon)), ascii::trimmed(line.substr(colon + 1)));
}

}  // namespace kvl::urlloading
