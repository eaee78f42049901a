#include "platform/urlloading/DeclineWatch.h"

#include <algorithm>
#include <charconv>
#include <optional>
#include <utility>

namespace kvl::urlloading {
namespace {

// As libcurl 7.88 spells it, and as later versions do.
constexpr std::string_view kStream = "Using Stream ID: ";
constexpr std::string_view kLaterStream = "[HTTP/2] [";
constexpr std::string_view kLaterStreamEnd = "] OPENED stream for ";
constexpr std::string_view kRefused = "REFUSED_STREAM, ";
constexpr std::string_view kGoAway = "recveived GOAWAY, ";
constexpr std::string_view kLaterGoAway = "received GOAWAY, ";
constexpr std::string_view kLastStream = "last_stream=";

// The number that follows upon `label`.
std::optional<std::uint32_t> numberAfter(std::string_view label, std::string_view text) {
  const auto place = text.find(label);
  if (place == std::string_view::npos) return std::nullopt;
  text.remove_prefix(place + label.size());
  std::uint32_t number = 0;
  const auto result = std::from_chars(text.data(), text.data() + text.size(), number);
  return result.ec == std::errc() ? std::optional(number) : std::nullopt;
}

// The number of the exchange's stream, where the text tells it.
std::optional<std::uint32_t> streamIn(std::string_view text) {
  if (text.starts_with(kStream)) return numberAfter(kStream, text);
  if (!text.starts_with(kLaterStream)) return std::nullopt;
  text.remove_prefix(kLaterStream.size());
  const auto rest = text.substr(std::min(text.find(']'), text.size()));
  return rest.starts_with(kLaterStreamEnd) ? numberAfter({}, text) : std::nullopt;
}

bool isGoAway(std::string_view text) {
  return text.starts_with(kGoAway) || text.starts_with(kLaterGoAway);
}

}  // namespace

void DeclineWatch::begin(CURL* easy, std::shared_ptr<TLSConnection> connection) {
  connection_ = std::move(connection);
  curl_easy_setopt(easy, CURLOPT_DEBUGFUNCTION, &DeclineWatch::onDebug);
  curl_easy_setopt(easy, CURLOPT_DEBUGDATA, this);
  expected_ = connection_ ? connection_->takeNextStream() : 0;
  if (expected_ == 0) {
    curl_easy_setopt(easy, CURLOPT_VERBOSE, 1L);
    return;
  }
  connection_->input().forgetWriting();
  curl_easy_setopt(easy, CURLOPT_NOPROGRESS, 0L);
}

// A request that could not be handed to the connection has taken no number. The next one reads its
// own.
bool DeclineWatch::noteSent(CURL* easy) noexcept {
  const auto stream = std::exchange(expected_, 0);
  if (stream == 0) return false;
  if (connection_->input().hasWritten()) setStream(stream);
  curl_easy_setopt(easy, CURLOPT_VERBOSE, 1L);
  return true;
}

void DeclineWatch::setStream(std::uint32_t stream) noexcept {
  stream_ = stream;
  if (connection_) connection_->noteStream(stream);
}

int DeclineWatch::onDebug(CURL*, curl_infotype kind, char* bytes, std::size_t size, void* watch) {
  if (kind == CURLINFO_TEXT) static_cast<DeclineWatch*>(watch)->take({bytes, size});
  return 0;
}

void DeclineWatch::take(std::string_view text) noexcept {
  if (const auto stream = streamIn(text)) {
    setStream(*stream);
  } else if (text.starts_with(kRefused)) {
    refused_ = true;
  } else if (isGoAway(text) && connection_) {
    if (const auto last = numberAfter(kLastStream, text)) connection_->noteLastStream(*last);
  }
}

bool DeclineWatch::isDeclined() const noexcept {
  return stream_ != 0 && connection_ && (refused_ || connection_->hasDeclined(stream_));
}

}  // namespace kvl::urlloading
