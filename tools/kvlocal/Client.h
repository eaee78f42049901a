// The program's session with the service.
#pragma once

#include "tools/kvlocal/Command.h"

#include <local/KVLSession.h>
#include <local/platform/Atomic.h>

#include <chrono>
#include <memory>
#include <optional>

namespace kvlocal {

// The path that notaries of this program have: the option's, else the environment's.
[[nodiscard]] std::optional<std::string> notaryPath(const Settings& settings);

// Why a notary gave no identity: its error, or none when no answer came.
[[nodiscard]] std::string notaryFailureText(const std::optional<kvl::Error>& error);

// A session that the user's settings describe. Its keys are removed from the key store at the end.
class Client {
 public:
  explicit Client(const Context& context);
  ~Client();
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  [[nodiscard]] KVLSession& session() const { return *session_; }

  // Waits until the session has been established, or until it is clear that it will not be in time.
  // With a time-out the notary is asked again and again until that has passed. `ok`, even if the
  // session has been lost again meanwhile, `notEstablished` or `interrupted`.
  // After a failure all that it logs has been logged and the session's observers know its state.
  [[nodiscard]] ExitCode establish();

  // Whether the request that brought this error has reached no service, and there is time left in
  // which one may come.
  [[nodiscard]] bool mayYetReachService(const kvl::Error& error) const;

  // Waits a moment and asks the notary where the service is. `ok` when it is time to try again,
  // `notEstablished` or `interrupted`.
  [[nodiscard]] ExitCode waitForService();

  // Why the last notarisation failed; absent when it has not.
  [[nodiscard]] std::optional<kvl::Error> lastError() const { return lastError_->get(); }

  // Tells that `establish` has failed, and why.
  [[nodiscard]] ExitCode reportFailure() const;
  [[nodiscard]] std::string failureText() const;

 private:
  [[nodiscard]] bool isOver() const { return std::chrono::steady_clock::now() >= limit_; }
  [[nodiscard]] std::chrono::steady_clock::time_point nextTrial();
  [[nodiscard]] ExitCode awaitTelling() const;
  void askAgain();

  // What has happened so far, protected by the rendezvous.
  struct Seen {
    bool established = false;  // the session has dealt with a notarisation that succeeded
    bool failed = false;       // or with one that failed
    bool failureTold = false;  // and observers have been told the state that this led to
  };

  using ErrorRecord = kvl::Atomic<std::optional<kvl::Error>>;

  const Context context_;
  std::chrono::milliseconds pause_{100};
  const std::shared_ptr<ErrorRecord> lastError_ = std::make_shared<ErrorRecord>();
  const std::shared_ptr<Seen> seen_ = std::make_shared<Seen>();
  const std::shared_ptr<KVLSession> session_;
  // Until when identity and service may come: keys have been made by then.
  const std::chrono::steady_clock::time_point limit_;
};

}  // namespace kvlocal
