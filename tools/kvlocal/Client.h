// The program's session with the service.
#pragma once

#include "tools/kvlocal/Command.h"

#include <local/KVLSession.h>
#include <local/platform/Atomic.h>

#include <memory>
#include <optional>

namespace kvlocal {

// The path that notaries of this program have: the option's, else the environment's.
[[nodiscard]] std::optional<std::string> notaryPath(const Settings& settings);

// A session that the user's settings describe. Its keys are removed from the key store at the end.
class Client {
 public:
  explicit Client(const Context& context);
  ~Client();
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  [[nodiscard]] KVLSession& session() const { return *session_; }

  // Waits until the session has been established, or until it is clear that it will not be in time.
  // `ok`, even if the session has been lost again meanwhile, `notEstablished` or `interrupted`.
  // After a failure all that it logs has been logged and the session's observers know its state.
  [[nodiscard]] ExitCode establish();

  // Why the last notarisation failed; absent when it has not.
  [[nodiscard]] std::optional<kvl::Error> lastError() const { return lastError_->get(); }

  // What to tell the user when `establish` has failed.
  [[nodiscard]] std::string failureText() const;

 private:
  // What has happened so far, protected by the rendezvous.
  struct Seen {
    bool established = false;
    bool failed = false;       // the session has dealt with a notarisation that failed
    bool failureTold = false;  // and its observers have been told the state that this led to
  };

  using ErrorRecord = kvl::Atomic<std::optional<kvl::Error>>;

  const Context context_;
  const std::shared_ptr<ErrorRecord> lastError_ = std::make_shared<ErrorRecord>();
  const std::shared_ptr<Seen> seen_ = std::make_shared<Seen>();
  const std::shared_ptr<KVLSession> session_;
  const kvl::Observation observation_;
};

}  // namespace kvlocal
