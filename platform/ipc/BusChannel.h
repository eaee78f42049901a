// The way of one call over the session bus.
#pragma once

#include "platform/ipc/BusCalls.h"
#include "platform/ipc/ChannelError.h"
#include "platform/ipc/NotaryMessage.h"
#include "platform/ipc/ReplyThread.h"
#include "platform/ipc/ServiceConnection.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace kvl::ipc {

struct BusOptions {
  std::chrono::milliseconds replyTimeLimit = kReplyTimeLimit;
  // Whose service may see the request. The bus vouches for the user who owns the name.
  std::uint32_t trustedUser;

  BusOptions();
};

// Lives on the reply thread: made anywhere, used and destroyed there only, hence without locks.
//
// A call goes through these steps, each answered before the next begins: connect; find the name's
// owner, and if there is none have the bus start the service and look again; check the owner's
// user; send the request to that owner by its unique name, so that the name cannot change hands in
// between. If the owner leaves before it got the request, the search starts once more.
//
// States: idle (not started), running, suspended, invalid. While suspended nothing new is sent
// and an outcome waits for `start` or `invalidate`.
class BusChannel : public std::enable_shared_from_this<BusChannel> {
 public:
  struct Call {
    std::optional<std::string> path;
    Dictionary request;
    ServiceConnection::ErrorHandler errorHandler;
    ServiceConnection::ReplyHandler replyHandler;
  };

  BusChannel(std::string serviceName, BusOptions options);

  void setInterruptionHandler(ServiceConnection::Handler handler);
  void setInvalidationHandler(ServiceConnection::Handler handler);
  void start();
  void suspend();
  void send(Call call);
  void invalidate();
  // Nobody is left who could start or resume the channel: a call that waits for that ends.
  void abandon();

 private:
  struct Outcome {
    std::optional<Error> failure;
    NotaryReply reply;
  };
  using Answer = std::function<void(BusChannel&, VariantPtr, ErrorPtr)>;

  void beginIfPossible();
  void connect();
  void findOwner();
  void startService();
  void checkOwner(const std::string& owner);
  void ownerChecked(const std::string& owner, VariantPtr user, ErrorPtr error);
  void sendRequest(const std::string& owner);
  void requestAnswered(VariantPtr reply, ErrorPtr error);
  void call(const BusMethod& method, GVariant* arguments, Answer then);
  [[nodiscard]] bool canSearchAgain(const GError& error);

  void fail(Error error);
  void conclude(Outcome outcome);
  void deliver(Outcome outcome);
  void becomeInvalid();
  void releaseTransport();

  const std::string serviceName_;
  const BusOptions options_;
  const ChannelErrors errors_;

  ServiceConnection::Handler interruptionHandler_;
  ServiceConnection::Handler invalidationHandler_;
  bool running_ = false;
  bool invalid_ = false;
  bool used_ = false;
  std::optional<Call> call_;     // from `send` until its handler runs
  std::optional<Outcome> held_;  // arrived while suspended

  bool working_ = false;  // between the first step and the outcome
  int searchesLeft_;
  VariantPtr request_;
  BusPtr bus_;
  CancellablePtr cancellable_;
  ReplyThread::Timer deadline_;
};

}  // namespace kvl::ipc
