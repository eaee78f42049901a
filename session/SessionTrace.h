// What the trace is told of a session.
#pragma once

#include <local/platform/Error.h>
#include <local/platform/URLSession.h>

#include <chrono>
#include <cstddef>
#include <optional>

namespace kvl::session {

using TraceClock = std::chrono::steady_clock;

// The notary is asked; when.
[[nodiscard]] TraceClock::time_point traceNotarisation();
void traceNotarisationEnd(TraceClock::time_point asked, const std::optional<Error>& error);
void traceRetry(std::chrono::nanoseconds delay);
void traceStream(const DataTask& task);
// Tells of streams only: a session's other requests end there, too.
void traceStreamEnd(const DataTask& task, const std::optional<Error>& error);
void traceEvents(const DataTask& task, std::size_t count, std::size_t bytes);

}  // namespace kvl::session
