#include "platform/urlloading/TransferTrace.h"

#include "platform/core/Trace.h"

#include <algorithm>
#include <string_view>

namespace kvl::urlloading {
namespace {

using Kind = TraceRecord::Kind;
using Clock = std::chrono::steady_clock;

// A request that is sent has a URL.
std::string_view pathOf(const URLRequest& request) {
  return request.url()->path();
}

std::int64_t number(CURL* easy, CURLINFO info) {
  curl_off_t value = 0;
  if (easy != nullptr) curl_easy_getinfo(easy, info, &value);
  return value;
}

std::chrono::nanoseconds interval(CURL* easy, CURLINFO info) {
  return std::chrono::microseconds(number(easy, info));
}

bool hasConnected(CURL* easy) {
  long connections = 0;
  curl_easy_getinfo(easy, CURLINFO_NUM_CONNECTS, &connections);
  return connections > 0;
}

}  // namespace

void TransferTrace::begin(const URLRequest& request) const {
  core::trace([&] {
    return TraceRecord{.kind = Kind::requestBegan, .task = task_, .path = pathOf(request)};
  });
}

void TransferTrace::noteSending(const URLRequest& request, CURL* easy, Time now) {
  if (!sent_) sent_ = now;
  if (!core::isTraced() || !hasConnected(easy)) return;
  const auto connecting = interval(easy, CURLINFO_CONNECT_TIME_T);
  const auto secured = interval(easy, CURLINFO_APPCONNECT_TIME_T);
  core::tellTrace({.kind = Kind::connected,
                   .task = task_,
                   .path = pathOf(request),
                   .duration = std::max(connecting, secured),
                   .connecting = connecting});
}

void TransferTrace::noteAnswer(const URLRequest& request, std::int64_t status) const {
  core::trace([&] {
    return TraceRecord{.kind = Kind::answered,
                       .task = task_,
                       .path = pathOf(request),
                       .status = status,
                       .duration = Clock::now() - began_};
  });
}

void TransferTrace::noteRepetition(const URLRequest& next, std::int64_t status) {
  ++repetitions_;
  core::trace([&] {
    return TraceRecord{.kind = Kind::requestRepeated,
                       .task = task_,
                       .path = pathOf(next),
                       .status = status,
                       .count = repetitions_};
  });
}

void TransferTrace::end(const URLRequest& request, CURL* easy, const URLResponseRef& response,
                        const std::optional<Error>& error) const {
  core::trace([&] {
    const auto now = Clock::now();
    return TraceRecord{.kind = Kind::requestEnded,
                       .task = task_,
                       .path = pathOf(request),
                       .status = response ? response->httpStatusCode.value_or(0) : 0,
                       .bytes = number(easy, CURLINFO_SIZE_DOWNLOAD_T),
                       .duration = now - began_,
                       .waiting = sent_.value_or(now) - began_,
                       .error = error ? &*error : nullptr};
  });
}

}  // namespace kvl::urlloading
