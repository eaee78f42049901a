#include "platform/ipc/BusChannel.h"

#include <unistd.h>

#include <algorithm>
#include <utility>

namespace kvl::ipc {
namespace {

// A service that ends itself when idle may leave between being found and being called.
constexpr int kSearches = 2;

std::string objectPath(std::string serviceName) {
  std::replace(serviceName.begin(), serviceName.end(), '.', '/');
  return "/" + serviceName;
}

std::string firstText(GVariant* tuple) {
  const char* text = nullptr;
  g_variant_get(tuple, "(&s)", &text);
  return text;
}

}  // namespace

BusOptions::BusOptions() : trustedUser(getuid()) {}

BusChannel::BusChannel(std::string serviceName, BusOptions options)
    : serviceName_(std::move(serviceName)),
      options_(options),
      errors_(serviceName_),
      searchesLeft_(kSearches) {}

void BusChannel::setInterruptionHandler(ServiceConnection::Handler handler) {
  interruptionHandler_ = std::move(handler);
}

void BusChannel::setInvalidationHandler(ServiceConnection::Handler handler) {
  invalidationHandler_ = std::move(handler);
}

void BusChannel::start() {
  running_ = true;
  if (held_) return deliver(*std::exchange(held_, std::nullopt));
  beginIfPossible();
}

void BusChannel::suspend() {
  running_ = false;
}

void BusChannel::send(Call call) {
  if (invalid_) return call.errorHandler(errors_.invalidated());
  if (used_) return call.errorHandler(errors_.alreadyUsed());
  used_ = true;
  call_ = std::move(call);
  beginIfPossible();
}

void BusChannel::invalidate() {
  running_ = true;  // a suspended channel tells its end too
  held_.reset();
  if (call_) return fail(errors_.invalidated());
  becomeInvalid();
}

void BusChannel::abandon() {
  if (call_ && !running_) invalidate();
}

void BusChannel::beginIfPossible() {
  if (!running_ || !call_ || working_) return;
  working_ = true;
  request_ = makeNotaryRequest(call_->path, call_->request);
  if (!request_) return fail(errors_.requestNotCarried());
  deadline_ = ReplyThread::Timer(options_.replyTimeLimit, [weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->fail(self->errors_.timedOut());
  });
  cancellable_.reset(g_cancellable_new());
  connect();
}

void BusChannel::connect() {
  connectToSessionBus(cancellable_.get(),
                      [self = shared_from_this()](BusPtr bus, const ErrorPtr& error) {
                        if (!self->working_) return;
                        if (error)
                          return self->fail(self->errors_.fromBus(*error, Stage::reaching));
                        self->bus_ = std::move(bus);
                        self->findOwner();
                      });
}

void BusChannel::call(const BusMethod& method, GVariant* arguments, Answer then) {
  callMethod(bus_.get(), method, arguments, cancellable_.get(),
             [self = shared_from_this(), then = std::move(then)](VariantPtr reply, ErrorPtr error) {
               if (self->working_) then(*self, std::move(reply), std::move(error));
             });
}

void BusChannel::findOwner() {
  --searchesLeft_;
  call(busMethod("GetNameOwner", "(s)"), g_variant_new("(s)", serviceName_.c_str()),
       [](BusChannel& self, const VariantPtr& owner, const ErrorPtr& error) {
         if (owner) return self.checkOwner(firstText(owner.get()));
         if (meansNoOwner(*error)) return self.startService();
         self.fail(self.errors_.fromBus(*error, Stage::reaching));
       });
}

void BusChannel::startService() {
  constexpr guint32 kNoFlags = 0;
  call(
      busMethod("StartServiceByName", "(u)"), g_variant_new("(su)", serviceName_.c_str(), kNoFlags),
      [](BusChannel& self, const VariantPtr&, const ErrorPtr& error) {
        if (error) return self.fail(self.errors_.fromBus(*error, Stage::reaching));
        self.call(busMethod("GetNameOwner", "(s)"), g_variant_new("(s)", self.serviceName_.c_str()),
                  [](BusChannel& channel, const VariantPtr& owner, const ErrorPtr& gone) {
                    if (owner) return channel.checkOwner(firstText(owner.get()));
                    channel.fail(channel.errors_.fromBus(*gone, Stage::reaching));
                  });
      });
}

void BusChannel::checkOwner(const std::string& owner) {
  call(busMethod("GetConnectionUnixUser", "(u)"), g_variant_new("(s)", owner.c_str()),
       [owner](BusChannel& self, VariantPtr user, ErrorPtr error) {
         self.ownerChecked(owner, std::move(user), std::move(error));
       });
}

void BusChannel::ownerChecked(const std::string& owner, VariantPtr reply, ErrorPtr error) {
  if (error) {
    if (canSearchAgain(*error)) return findOwner();
    return fail(errors_.fromBus(*error, Stage::reaching));
  }
  guint32 user = 0;
  g_variant_get(reply.get(), "(u)", &user);
  if (user != options_.trustedUser) return fail(errors_.untrustedOwner(user));
  sendRequest(owner);
}

void BusChannel::sendRequest(const std::string& owner) {
  const BusMethod method{owner, objectPath(serviceName_), serviceName_ + "Protocol", kNotaryMethod,
                         kNotaryReplyType};
  call(method, request_.get(), [](BusChannel& self, VariantPtr reply, ErrorPtr error) {
    self.requestAnswered(std::move(reply), std::move(error));
  });
}

void BusChannel::requestAnswered(VariantPtr reply, ErrorPtr error) {
  if (error) {
    if (canSearchAgain(*error)) return findOwner();
    return fail(errors_.fromBus(*error, Stage::calling));
  }
  std::optional<NotaryReply> content = readNotaryReply(reply.get());
  if (!content) return fail(errors_.replyOfWrongShape());
  conclude({std::nullopt, std::move(*content)});
}

bool BusChannel::canSearchAgain(const GError& error) {
  return meansNoOwner(error) && searchesLeft_ > 0;
}

void BusChannel::fail(Error error) {
  conclude({std::move(error), {}});
}

void BusChannel::conclude(Outcome outcome) {
  releaseTransport();
  if (running_) return deliver(std::move(outcome));
  held_ = std::move(outcome);
}

// Handlers are taken out before they run: whatever they hold, this channel included, goes with
// them.
void BusChannel::deliver(Outcome outcome) {
  const Call call = *std::exchange(call_, std::nullopt);
  const auto interruptionHandler = std::exchange(interruptionHandler_, nullptr);
  if (!outcome.failure) {
    return call.replyHandler(std::move(outcome.reply.reply), std::move(outcome.reply.error));
  }
  const Error& failure = *outcome.failure;
  if (failure.is(NSCocoaErrorDomain, NSXPCConnectionInterrupted) && interruptionHandler) {
    interruptionHandler();
  }
  call.errorHandler(failure);
  if (failure.is(NSCocoaErrorDomain, NSXPCConnectionInvalid)) becomeInvalid();
}

void BusChannel::becomeInvalid() {
  if (std::exchange(invalid_, true)) return;
  interruptionHandler_ = nullptr;
  if (const auto handler = std::exchange(invalidationHandler_, nullptr)) handler();
}

void BusChannel::releaseTransport() {
  working_ = false;
  deadline_ = {};
  request_.reset();
  if (cancellable_) g_cancellable_cancel(cancellable_.get());
  cancellable_.reset();
  if (bus_) g_dbus_connection_close(bus_.get(), nullptr, nullptr, nullptr);
  bus_.reset();
}

}  // namespace kvl::ipc
