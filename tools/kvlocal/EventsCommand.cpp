// The command events, which follows an event stream until it has enough or nobody reads any more.

#include "tools/kvlocal/Arguments.h"
#include "tools/kvlocal/Client.h"
#include "tools/kvlocal/Command.h"
#include "tools/kvlocal/Describe.h"
#include "tools/kvlocal/EventFeed.h"
#include "tools/kvlocal/Output.h"
#include "tools/kvlocal/Words.h"

#include <local/platform/Text.h>
#include <local/platform/URL.h>
#include <local/platform/URLRequest.h>

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <functional>
#include <string_view>
#include <thread>
#include <utility>

namespace kvlocal {
namespace {

constexpr auto kLastEventIDField = "Last-Event-ID";

struct EventsOptions {
  std::string source;
  std::optional<double> seconds;
  std::optional<std::int64_t> count;
  std::optional<std::string> lastEventID;
};

bool equalIgnoringCase(std::string_view a, std::string_view b) {
  const auto lowered = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; };
  return std::ranges::equal(a, b, {}, lowered, lowered);
}

bool isHTTPScheme(std::string_view scheme) {
  return equalIgnoringCase(scheme, "https") || equalIgnoringCase(scheme, "http");
}

// An empty text when the source can be followed, else why it cannot.
std::string sourceFault(const std::string& source) {
  if (source.empty()) return tr("the URL is empty");
  const auto url = kvl::URL::parse(source);
  if (!url) return tr("%@ is no URL", kvl::jsonText(source));
  const auto scheme = url->scheme();
  if (!scheme || isHTTPScheme(*scheme)) return {};
  return tr("%@ is no URL of HTTP", kvl::jsonText(source));
}

std::string identifierFault(const std::string& identifier) {
  if (kvl::isSendableHeaderField(kLastEventIDField, identifier)) return {};
  return tr("an identifier with a line end or a NUL cannot be sent");
}

// A word for a shell.
std::string shellWord(std::string_view text) {
  std::string word = "'";
  for (const char character : text)
    word += character == '\'' ? std::string("'\\''") : std::string(1, character);
  return word + "'";
}

// The loss of the session is the framework's to mend; whoever asked for its log may know. It never
// looks at an answer's status: a wrong source shows only as a stream that ends without an event.
kvl::Observation tellStates(const KVLSession& session, const std::shared_ptr<EventFeed>& feed,
                            const std::string& source, bool verbose) {
  bool established = false;
  bool told = false;
  return session.observeState([=](KVLSessionState state) mutable {
    if (verbose) complain(tr("the session is %@", KVLSessionStateText(state)));
    established = established || state == KVLSessionStateEstablished;
    const bool lost = established && state == KVLSessionStateDisconnected;
    if (told || !lost || feed->hasReceived()) return;
    told = true;
    complain(tr("the stream ended before its first event; look at it with: %@",
                "kvlocal get -i " + shellWord(source)));
  });
}

// Notices while nothing is written that nobody reads standard output any more, when that is a pipe.
class ReaderWatch {
 public:
  // Calls `onLeaving` at most once, on a thread of its own, and never after its destruction.
  explicit ReaderWatch(std::function<void()> onLeaving);
  ~ReaderWatch();
  ReaderWatch(const ReaderWatch&) = delete;
  ReaderWatch& operator=(const ReaderWatch&) = delete;

 private:
  void watch() const;

  const std::function<void()> onLeaving_;
  const int end_;
  std::thread thread_;
};

ReaderWatch::ReaderWatch(std::function<void()> onLeaving)
    : onLeaving_(std::move(onLeaving)), end_(eventfd(0, EFD_CLOEXEC)) {
  // Without it the watch could not be ended; the next write notices as well.
  if (end_ >= 0) thread_ = std::thread([this] { watch(); });
}

ReaderWatch::~ReaderWatch() {
  if (end_ < 0) return;
  eventfd_write(end_, 1);
  thread_.join();
  close(end_);
}

void ReaderWatch::watch() const {
  // Asked for nothing, poll still tells of errors: a pipe has one when its last reader has gone.
  std::array<pollfd, 2> either{pollfd{STDOUT_FILENO, 0, 0}, pollfd{end_, POLLIN, 0}};
  while (poll(either.data(), either.size(), -1) < 0 && errno == EINTR) {
  }
  if ((either[0].revents & POLLERR) != 0) onLeaving_();
}

// Being ended by the user is how following normally ends, so it counts as done.
ExitCode follow(const Context& context, EventFeed& feed, const EventsOptions& options) {
  const Rendezvous::Limit limit = limitAfter(options.seconds);
  const ReaderWatch reader([&feed] { feed.close(); });
  std::int64_t shown = 0;
  while (!options.count || shown < *options.count) {
    const auto lines = feed.take(limit);
    if (lines.empty())
      return context.rendezvous->isOver(limit) ? ExitCode::ok : giveUpOutput(EPIPE);
    std::string text;
    for (const std::string& line : lines) {
      text += line;
      if (++shown == options.count) break;
    }
    const ExitCode printed = print(text);
    if (printed != ExitCode::ok) return printed;
  }
  return ExitCode::ok;
}

void openStream(KVLSession& session, const EventsOptions& options,
                const std::shared_ptr<EventFeed>& feed) {
  session.setDelegate(feed);
  if (options.lastEventID) session.eventStream()->setLastEventID(options.lastEventID);
  session.setEventStreamSource(options.source);
}

ExitCode runEvents(const Context& context, const EventsOptions& options) {
  const auto feed = std::make_shared<EventFeed>(
      context.rendezvous, context.settings.json ? jsonEventLine : plainEventLine);
  Client client(context);
  const auto states = tellStates(client.session(), feed, options.source, context.settings.verbose);
  openStream(client.session(), options, feed);
  ExitCode result = client.establish();
  if (result == ExitCode::notEstablished) result = client.reportFailure();
  if (result == ExitCode::ok) result = follow(context, *feed, options);
  feed->close();
  return result;
}

Runner prepareEvents(CLI::App& parser) {
  const auto options = std::make_shared<EventsOptions>();
  parser.add_option("SOURCE", options->source, tr("URL, relative to the service's or absolute"))
      ->required()
      ->check(sourceFault);
  parser.add_option("--for", options->seconds, tr("End after this many seconds"))
      ->type_name("SECONDS")
      ->check(secondsCheck());
  parser.add_option("--count", options->count, tr("End after this many events"))
      ->type_name("N")
      ->check(countCheck());
  parser.add_option("--last-event-id", options->lastEventID, tr("Go on after this event"))
      ->type_name("ID")
      ->check(identifierFault);
  return [options](const Context& context) { return runEvents(context, *options); };
}

}  // namespace

Command eventsCommand() {
  return {"events",
          translatable("Follow the event stream at a URL and show one event a line, until Ctrl-C"),
          prepareEvents};
}

}  // namespace kvlocal
