// The bodies of a transfer, in both directions.
#include "platform/core/ASCII.h"
#include "platform/core/CallbackBoundary.h"
#include "platform/urlloading/Transfer.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <limits>
#include <new>
#include <utility>

namespace kvl::urlloading {
namespace {

constexpr int kNotModified = 304;
constexpr int kFirstRefusal = 300;
constexpr std::size_t kLongestRedirectBody = std::size_t{64} << 10;

// Whether the body's bytes are not those of the content. An answer may have an encoding although
// none was offered.
bool isEncoded(const HeaderFields& fields) {
  return std::ranges::any_of(fields, [](const HeaderFields::Field& field) {
    if (ascii::equalIgnoringCase(field.first, "Content-Encoding")) {
      const std::string_view value = ascii::trimmed(field.second);
      return !value.empty() && !ascii::equalIgnoringCase(value, "identity");
    }
    return ascii::equalIgnoringCase(field.first, "Transfer-Encoding") &&
           !ascii::equalIgnoringCase(ascii::trimmed(field.second), "chunked");
  });
}

std::optional<std::uint64_t> announcedLength(const HeaderFields& fields) {
  const auto length = fields.find("Content-Length");
  std::uint64_t bytes = 0;
  if (!length) return std::nullopt;
  const auto result = std::from_chars(length->data(), length->data() + length->size(), bytes);
  return result.ec == std::errc() ? std::optional(bytes) : std::nullopt;
}

}  // namespace

void Transfer::finishHead() {
  if (auto next = redirectedRequest(*request_, head_.status(), head_.fields())) {
    redirect_ = std::make_shared<const URLRequest>(std::move(*next));
    if (redirects_ >= configuration_.maximumRedirects) refusal_ = Refusal::tooManyRedirects;
    return;
  }
  response_ = std::make_shared<const URLResponse>(
      URLResponse{*request_->url(), head_.status(), head_.takeFields(), head_.version()});
  trace_.noteAnswer(*request_, head_.status());
  task_->setResponse(response_);
  const auto length = lengthToCome();
  task_->meter().noteToReceive(length);
  if (task_->wantsBodyInOnePiece() && announcesMoreThan(maximumBody_)) {
    refusal_ = Refusal::bodyTooLarge;
  } else if (request_->contentKind() == ContentKind::eventStream && isEncoded(response_->headers)) {
    refusal_ = Refusal::encoded;
  } else if (task_->wantsBodyInOnePiece()) {
    body_.expect(static_cast<std::size_t>(length.value_or(0)), *memory_);
  }
}

bool Transfer::hasNoBody() const {
  return request_->method() == "HEAD" || head_.status() == kNotModified;
}

bool Transfer::announcesMoreThan(std::size_t limit) const {
  return !hasNoBody() && announcedLength(response_->headers).value_or(0) > limit;
}

std::optional<std::uint64_t> Transfer::lengthToCome() const {
  if (hasNoBody()) return 0;
  // What counts is the content, decoded.
  const HeaderFields& fields = response_->headers;
  if (isEncoded(fields) || fields.find("Transfer-Encoding")) return std::nullopt;
  return announcedLength(fields);
}

std::size_t Transfer::onBody(char* bytes, std::size_t, std::size_t size, void* transfer) {
  auto* self = static_cast<Transfer*>(transfer);
  self->noteArrival(size);
  self->noteTaken();
  std::size_t taken = 0;
  // No exception may pass through libcurl.
  try {
    taken = self->redirect_ ? self->discard(size) : self->takeBody(bytes, size);
  } catch (const std::bad_alloc&) {
    taken = 0;
  }
  if (taken == 0) self->closeConnectionWithExchange();
  return taken;
}

// By libcurl's count, which an encoding does not change, nor that held bytes come once more.
void Transfer::noteTaken() {
  if (!connection_ || !connection_->input().isShared()) return;
  curl_off_t taken = 0;
  curl_easy_getinfo(easy_.get(), CURLINFO_SIZE_DOWNLOAD_T, &taken);
  connection_->input().noteTaken(static_cast<std::size_t>(taken - std::exchange(taken_, taken)));
}

// Nobody reads the text of a redirect; one without an end is broken off.
std::size_t Transfer::discard(std::size_t size) {
  discarded_ += size;
  return discarded_ <= kLongestRedirectBody ? size : 0;
}

std::size_t Transfer::takeBody(const char* bytes, std::size_t size) {
  if (task_->wantsBodyInOnePiece()) {
    if (size > maximumBody_ - std::min(body_.size(), maximumBody_)) {
      refusal_ = Refusal::bodyTooLarge;
      return 0;
    }
  } else if (!task_->takesDelivery(body_.isCollecting() ? 0 : body_.size())) {
    paused_ = true;
    return CURL_WRITEFUNC_PAUSE;
  }
  body_.append({bytes, size}, lastActivity_);
  task_->meter().noteReceived(size);
  if (body_.isFull() && !task_->wantsBodyInOnePiece()) handOver(body_.size());
  return size;
}

int Transfer::onProgress(void* transfer, curl_off_t, curl_off_t, curl_off_t, curl_off_t uploaded) {
  auto* self = static_cast<Transfer*>(transfer);
  const bool hasBody = self->feed_ || self->request_->body();
  if (self->watch_.noteSent(self->easy()) && !hasBody)
    curl_easy_setopt(self->easy(), CURLOPT_NOPROGRESS, 1L);
  if (std::exchange(self->uploaded_, uploaded) == uploaded) return 0;
  self->noteActivity();
  self->task_->meter().noteSent(static_cast<std::uint64_t>(uploaded));
  return 0;
}

void Transfer::flush(bool isMore, SteadyTime now) {
  growing_ = false;
  giveUpUploadIfRefused();
  task_->meter().publish(now);
  if (body_.empty() || task_->wantsBodyInOnePiece()) return;
  const auto source = paused_  ? PendingBody::Source::held
                      : isMore ? PendingBody::Source::flowing
                               : PendingBody::Source::quiet;
  handOver(body_.due(source, now));
  growing_ = source == PendingBody::Source::flowing && !body_.empty();
}

void Transfer::flushRest() {
  if (!task_->wantsBodyInOnePiece()) handOver(body_.size());
}

void Transfer::handOver(std::size_t count) {
  if (count > 0) task_->deliver(Data(body_.take(count)));
}

SteadyTime Transfer::nextFlush() const {
  const auto progress = task_->meter().nextPublication();
  if (paused_ || task_->wantsBodyInOnePiece()) return progress;
  return std::min(progress, body_.latest());
}

void Transfer::unpause() {
  noteActivity();
  task_->noteDeliveryResumed();
  if (std::exchange(paused_, false)) applyPauses(false);
}

void Transfer::feed() {
  if (!std::exchange(starved_, false)) return;
  noteActivity();
  applyPauses(paused_);
}

// libcurl sets both directions at once: an upload that waits for its source must stay paused, or it
// asks again and again.
void Transfer::applyPauses(bool holdsAnswer) {
  curl_easy_pause(easy_.get(), (holdsAnswer ? CURLPAUSE_RECV : CURLPAUSE_CONT) |
                                   (starved_ ? CURLPAUSE_SEND : CURLPAUSE_CONT));
}

// Setting the pause that is there already would do nothing: only a change has libcurl look.
void Transfer::flushConnection() {
  if (!std::exchange(paused_, false)) applyPauses(true);
  applyPauses(false);
}

// A request that goes out again begins with the body's first byte.
void Transfer::prepareBody() {
  starved_ = false;
  uploadGivenUp_ = false;
  prepareFeed();
  const auto& body = request_->body();
  task_->meter().beginSending(feed_ ? feed_->length() : body ? body->size() : 0);
}

void Transfer::prepareFeed() {
  const auto& source = request_->bodySource();
  if (!source) return closeFeed();
  if (!feed_) {
    feed_ = std::make_shared<BodyFeed>(source, [task = std::weak_ptr(task_)] {
      if (const auto held = task.lock()) held->feedBody();
    });
  } else if (feed_->hasBegun()) {
    feed_->rewind();
  }
}

void Transfer::closeFeed() {
  if (const auto feed = std::exchange(feed_, nullptr)) feed->close();
}

void Transfer::installBodyCallbacks(OptionSetter& options) {
  if (feed_) {
    constexpr auto kLargest = static_cast<std::uint64_t>(std::numeric_limits<curl_off_t>::max());
    const auto length = feed_->length();
    const bool isKnown = length && *length <= kLargest;
    options.set(CURLOPT_INFILESIZE_LARGE, isKnown ? static_cast<curl_off_t>(*length) : -1);
    options.set(CURLOPT_READFUNCTION, &Transfer::onRead);
    options.set(CURLOPT_READDATA, this);
    options.set(CURLOPT_SEEKFUNCTION, &Transfer::onSeek);
    options.set(CURLOPT_SEEKDATA, this);
  }
  options.set(CURLOPT_XFERINFODATA, this);
  if (feed_ || request_->body()) options.set(CURLOPT_NOPROGRESS, 0L);
}

std::size_t Transfer::onRead(char* room, std::size_t, std::size_t size, void* transfer) {
  auto* self = static_cast<Transfer*>(transfer);
  return core::withoutExceptions(static_cast<std::size_t>(CURL_READFUNC_ABORT),
                                 [&] { return self->takeUpload(room, size); });
}

// libcurl 7.88 stops sending when the server has refused, but does not notice that while it waits
// for the source, and not at all when the server closes the connection.
void Transfer::giveUpUploadIfRefused() {
  if (!starved_ || uploadGivenUp_ || !head_.isComplete() || head_.status() < kFirstRefusal) return;
  uploadGivenUp_ = true;
  closeConnectionWithExchange();
  feed();
}

std::size_t Transfer::takeUpload(char* room, std::size_t size) {
  // A body in chunks would look complete.
  if (uploadGivenUp_ && feed_->length()) return 0;
  std::size_t count = 0;
  switch (feed_->take({reinterpret_cast<std::uint8_t*>(room), size}, count)) {
    case BodyFeed::State::ready:
    case BodyFeed::State::over:
      break;
    case BodyFeed::State::starved:
      starved_ = true;
      return CURL_READFUNC_PAUSE;
    case BodyFeed::State::failed:
      refusal_ = Refusal::unreadable;
      closeConnectionWithExchange();
      return CURL_READFUNC_ABORT;
  }
  return count;
}

// Nothing else is asked for than to stay at the beginning: a request that was sent in part is not
// sent again by libcurl.
int Transfer::onSeek(void* transfer, curl_off_t offset, int origin) {
  auto* self = static_cast<Transfer*>(transfer);
  const bool isThere = offset == 0 && origin == SEEK_SET && !self->feed_->hasBegun();
  return isThere ? CURL_SEEKFUNC_OK : CURL_SEEKFUNC_FAIL;
}

}  // namespace kvl::urlloading
