// The program's session with the service.
#pragma once

#include "tools/kvlocal/Command.h"

#include <local/KVLSession.h>

#include <chrono>
#include <memory>
#include <optional>

namespace kvlocal {

// The path that notaries of this program have: the option's, else the environment's.
[[nodiscard]] std::optional<std::string> notaryPath(const Settings& settings);

// Why a notary gave no identity: its error, or none when no answer came.
[[nodiscard]] std::string notaryFailureText(const std::optional<kvl::Error>& error);

// A session that the user's settings describe. It ends with this object, and so do its keys.
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
  [[nodiscard]] std::optional<kvl::Error> lastError() const { return session_->lastError(); }

  // Tells that `establish` has failed, and why.
  [[nodiscard]] ExitCode reportFailure() const;
  [[nodiscard]] std::string failureText() const;

 private:
  [[nodiscard]] bool isOver() const { return std::chrono::steady_clock::now() >= limit_; }
  [[nodiscard]] std::chrono::steady_clock::time_point nextTrial();
  // Until the session is established, a notarisation fails or the time is over.
  [[nodiscard]] ExitCode awaitNotarisation() const;

  const Context context_;
  std::chrono::milliseconds pause_{100};
  const std::shared_ptr<KVLSession> session_;
  // Until when identity and service may come: keys have been made by then.
  const std::chrono::steady_clock::time_point limit_;
};

}  // namespace kvlocal
