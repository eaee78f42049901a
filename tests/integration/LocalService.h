// The world of an integration test: a private bus with a key store, the development notary
// activated on demand, and the development service as a process.
#pragma once

#include "tests/support/LogCapture.h"
#include "tests/support/PrivateBus.h"

#include <local/KVLSession.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kvltest {

inline constexpr std::chrono::seconds kPatience{60};
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
          const std::lock_guard lock(mutex_);
          seen_.push_back(state);
          changed_.notify_all();
        })) {}

  // Waits until `state` has been entered `times` times since the watcher was made.
  [[nodiscard]] bool waitFor(KVLSessionState state, std::size_t times = 1) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, kPatience, [&] {
      return static_cast<std::size_t>(std::ranges::count(seen_, state)) >= times;
    });
  }
  // How often `state` has been entered so far, as far as it has been told.
  [[nodiscard]] std::size_t count(KVLSessionState state) {
    const std::lock_guard lock(mutex_);
    return static_cast<std::size_t>(std::ranges::count(seen_, state));
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<KVLSessionState> seen_;
  kvl::Observation observation_;
};

class LocalService : public testing::Test {
 protected:
  LocalService();
  ~LocalService() override;

  // Makes the notary activatable with these options.
  void offerNotary(const std::string& options = "");
  // Starts the service and returns when it has written its URL.
  void startService(const std::vector<std::string>& options = {});
  // Kills it.
  void stopService();
  // Asks it to end, and waits for that.
  void endService();
  [[nodiscard]] pid_t serviceId() const { return service_.id(); }
  // What the running service, or the last one, has written.
  [[nodiscard]] std::string serviceLog() const;
  [[nodiscard]] bool waitForServiceLog(std::string_view part) const;
  // The port of the running service.
  [[nodiscard]] std::string servicePort() const;

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

  [[nodiscard]] std::filesystem::path stateDirectory() const { return bus.directory() / "state"; }

  LogCapture log;
  PrivateBus bus;
  const SessionBusVariable busVariable{bus.address()};
  std::shared_ptr<KVLSession> session;
  std::unique_ptr<StateWatcher> states;

 private:
  ChildProcess service_;
  std::filesystem::path serviceLogFile_;
  int serviceStarts_ = 0;
};

}  // namespace kvltest
