// The event stream's connection.
#include "eventstream/EventFraming.h"
#include "eventstream/EventStreamParser.h"
#include "platform/environment/Environment.h"
#include "session/Monitors.h"
#include "session/SessionImplementation.h"
#include "session/SessionTrace.h"

#include <local/KVLEventStreamState.h>
#include <local/KVLSession.h>
#include <local/platform/Atomic.h>
#include <local/platform/Log.h>
#include <local/platform/Mutex.h>
#include <local/platform/SystemVersion.h>

#include <algorithm>
#include <chrono>
#include <utility>

namespace {

using kvl::eventstream::EventFraming;

static_assert(kvl::Environment::Limits().eventStreamSilence ==
              std::chrono::duration<double>(KVLEventStreamStateTimeoutInterval));

kvl::URLRequest requestFor(const kvl::URL& url, const std::optional<std::string>& lastEventID,
                           std::chrono::nanoseconds longestSilence) {
  kvl::URLRequest request(url);
  request.headers().set("Accept", "text/event-stream");
  request.setContentKind(kvl::ContentKind::eventStream);
  // An identifier that HTTP cannot carry is left out: the stream then starts afresh, which costs
  // repeated events rather than the stream.
  if (lastEventID && kvl::isSendableHeaderField("Last-Event-ID", *lastEventID)) {
    request.headers().set("Last-Event-ID", *lastEventID);
  }
  request.setTimeoutInterval(longestSilence);
  return request;
}

// With which the stream is read that is opened now.
std::size_t longestLineOf(const KVLSession& session) {
  const auto loading = session.session();
  return loading ? loading->configuration().maximumEventLineBytes
                 : session.configuration().maximumEventLineBytes;
}

}  // namespace

struct KVLEventStreamState::Implementation {
  explicit Implementation(std::shared_ptr<const kvl::Environment> given)
      : environment(std::move(given)) {}

  const std::shared_ptr<const kvl::Environment> environment;
  // Recursive, since opening a stream cancels the one before.
  kvl::RecursiveMutex monitor;
  kvl::Atomic<std::shared_ptr<kvl::DataTask>> task;
  kvl::eventstream::EventStreamParser parser;
  bool emptySourceLogged KVL_GUARDED_BY(monitor) = false;

  [[nodiscard]] bool isOpenAt(std::string_view url) const;
  [[nodiscard]] bool isUsableSource(std::string_view url) KVL_REQUIRES(monitor);
};

namespace kvl::session {

StreamSection::StreamSection(std::shared_ptr<KVLEventStreamState> stream)
    : stream_(std::move(stream)) {
  stream_->implementation_->monitor.lock();
}
StreamSection::~StreamSection() {
  stream_->implementation_->monitor.unlock();
}

}  // namespace kvl::session

KVLEventStreamState::KVLEventStreamState() : KVLEventStreamState(kvl::Environment::process()) {}
KVLEventStreamState::KVLEventStreamState(std::shared_ptr<const kvl::Environment> environment)
    : implementation_(std::make_unique<Implementation>(std::move(environment))) {}
KVLEventStreamState::~KVLEventStreamState() = default;

void KVLEventStreamState::streamFromURL(std::string_view url, KVLSession& session) {
  kvl::RecursiveMutexLock lock(implementation_->monitor);
  if (implementation_->isOpenAt(url)) return;
  if (task()) cancel();
  if (!implementation_->isUsableSource(url)) return;
  const auto request = requestFor(*kvl::URL::parse(url), lastEventID(),
                                  implementation_->environment->limits.eventStreamSilence);
  kvl::log(kvl::LogCategory::events, kvl::LogLevel::info, "establishing event stream: %@", url);
  const auto longestLine = longestLineOf(session);
  implementation_->parser.setLongestLine(longestLine);
  kvl::DataTaskHandler none;  // the session itself receives the body
  auto opened = session.implementation_->startTask(
      session, request, none,
      std::make_unique<EventFraming>(std::max(EventFraming::kLongestEvent, longestLine)));
  if (opened && kvl::isSystemVersionAtLeast(11, 3)) opened->setPrefersIncrementalDelivery(true);
  if (opened) kvl::session::traceStream(*opened);
  setTask(std::move(opened));
}

// The original request holds the resolved URL, so only an absolute source can match.
bool KVLEventStreamState::Implementation::isOpenAt(std::string_view url) const {
  const auto open = task.get();
  return open && open->state() == kvl::DataTask::State::running &&
         open->originalRequest().urlText() == url;
}

bool KVLEventStreamState::Implementation::isUsableSource(std::string_view url) {
  if (url.empty()) {
    if (!std::exchange(emptySourceLogged, true))
      kvl::log(kvl::LogCategory::events, kvl::LogLevel::warning, "no event stream source is set");
    return false;
  }
  if (kvl::URL::parse(url)) return true;
  kvl::log(kvl::LogCategory::events, kvl::LogLevel::error, "event stream source is no URL: %@",
           url);
  return false;
}

bool KVLEventStreamState::isEqualToTask(const kvl::DataTask& other) const {
  std::uint64_t identifier = 0;
  {
    kvl::RecursiveMutexLock lock(implementation_->monitor);
    if (const auto own = task()) identifier = own->taskIdentifier();
  }
  return identifier == other.taskIdentifier();
}

std::vector<std::shared_ptr<KVLEvent>> KVLEventStreamState::read(const kvl::Data& chunk) {
  return implementation_->parser.read(chunk);
}

void KVLEventStreamState::cancel() {
  kvl::RecursiveMutexLock lock(implementation_->monitor);
  if (const auto running = implementation_->task.exchange(nullptr)) running->cancel();
  setData(std::nullopt);
  setEvent(nullptr);
}

std::shared_ptr<kvl::DataTask> KVLEventStreamState::task() const {
  return implementation_->task.get();
}
void KVLEventStreamState::setTask(std::shared_ptr<kvl::DataTask> task) {
  implementation_->task.set(std::move(task));
}

std::optional<kvl::Data> KVLEventStreamState::data() const {
  return implementation_->parser.data();
}
// NOLINTNEXTLINE(performance-unnecessary-value-param): as other properties are set
void KVLEventStreamState::setData(std::optional<kvl::Data> data) {
  implementation_->parser.setData(data);
}

std::shared_ptr<KVLEvent> KVLEventStreamState::event() const {
  return implementation_->parser.event();
}
void KVLEventStreamState::setEvent(std::shared_ptr<KVLEvent> event) {
  implementation_->parser.setEvent(std::move(event));
}

std::optional<std::string> KVLEventStreamState::lastEventID() const {
  return implementation_->parser.lastEventID();
}
void KVLEventStreamState::setLastEventID(std::optional<std::string> identifier) {
  implementation_->parser.setLastEventID(std::move(identifier));
}
