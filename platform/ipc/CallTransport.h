// How a request gets to a service and its reply back.
#pragma once

#include <local/platform/Error.h>
#include <local/platform/Value.h>

#include <functional>
#include <optional>
#include <string>

namespace kvl::ipc {

// What is sent. An absent path differs from an empty one.
struct ServiceRequest {
  std::optional<std::string> path;
  Dictionary entries;
};

// What the service said. A reply without entries is absent.
struct ServiceReply {
  std::optional<Dictionary> entries;
  std::optional<Error> error;
};

// What became of a request: a failure of the transport or, when that is absent, the reply.
struct CallOutcome {
  std::optional<Error> failure;
  ServiceReply reply;
};

// Carries one request for the `ServiceCall` that owns it. Its failures are those of
// `ChannelErrors`.
//
// Lives on the reply thread: made anywhere, used and destroyed there only, hence without locks. No
// operation blocks.
class CallTransport {
 public:
  using Answer = std::function<void(CallOutcome)>;

  virtual ~CallTransport() = default;
  // Called at most once. `answer` is for the outcome, on the reply thread, which may be before this
  // returns. It does not keep the call alive and ignores every outcome but the first, so that it
  // may be called late, twice or never.
  virtual void send(const ServiceRequest& request, Answer answer) = 0;
  // Gives up what is under way and lets go of everything that sending took. Called after every
  // outcome too, and without `send` before it.
  virtual void cancel() = 0;
};

}  // namespace kvl::ipc
