#include "session/SessionTrace.h"

#include "platform/core/Trace.h"

#include <string_view>

namespace kvl::session {
namespace {

using Kind = TraceRecord::Kind;

std::string_view pathOf(const DataTask& task) {
  const auto& url = task.originalRequest().url();
  return url ? url->path() : std::string_view();
}

}  // namespace

TraceClock::time_point traceNotarisation() {
  core::trace([] { return TraceRecord{.kind = Kind::notarisationBegan}; });
  return TraceClock::now();
}

void traceNotarisationEnd(TraceClock::time_point asked, const std::optional<Error>& error) {
  core::trace([&] {
    return TraceRecord{.kind = Kind::notarisationEnded,
                       .duration = TraceClock::now() - asked,
                       .error = error ? &*error : nullptr};
  });
}

void traceRetry(std::chrono::nanoseconds delay) {
  core::trace([&] { return TraceRecord{.kind = Kind::retryScheduled, .duration = delay}; });
}

void traceStream(const DataTask& task) {
  core::trace([&] {
    return TraceRecord{
        .kind = Kind::streamOpened, .task = task.taskIdentifier(), .path = pathOf(task)};
  });
}

void traceStreamEnd(const DataTask& task, const std::optional<Error>& error) {
  if (task.originalRequest().contentKind() != ContentKind::eventStream) return;
  core::trace([&] {
    return TraceRecord{.kind = Kind::streamEnded,
                       .task = task.taskIdentifier(),
                       .path = pathOf(task),
                       .error = error ? &*error : nullptr};
  });
}

void traceEvents(const DataTask& task, std::size_t count, std::size_t bytes) {
  core::trace([&] {
    return TraceRecord{.kind = Kind::eventsArrived,
                       .task = task.taskIdentifier(),
                       .count = static_cast<std::int64_t>(count),
                       .bytes = static_cast<std::int64_t>(bytes)};
  });
}

}  // namespace kvl::session
