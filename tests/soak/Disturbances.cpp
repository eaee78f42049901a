#include "tests/soak/Disturbances.h"

#include <local/platform/HostApplication.h>
#include <local/platform/Semaphore.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <csignal>
#include <numeric>
#include <thread>

namespace kvltest {

// What a fault does; it puts everything right before it returns.
struct Faults {
  using Self = Disturbances;

  static void pass(Self& self) {
    const auto span = self.options_.span.count();
    std::this_thread::sleep_for(std::chrono::milliseconds(oneOf(self.random_, span / 3, 2 * span)));
  }

  static void restartService(Self& self, const std::vector<std::string>& options) {
    self.world_.startService(options);
  }
  static void serviceRestarted(Self& self) {
    const auto port = self.world_.servicePort();
    self.world_.service.kill();
    restartService(self, {"--port", port});
  }
  static void serviceAway(Self& self) {
    const auto port = self.world_.servicePort();
    self.world_.service.kill();
    pass(self);
    restartService(self, {"--port", port});
  }
  static void serviceEnded(Self& self) {
    const auto port = self.world_.servicePort();
    self.world_.service.signal(SIGTERM);
    self.world_.service.wait();
    restartService(self, {"--port", port});
  }
  static void serviceMoved(Self& self) {
    self.world_.service.kill();
    restartService(self, {});
  }
  static void serviceOfNewAuthority(Self& self) {
    const auto port = self.world_.servicePort();
    self.world_.service.kill();
    restartService(self, {"--port", port, "--new-ca"});
  }
  static void serviceFrozen(Self& self) {
    self.world_.service.signal(SIGSTOP);
    pass(self);
    self.world_.service.signal(SIGCONT);
  }

  static void startNotary(Self& self, std::vector<std::string> options = {}) {
    self.notary_.kill();
    options.insert(options.end(), {"--lifetime", std::to_string(self.options_.lifetime)});
    self.notary_ = self.world_.startNotary(options);
  }
  static void notaryRestarted(Self& self) { startNotary(self); }
  static void notaryAway(Self& self) {
    self.notary_.kill();
    self.sender_.session->enqueueNotarisation();
    pass(self);
    startNotary(self);
  }
  static void notaryFrozen(Self& self) {
    self.notary_.signal(SIGSTOP);
    self.sender_.session->enqueueNotarisation();
    pass(self);
    self.notary_.signal(SIGCONT);
  }
  static void notaryFailing(Self& self) {
    static constexpr std::array<const char*, 9> kFaults{
        "error",          "empty",   "no-url", "bad-anchor", "bad-certificate",
        "no-certificate", "rubbish", "hang",   "exit"};
    const auto* const fault = kFaults[static_cast<std::size_t>(oneOf(self.random_, 0, 8))];
    startNotary(self, {"--fault", fault});
    self.sender_.session->enqueueNotarisation();
    pass(self);
    startNotary(self);
  }

  static void busAway(Self& self) {
    self.world_.bus.stop();
    self.sender_.session->enqueueNotarisation();
    pass(self);
    self.world_.bus.restart();
    self.world_.bus.startKeyring();
    startNotary(self);
  }
  static void keyStoreRestarted(Self& self) {
    self.world_.bus.killKeyring();
    pass(self);
    self.world_.bus.startKeyring();
  }
  static void keyStoreFrozen(Self& self) {
    self.world_.bus.freezeKeyring();
    self.sender_.session->enqueueNotarisation();
    pass(self);
    self.world_.bus.thawKeyring();
  }

  static ChildProcess visitor(Self& self) {
    return ChildProcess({std::filesystem::read_symlink("/proc/self/exe"), "--visit",
                         kvl::hostIdentifier().value_or("")},
                        environmentWith({}), self.world_.bus.directory() / "visitor.log");
  }
  static void secondHost(Self& self) {
    if (visitor(self).wait() != 0) throw std::runtime_error("the second host failed");
  }
  static void secondHostKilled(Self& self) {
    auto process = visitor(self);
    pass(self);
  }

  static void disconnected(Self& self) {
    self.sender_.session->disconnectAfterError();
    self.sender_.session->enqueueNotarisation();
  }
  static void invalidated(Self& self) {
    const auto session = self.sender_.session->session();
    if (session) session->invalidateAndCancel();
  }
  static void sourceChanged(Self& self) {
    self.sender_.session->setEventStreamSource("");
    pass(self);
    self.sender_.session->setEventStreamSource(self.options_.source);
  }
  static void anotherNotary(Self& self) {
    self.sender_.session->setNotary(KVLNotary::notaryWithPath(std::nullopt));
    self.sender_.session->enqueueNotarisation();
  }
};

namespace {

struct Fault {
  const char* name;
  void (*run)(Disturbances&);
};

constexpr std::array<Fault, 19> kFaults{
    {{"service restarted", Faults::serviceRestarted},
     {"service away", Faults::serviceAway},
     {"service ended and started", Faults::serviceEnded},
     {"service on another port", Faults::serviceMoved},
     {"service of a new authority", Faults::serviceOfNewAuthority},
     {"service frozen", Faults::serviceFrozen},
     {"notary restarted", Faults::notaryRestarted},
     {"notary away", Faults::notaryAway},
     {"notary frozen", Faults::notaryFrozen},
     {"notary failing", Faults::notaryFailing},
     {"bus away", Faults::busAway},
     {"key store restarted", Faults::keyStoreRestarted},
     {"key store frozen", Faults::keyStoreFrozen},
     {"second host", Faults::secondHost},
     {"second host killed", Faults::secondHostKilled},
     {"disconnected by the host", Faults::disconnected},
     {"invalidated by the host", Faults::invalidated},
     {"another source and back", Faults::sourceChanged},
     {"another notary object", Faults::anotherNotary}}};

}  // namespace

Disturbances::Disturbances(World& world, Options options)
    : options_(std::move(options)), world_(world), random_(options_.seed) {
  world_.startService({});
  Faults::startNotary(*this);
}

bool Disturbances::next() {
  if (deck_.empty()) {
    deck_.resize(kFaults.size());
    std::iota(deck_.begin(), deck_.end(), std::size_t{0});
    std::ranges::shuffle(deck_, random_);
  }
  const auto& fault = kFaults[deck_.back()];
  deck_.pop_back();
  last_ = fault.name;
  fault.run(*this);
  const auto end = std::chrono::steady_clock::now();
  const bool isServed = waitUntilServed();
  const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - end;
  auto& record = records_[fault.name];
  ++record.times;
  record.all += taken.count();
  record.longest = std::max(record.longest, taken.count());
  return isServed;
}

bool Disturbances::waitUntilServed() {
  constexpr std::chrono::milliseconds kPause{100};
  const auto end = std::chrono::steady_clock::now() + kPatience;
  while (std::chrono::steady_clock::now() < end) {
    const auto done = std::make_shared<kvl::Semaphore>();
    const auto isAnswered = std::make_shared<std::atomic<bool>>(false);
    sendFetch(sender_, [done, isAnswered](bool answered) {
      *isAnswered = answered;
      done->signal();
    });
    if (!done->waitFor(kPatience)) return false;
    if (*isAnswered) return true;
    std::this_thread::sleep_for(kPause);
  }
  return false;
}

}  // namespace kvltest
