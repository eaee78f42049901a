/// @file
/// The event stream's connection and its parser.
#pragma once

#include <local/KVLEvent.h>
#include <local/platform/Data.h>
#include <local/platform/Export.h>
#include <local/platform/URLSession.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

class KVLSession;

namespace kvl {
struct Environment;
namespace session {
class StreamSection;
}
}  // namespace kvl

/// The longest silence, in seconds, that the stream may keep before it is opened again.
inline constexpr double KVLEventStreamStateTimeoutInterval = 3600.0;

/// The state of a session's event stream. Closed without a task; open while the task runs.
///
/// **Its end.** A stream that was silent for too long, or whose task somebody cancelled, is opened
/// again at once. After any other end the session disconnects and notarises 1 s later, also when
/// the service has ended the answer in good order. That holds for a stream that a renewal left
/// alone too; only where such a one ends with a notarisation error, which tells of the identity
/// before, it is opened again with the new one.
///
/// Opening, cancelling and recognising the task hold the object's own recursive monitor. Whoever
/// needs both this monitor and the session's takes this one first.
class KVL_EXPORT KVLEventStreamState {
 public:
  /// Without a task.
  KVLEventStreamState();
  /// With other surroundings than the process's; for the framework itself.
  KVL_INTERNAL explicit KVLEventStreamState(std::shared_ptr<const kvl::Environment> environment);
  ~KVLEventStreamState();
  KVLEventStreamState(const KVLEventStreamState&) = delete;
  KVLEventStreamState& operator=(const KVLEventStreamState&) = delete;

  /// `streamFromURL:withSession:` Opens the stream at `url` (relative to the service, or absolute)
  /// and cancels the one before. A running stream whose resolved URL is exactly `url` is left
  /// alone. Without an established session the old stream is cancelled and none is opened.
  ///
  /// An empty `url` opens nothing, which is logged once per object; a text that is no URL opens
  /// nothing and is logged.
  void streamFromURL(std::string_view url, KVLSession& session);

  /// `isEqualToTask:` Whether `task` is the stream's, by its identifier alone.
  [[nodiscard]] bool isEqualToTask(const kvl::DataTask& task) const;

  /// `cancel` Cancels the task and forgets `task`, `data` and `event`. `lastEventID` is kept.
  void cancel();

  /// `read:` Parses one chunk of the stream and returns the events that it completes, in order.
  /// Called by one thread at a time.
  ///
  /// The grammar: only LF ends a line. A field name stands before the first colon, compared as it
  /// stands; its value loses tabs and Unicode space separators (category Zs) at both ends. The last
  /// "event" and "id" lines count, of "data" lines the first; other fields are ignored. An empty
  /// line ends an event that has a name; an unnamed event goes on collecting. A line without a
  /// colon, or that is not UTF-8, is logged with "ignoring malformed event-source line: %@" and
  /// costs the event under construction; of one above 64 KiB the log has the beginning and the
  /// length. A line that a chunk cuts is kept for the next one, but fields do not survive the end
  /// of a chunk.
  ///
  /// A line of more bytes than the configuration's `maximumEventLineBytes` (64 MiB for an object
  /// that has opened no stream) is not kept: it is logged once with "ignoring event-source line of
  /// more than %ld bytes: %@", costs the event under construction, and is dropped up to its end.
  /// The stream goes on behind it.
  [[nodiscard]] std::vector<std::shared_ptr<KVLEvent>> read(const kvl::Data& chunk);

  /// `task` The stream's task, or null.
  [[nodiscard]] std::shared_ptr<kvl::DataTask> task() const;
  /// A task of the host's own brings its body in the pieces in which it was read: only a task that
  /// this object has opened keeps the pieces of an event together.
  void setTask(std::shared_ptr<kvl::DataTask> task);
  /// `data` The bytes after the last line end; absent before the first chunk and after `cancel`.
  [[nodiscard]] std::optional<kvl::Data> data() const;
  /// What stands here is taken for the beginning of the line that the next chunk continues.
  void setData(std::optional<kvl::Data> data);
  /// `event` An event to continue with the next chunk; nothing but a host ever sets it.
  [[nodiscard]] std::shared_ptr<KVLEvent> event() const;
  /// The next chunk's lines go into `event`; none begins a new one.
  void setEvent(std::shared_ptr<KVLEvent> event);
  /// `lastEventID` The identifier of the last event that had one; never cleared.
  [[nodiscard]] std::optional<std::string> lastEventID() const;
  /// Sent as `Last-Event-ID` when the stream is opened the next time; none sends no such field.
  void setLastEventID(std::optional<std::string> identifier);

 private:
  friend class kvl::session::StreamSection;
  struct KVL_INTERNAL Implementation;
  const std::unique_ptr<Implementation> implementation_;
};
