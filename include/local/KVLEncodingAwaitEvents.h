/// @file
/// A session's events for coroutines.
#pragma once

#include <local/KVLEncodingAwait.h>
#include <local/KVLEvent.h>
#include <local/KVLSession.h>
#include <local/platform/Export.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>

namespace KVLEncoding::awaitable {

/// How many events may wait for somebody who takes one after the other.
struct EventLimits {
  std::size_t most = 1024;                   ///< events that wait
  std::size_t bytes = std::size_t{4} << 20;  ///< of their texts
  /// What happens at either limit.
  enum class Overflow : std::uint8_t {
    hold,        ///< the service is held back until less than a quarter waits; nothing is lost
    dropOldest,  ///< the oldest events go; the newest one stays, however large it is
  };
  Overflow overflow = Overflow::hold;  ///< at whichever limit comes first
};

/// A session's events, one after the other.
///
/// ```
/// auto events = KVLEncoding::awaitable::events(session);
/// while (const auto event = co_await events.next()) show(**event);
/// ```
///
/// **Order.** That of the delegate, across renewals, too. The delegate goes on getting all events.
///
/// **Holding back.** At its limits the sequence holds the session's event stream: nothing more is
/// read, by nobody, until enough has been taken; what is under way still comes, at most what the
/// configuration's `deliveryBufferSize` says and one pass of reading. The HTTPS session object's
/// queue is never held, so whoever takes events may fetch in between. A held stream does not notice
/// that the service has gone before it is read on.
///
/// Any thread, and one `next` at a time. A sequence holds its session weakly, but a `next` that
/// waits keeps it.
class KVL_EXPORT EventSequence {
 public:
  EventSequence(EventSequence&& other) noexcept;  ///< leaves `other` closed
  /// Closes what was here, and leaves `other` closed.
  EventSequence& operator=(EventSequence&& other) noexcept;
  ~EventSequence();  ///< as `close`

  /// The next event: one that waits, else the next that comes. None when the session has ended and
  /// nothing waits any more, and once the sequence is closed or moved from. Another `next` that
  /// waits already gets none. An event whose `next` is cancelled before it goes on is the next
  /// one's.
  [[nodiscard]] Operation<std::optional<std::shared_ptr<KVLEvent>>> next();

  /// Ends the sequence: what waits is dropped, a held stream is read on, and a `next` that waits
  /// gets none.
  void close();

 private:
  friend KVL_EXPORT EventSequence events(KVLSession& session, const EventLimits& limits);
  struct Observed;
  explicit KVL_INTERNAL EventSequence(std::unique_ptr<Observed> observed) noexcept;

  std::unique_ptr<Observed> observed_;
};

/// The events of the session from now on. @see `KVLSession::setEventStreamSource`
[[nodiscard]] KVL_EXPORT EventSequence events(KVLSession& session, const EventLimits& limits = {});

}  // namespace KVLEncoding::awaitable
