#include "tests/soak/Load.h"

#include "tests/integration/LocalService.h"
#include "tests/soak/Figures.h"
#include "tests/soak/Traffic.h"
#include "tests/support/Sanitized.h"

#include <local/KVLEncodingRoot.h>
#include <local/platform/Log.h>

#include <sys/resource.h>

#include <algorithm>
#include <cstdio>
#include <functional>

namespace kvltest {
namespace {

using namespace std::chrono_literals;

// One I/O thread carries all of it; the others answer challenges and decode.
constexpr std::int64_t kThreadsOfLoad = 64;
// A connection's TLS state and buffers, and a request in the queue.
constexpr std::int64_t kMemoryOfConnection = 256 << 10;
constexpr std::int64_t kMemoryOfQueued = 16 << 10;
constexpr std::int64_t kQueuedForEach = 10;
// For the stream, files and libraries.
constexpr std::int64_t kDescriptorsOfLoad = 200;
constexpr std::chrono::seconds kLongestLoad{150};
constexpr std::chrono::milliseconds kLook{50};

// Both ends of a connection live on this limit, each in its own process.
bool raiseDescriptorLimit(std::int64_t wanted) {
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = std::max(limit.rlim_cur, std::min<rlim_t>(limit.rlim_max, wanted));
  setrlimit(RLIMIT_NOFILE, &limit);
  return limit.rlim_cur >= static_cast<rlim_t>(wanted);
}

class Load {
 public:
  explicit Load(std::int64_t count) : count_(count) {
    // The last handshake begins long after the last connection.
    world_.startService({"--threads", std::to_string(count + 16), "--patience",
                         std::to_string(kLongestLoad.count())});
    world_.offerNotary("");
    world_.session = KVLSession::sessionWithNotary(nullptr, {});
    world_.states = std::make_unique<StateWatcher>(*world_.session);
    sender_.session = world_.session;
    sender_.ledger = std::make_shared<Ledger>();
  }

  bool run() {
    if (!world_.states->waitFor(KVLSessionStateEstablished)) return fail("never established");
    return measure("in flight", count_, kMemoryOfConnection, static_cast<int>(count_),
                   [this] { sendHeld(); }) &&
           measure("queued", kQueuedForEach * count_, kMemoryOfQueued,
                   kvl::URLSessionConfiguration().maximumConnectionsPerHost,
                   [this] { sendQueued(); });
  }

 private:
  static bool fail(const std::string& why) {
    std::printf("FAILED: %s\n", why.c_str());
    return false;
  }

  // A new HTTPS session object, which takes the settings.
  bool useConnections(int most) {
    auto configuration = world_.session->configuration();
    configuration.maximumConnectionsPerHost = most;
    configuration.timeoutIntervalForRequest = kLongestLoad;
    world_.session->setConfiguration(configuration);
    const auto before = world_.states->count(KVLSessionStateEstablished);
    world_.session->disconnectAfterError();
    world_.session->enqueueNotarisation();
    return world_.states->waitFor(KVLSessionStateEstablished, before + 1);
  }

  void sendHeld() {
    for (std::int64_t i = 0; i < count_; ++i) {
      const auto ticket = sender_.ledger->open("held");
      const auto answer = "{\"number\":" + ticket->text() + "}";
      sender_.session->request(
          kvl::URLRequest(kvl::format("hold?count=%@&number=%@", count_, ticket->text())),
          [ticket, answer](const std::optional<kvl::Data>& body, const kvl::URLResponseRef&,
                           const std::optional<kvl::Error>& error) {
            if (error || !body) return ticket->failed(error);
            body->text() == answer ? ticket->answered()
                                   : ticket->answeredWrongly(std::string(body->text()));
          });
    }
  }

  void sendQueued() {
    for (std::int64_t i = 0; i < kQueuedForEach * count_; ++i) sendFetch(sender_);
  }

  bool measure(const char* name, std::int64_t number, std::int64_t memoryOfEach, int connections,
               const std::function<void()>& send) {
    if (!useConnections(connections)) return fail("not established again");
    const auto before = SoakFigures::now();
    const auto answeredBefore = sender_.ledger->totals().answered;
    const auto start = std::chrono::steady_clock::now();
    send();
    SoakFigures most = before;
    const auto end = start + kLongestLoad;
    bool isDone = false;
    while (!isDone && std::chrono::steady_clock::now() < end) {
      isDone = sender_.ledger->waitUntilNothingIsOpen(kLook);
      const auto now = SoakFigures::now();
      most.threads = std::max(most.threads, now.threads);
      most.descriptors = std::max(most.descriptors, now.descriptors);
      most.heap = std::max(most.heap, now.heap);
    }
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
    const auto totals = sender_.ledger->totals();
    std::printf(
        "%ld %s: %ld answered in %.1f s; %ld threads (%ld before), %ld descriptors "
        "(%ld before), %ld bytes of memory for each\n",
        number, name, totals.answered - answeredBefore, taken.count(), most.threads, before.threads,
        most.descriptors, before.descriptors, (most.heap - before.heap) / number);
    for (const auto& line : sender_.ledger->faults()) fail(line);
    for (const auto& [error, times] : totals.errors)
      fail(kvl::format("%ld times %@", times, error));
    if (!isDone || totals.answered - answeredBefore != number || totals.lost + totals.doubled != 0)
      return fail("not everything was answered once");
    if (most.threads > before.threads + kThreadsOfLoad) return fail("too many threads");
    if (most.descriptors > before.descriptors + connections + kDescriptorsOfLoad)
      return fail("too many descriptors");
    if (!kSanitized && most.heap - before.heap > number * memoryOfEach)
      return fail("too much memory");
    return true;
  }

  const std::int64_t count_;
  World world_;
  Sender sender_;
};

}  // namespace

bool holdsLoad(std::int64_t count) {
  if (!raiseDescriptorLimit(count + kDescriptorsOfLoad)) {
    std::puts("FAILED: the system allows too few descriptors");
    return false;
  }
  const auto before = kvl::setLogSink([](std::string_view) {});
  const bool isHeld = Load(count).run();
  kvl::setLogSink(before);
  return isHeld;
}

}  // namespace kvltest
