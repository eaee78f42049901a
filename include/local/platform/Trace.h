/// @file
/// What the framework does and how long it takes, for hosts that measure it.
#pragma once

#include <local/platform/Error.h>
#include <local/platform/Export.h>
#include <local/platform/Observation.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <string_view>

namespace kvl {

/// One thing that has happened. Fields that its kind does not name are zero, empty or null. It
/// never holds a URL's query, a header field or a piece of a body.
struct TraceRecord {
  /// What has happened, and which fields say more about it.
  enum class Kind : std::uint8_t {
    notarisationBegan,  ///< A session asks its notary.
    notarisationEnded,  ///< `duration` since it asked, `error`.
    retryScheduled,     ///< A session asks again after `duration`: a renewal or another attempt.
    connected,          ///< `task`, `path`: of the request that a connection was made for.
                        ///< `connecting`: until the server was reached, names looked up included;
                        ///< `duration`: until the connection could be used. Both since the exchange
                        ///< began.
    requestBegan,       ///< `task`, `path`. Each request that begins also ends.
    answered,           ///< `task`, `path`, `status`: the head of the last answer, after redirects;
                        ///< `duration` since the request began.
    requestEnded,       ///< `task`, `path`, `status` (0 without an answer), `bytes` of the body as
                        ///< they came, `duration` since it began, `waiting` for its turn and for a
                        ///< connection, `error`. Told before the request's handler is called.
    requestRepeated,    ///< `task`, `path` that follows, `count` of repetitions so far, `status` of
                        ///< a redirect; 0 where nobody had looked at the request.
    streamOpened,       ///< `task`, `path`: a session opened its event stream.
    streamEnded,        ///< `task`, `path`, `error`. Not told where the session has gone.
    eventsArrived       ///< `task`, `count` of events, `bytes` of the stream that they came with.
  };

  Kind kind = Kind::notarisationBegan;     ///< which of them
  std::uint64_t task = 0;                  ///< `DataTask::taskIdentifier`
  std::string_view path = {};              ///< of the URL, without its query
  std::int64_t status = 0;                 ///< of HTTP
  std::int64_t count = 0;                  ///< of what the kind says
  std::int64_t bytes = 0;                  ///< of the body or of the stream, as they came
  std::chrono::nanoseconds duration{0};    ///< see the kind
  std::chrono::nanoseconds connecting{0};  ///< see `connected`
  std::chrono::nanoseconds waiting{0};     ///< see `requestEnded`
  const Error* error = nullptr;            ///< null: none
};

/// Takes one record; the record and what it points to are there during the call only. Called from
/// any thread, several at once, and the framework may hold locks meanwhile: count, note or hand
/// over, and return. It must not call the framework (it may end its own observation), wait, or
/// throw.
using TraceHandler = std::function<void(const TraceRecord& record)>;

/// Has `handler` told of all that happens in this process from now on, until the observation ends.
/// Without an observer each point where something could be told costs the reading of one number.
[[nodiscard]] KVL_EXPORT Observation observeTrace(TraceHandler handler);

}  // namespace kvl
