// The world of an integration test: a private bus with a key store, the development notary
// activated on demand, and the development service as a process.
#pragma once

#include "tests/support/LogCapture.h"
#include "tests/support/PrivateBus.h"

#include <local/KVLSession.h>
#include <local/platform/Mutex.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kvltest {

inline constexpr std::chrono::seconds kPatience{60};
inline constexpr const char* kStateFolder = "state";
inline constexpr std::string_view kNotaryName = "korvale.vandrel.local.notary";

// What one request brought.
struct Reply {
  std::optional<kvl::Data> data;
  kvl::URLResponseRef response;
  std::optional<kvl::Error> error;

  [[nodiscard]] int status() const {
    return response && response->httpStatusCode ? *response->httpStatusCode : -1;
  }
  [[nodiscard]] std::string_view body() const { return data ? data->text() : std::string_view(); }
  [[nodiscard]] bool failedWith(std::int64_t code) const {
    return error && error->is(kvl::NSURLErrorDomain, code);
  }
};

// Waits for states as a host would: by observing them.
class StateWatcher {
 public:
  explicit StateWatcher(const KVLSession& session)
      : observation_(session.observeState([this](KVLSessionState state) {
          const kvl::MutexLock lock(mutex_);
          seen_.push_back(state);
          changed_.notifyAll();
        })) {}

  // Waits until `state` has been entered `times` times since the watcher was made.
  [[nodiscard]] bool waitFor(KVLSessionState state, std::size_t times = 1) {
    const auto end = std::chrono::steady_clock::now() + kPatience;
    kvl::MutexLock lock(mutex_);
    while (countOf(state) < times) {
      if (!changed_.waitUntil(lock, end)) return countOf(state) >= times;
    }
    return true;
  }
  // How often `state` has been entered so far, as far as it has been told.
  [[nodiscard]] std::size_t count(KVLSessionState state) {
    const kvl::MutexLock lock(mutex_);
    return countOf(state);
  }

 private:
  std::size_t countOf(KVLSessionState state) const KVL_REQUIRES(mutex_) {
    return static_cast<std::size_t>(std::ranges::count(seen_, state));
  }

  kvl::Mutex mutex_;
  kvl::Condition changed_;
  std::vector<KVLSessionState> seen_ KVL_GUARDED_BY(mutex_);
  kvl::Observation observation_;
};

// A private bus with a key store, what runs on it, and a session.
struct World {
  World();
  // Nothing that the session still does reaches another world.
  ~World();
  World(const World&) = delete;
  World& operator=(const World&) = delete;

  // Makes the notary activatable with these options.
  void offerNotary(const std::string& options);
  // The notary with these options, as a process; returns when it owns its name.
  [[nodiscard]] ChildProcess startNotary(const std::vector<std::string>& options);
  // What the one that was started last has written.
  [[nodiscard]] std::string notaryLog() const;
  // Starts the service and returns when it has written its URL.
  void startService(const std::vector<std::string>& options);
  // What the running service, or the last one, has written.
  [[nodiscard]] std::string serviceLog() const;
  // The port of the running service.
  [[nodiscard]] std::string servicePort() const;
  [[nodiscard]] std::filesystem::path stateDirectory() const {
    return bus.directory() / kStateFolder;
  }

  PrivateBus bus;
  const SessionBusVariable busVariable{bus.address()};
  std::shared_ptr<KVLSession> session;
  std::unique_ptr<StateWatcher> states;
  ChildProcess service;
  std::filesystem::path notaryLogFile;
  std::filesystem::path serviceLogFile;
  int serviceStarts = 0;
  int notaryStarts = 0;
  // Whether it is no longer as the next test expects it.
  bool isSpoiled = false;
};

class LocalService : public testing::Test {
 protected:
  // In a world of its own, or in that one.
  LocalService() : LocalService(std::make_shared<World>()) {}
  explicit LocalService(std::shared_ptr<World> world) : world_(std::move(world)) {}
  ~LocalService() override;

  void offerNotary(const std::string& options = "") { world_->offerNotary(options); }
  [[nodiscard]] ChildProcess startNotary(const std::vector<std::string>& options) {
    return world_->startNotary(options);
  }
  [[nodiscard]] std::string notaryLog() const { return world_->notaryLog(); }
  void startService(const std::vector<std::string>& options = {}) { world_->startService(options); }
  // Kills it.
  void stopService();
  // Asks it to end, and waits for that.
  void endService();
  [[nodiscard]] pid_t serviceId() const { return world_->service.id(); }
  [[nodiscard]] std::string serviceLog() const { return world_->serviceLog(); }
  [[nodiscard]] bool waitForServiceLog(std::string_view part) const;
  [[nodiscard]] std::string servicePort() const { return world_->servicePort(); }

  void createSession();
  // A session that asks nobody until it gets another notary.
  void createSessionWithoutNotary();
  // Sends a request and waits for its outcome.
  [[nodiscard]] Reply get(std::string_view path) const { return send(kvl::URLRequest(path)); }
  [[nodiscard]] Reply send(const kvl::URLRequest& request) const;
  // Creates a session and waits until it is established.
  void establish();
  // From now on nobody answers the session: once disconnected, it stays so.
  void silenceNotary();

  [[nodiscard]] std::filesystem::path stateDirectory() const { return world_->stateDirectory(); }

  LogCapture log;

 private:
  const std::shared_ptr<World> world_;

 protected:
  PrivateBus& bus = world_->bus;
  std::shared_ptr<KVLSession>& session = world_->session;
  std::unique_ptr<StateWatcher>& states = world_->states;
};

// An established session that the tests of a suite share. One that stops the service, or fails, is
// the last that sees it.
class EstablishedService : public LocalService {
 public:
  static void TearDownTestSuite() { shared_.reset(); }

 protected:
  EstablishedService() : LocalService(sharedWorld()) {}
  void SetUp() override;

 private:
  struct Shared {
    LogCapture log;  // of what is said between two tests
    std::shared_ptr<World> world = std::make_shared<World>();
  };
  static std::shared_ptr<World> sharedWorld();

  static inline std::unique_ptr<Shared> shared_;
};

}  // namespace kvltest
