// The transport over the session bus. A request goes through these steps, each answered before the
// next begins: connect; find the name's owner, and if there is none have the bus start the service
// and look again; check the owner's user; send the request to that owner by its unique name, so
// that the name cannot change hands in between. If the owner leaves before it got the request, the
// search starts once more.
#include "platform/ipc/BusTransport.h"

#include "platform/core/ProcessExit.h"
#include "platform/core/Sentence.h"
#include "platform/core/Threads.h"
#include "platform/ipc/CallTransport.h"
#include "platform/ipc/ChannelErrors.h"
#include "platform/ipc/GLibPointers.h"
#include "platform/ipc/NotaryMessage.h"

#include <gio/gio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <functional>
#include <limits>
#include <utility>

namespace kvl::ipc {
namespace {

// GIO's asynchronous operations with blocks for callbacks. For use on the reply thread; the blocks
// run there too, exactly once, with either a result or an error.

constexpr const char* kBusName = "org.freedesktop.DBus";
constexpr const char* kBusObject = "/org/freedesktop/DBus";
constexpr int kNoTimeLimit = std::numeric_limits<int>::max();

using Connected = std::function<void(BusPtr, ErrorPtr)>;
using Answered = std::function<void(VariantPtr, ErrorPtr)>;

std::string runtimeDirectoryBusAddress() {
  const char* directory = g_getenv("XDG_RUNTIME_DIR");
  if (directory == nullptr || *directory == '\0') return {};
  const TextPtr path(g_build_filename(directory, "bus", nullptr));
  if (!g_file_test(path.get(), G_FILE_TEST_EXISTS)) return {};
  const TextPtr escaped(g_dbus_address_escape_value(path.get()));
  return std::string("unix:path=") + escaped.get();
}

// The same places in which GIO looks. Only the last resort, asking a helper program, may take time,
// and with that address it is done while connecting, off this thread.
std::string sessionBusAddress() {
  const char* address = g_getenv("DBUS_SESSION_BUS_ADDRESS");
  if (address != nullptr && *address != '\0') return address;
  std::string fromDirectory = runtimeDirectoryBusAddress();
  return fromDirectory.empty() ? "autolaunch:" : fromDirectory;
}

void connected(GObject*, GAsyncResult* result, gpointer data) noexcept {
  const core::ThreadWork work;
  const std::unique_ptr<Connected> then(static_cast<Connected*>(data));
  GError* error = nullptr;
  BusPtr bus(g_dbus_connection_new_for_address_finish(result, &error));
  (*then)(std::move(bus), ErrorPtr(error));
}

void answered(GObject* source, GAsyncResult* result, gpointer data) noexcept {
  const core::ThreadWork work;
  const std::unique_ptr<Answered> then(static_cast<Answered*>(data));
  GError* error = nullptr;
  VariantPtr reply(
      g_dbus_connection_call_finish(reinterpret_cast<GDBusConnection*>(source), result, &error));
  (*then)(std::move(reply), ErrorPtr(error));
}

struct BusMethod {
  std::string destination;
  std::string object;
  std::string interface;
  const char* name;
  const char* replyType;
};

// A connection of its own to the session bus; the process's shared one is left alone because it
// may end the process when the bus goes away. Neither the address nor the connecting blocks.
void connectToSessionBus(GCancellable* cancellable, Connected then) {
  constexpr auto flags =
      static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                        G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
  g_dbus_connection_new_for_address(sessionBusAddress().c_str(), flags, nullptr, cancellable,
                                    connected, new Connected(std::move(then)));
}

// Calls without starting a service and without a time limit: `cancellable` ends the waiting.
void callMethod(GDBusConnection* bus, const BusMethod& method, GVariant* arguments,
                GCancellable* cancellable, Answered then) {
  g_dbus_connection_call(bus, method.destination.c_str(), method.object.c_str(),
                         method.interface.c_str(), method.name, arguments,
                         reinterpret_cast<const GVariantType*>(method.replyType),
                         G_DBUS_CALL_FLAGS_NO_AUTO_START, kNoTimeLimit, cancellable, answered,
                         new Answered(std::move(then)));
}

BusMethod busMethod(const char* name, const char* replyType) {
  return {kBusName, kBusObject, kBusName, name, replyType};
}

// What the bus's errors are called.

constexpr std::string_view kUnknownService =
    translatable("No service of this name is known to the session bus.");
constexpr std::string_view kNotStarted = translatable("The service could not be started.");
constexpr std::string_view kNoBus = translatable("The session bus cannot be used.");
constexpr std::string_view kForbidden =
    translatable("The session bus did not let the request through.");
constexpr std::string_view kServiceEnded = translatable("The service ended before it answered.");
constexpr std::string_view kNothingLeft =
    translatable("The process has no descriptor or thread left for it.");
constexpr std::string_view kBusEnded =
    translatable("The session bus went away before the service answered.");

template <std::size_t N>
bool isBusError(const GError& error, const std::array<GDBusError, N>& codes) {
  return error.domain == G_DBUS_ERROR &&
         std::find(codes.begin(), codes.end(), error.code) != codes.end();
}

bool isTimeLimit(const GError& error) {
  constexpr std::array codes{G_DBUS_ERROR_TIMEOUT, G_DBUS_ERROR_TIMED_OUT};
  return isBusError(error, codes) || g_error_matches(&error, G_IO_ERROR, G_IO_ERROR_TIMED_OUT);
}

bool isSpawnFailure(const GError& error) {
  return error.domain == G_DBUS_ERROR && error.code >= G_DBUS_ERROR_SPAWN_EXEC_FAILED &&
         error.code <= G_DBUS_ERROR_SPAWN_NO_MEMORY;
}

bool isServiceGone(const GError& error) {
  constexpr std::array codes{G_DBUS_ERROR_NO_REPLY, G_DBUS_ERROR_DISCONNECTED};
  return isBusError(error, codes);
}

bool isRefusedByBus(const GError& error) {
  constexpr std::array codes{G_DBUS_ERROR_ACCESS_DENIED, G_DBUS_ERROR_AUTH_FAILED,
                             G_DBUS_ERROR_LIMITS_EXCEEDED, G_DBUS_ERROR_NO_MEMORY};
  return isBusError(error, codes);
}

// GIO reports a reply of another signature as an invalid argument, and a D-Bus error whose name it
// does not know as one of its own.
bool isNoReplyOfProtocol(const GError& error) {
  return error.domain == G_DBUS_ERROR ||
         g_error_matches(&error, G_IO_ERROR, G_IO_ERROR_INVALID_ARGUMENT) ||
         g_error_matches(&error, G_IO_ERROR, G_IO_ERROR_DBUS_ERROR);
}

// The name was not owned, or its owner has gone: nothing was delivered.
bool meansNoOwner(const GError& error) {
  constexpr std::array codes{G_DBUS_ERROR_SERVICE_UNKNOWN, G_DBUS_ERROR_NAME_HAS_NO_OWNER};
  return isBusError(error, codes);
}

// Before the request was sent a failure means that the service cannot be reached.
Error errorWhileReaching(const ChannelErrors& errors, const GError& error) {
  if (isTimeLimit(error)) return errors.timedOut(error.message);
  std::string_view reason = kNoBus;
  if (meansNoOwner(error)) reason = kUnknownService;
  if (isSpawnFailure(error)) reason = kNotStarted;
  if (isRefusedByBus(error)) reason = kForbidden;
  return errors.unreachable(reason, error.message);
}

// Once it was sent: the service or the bus went away; the bus did not let the request through; or
// something came back that is no reply of the protocol, a D-Bus error that the service itself
// returned included, since its own errors travel inside a reply.
Error errorWhileCalling(const ChannelErrors& errors, const GError& error) {
  if (isTimeLimit(error)) return errors.timedOut(error.message);
  if (isServiceGone(error)) return errors.interrupted(kServiceEnded, error.message);
  if (meansNoOwner(error)) return errors.unreachable(kUnknownService, error.message);
  if (isRefusedByBus(error)) return errors.unreachable(kForbidden, error.message);
  if (isNoReplyOfProtocol(error)) return errors.replyOfWrongShape(error.message);
  return errors.interrupted(kBusEnded, error.message);
}

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

class BusTransport final : public CallTransport, public std::enable_shared_from_this<BusTransport> {
 public:
  BusTransport(const std::string& serviceName, std::uint32_t trustedUser)
      : serviceName_(serviceName), trustedUser_(trustedUser), errors_(serviceName) {}

  void send(const ServiceRequest& request, Answer answer) override {
    answer_ = std::move(answer);
    request_ = makeNotaryRequest(request);
    if (!request_) return fail(errors_.requestNotCarried());
    if (!canConnect()) return fail(errors_.unreachable(kNothingLeft));
    cancellable_.reset(g_cancellable_new());
    connect();
  }

  void cancel() override {
    answer_ = nullptr;
    request_.reset();
    if (cancellable_) g_cancellable_cancel(cancellable_.get());
    cancellable_.reset();
    if (bus_) g_dbus_connection_close(bus_.get(), nullptr, nullptr, nullptr);
    bus_.reset();
  }

 private:
  using Step = std::function<void(BusTransport&, VariantPtr, ErrorPtr)>;

  void connect() {
    connectToSessionBus(cancellable_.get(),
                        [self = shared_from_this()](BusPtr bus, const ErrorPtr& error) {
                          if (!self->answer_) return;
                          if (error) return self->failWhileReaching(*error);
                          self->bus_ = std::move(bus);
                          self->findOwner();
                        });
  }

  void call(const BusMethod& method, GVariant* arguments, Step then) {
    callMethod(
        bus_.get(), method, arguments, cancellable_.get(),
        [self = shared_from_this(), then = std::move(then)](VariantPtr reply, ErrorPtr error) {
          if (self->answer_) then(*self, std::move(reply), std::move(error));
        });
  }

  void findOwner() {
    --searchesLeft_;
    call(busMethod("GetNameOwner", "(s)"), g_variant_new("(s)", serviceName_.c_str()),
         [](BusTransport& self, const VariantPtr& owner, const ErrorPtr& error) {
           if (owner) return self.checkOwner(firstText(owner.get()));
           if (meansNoOwner(*error)) return self.startService();
           self.failWhileReaching(*error);
         });
  }

  void startService() {
    constexpr guint32 kNoFlags = 0;
    call(busMethod("StartServiceByName", "(u)"),
         g_variant_new("(su)", serviceName_.c_str(), kNoFlags),
         [](BusTransport& self, const VariantPtr&, const ErrorPtr& error) {
           if (error) return self.failWhileReaching(*error);
           self.findStartedOwner();
         });
  }

  void findStartedOwner() {
    call(busMethod("GetNameOwner", "(s)"), g_variant_new("(s)", serviceName_.c_str()),
         [](BusTransport& self, const VariantPtr& owner, const ErrorPtr& error) {
           if (owner) return self.checkOwner(firstText(owner.get()));
           self.failWhileReaching(*error);
         });
  }

  void checkOwner(const std::string& owner) {
    call(busMethod("GetConnectionUnixUser", "(u)"), g_variant_new("(s)", owner.c_str()),
         [owner](BusTransport& self, const VariantPtr& user, const ErrorPtr& error) {
           if (user) return self.ownerChecked(owner, user.get());
           if (self.canSearchAgain(*error)) return self.findOwner();
           self.failWhileReaching(*error);
         });
  }

  void ownerChecked(const std::string& owner, GVariant* reply) {
    guint32 user = 0;
    g_variant_get(reply, "(u)", &user);
    if (user != trustedUser_) return fail(errors_.untrustedOwner(user));
    sendRequest(owner);
  }

  void sendRequest(const std::string& owner) {
    const BusMethod method{owner, objectPath(serviceName_), serviceName_ + "Protocol",
                           kNotaryMethod, kNotaryReplyType};
    call(method, request_.get(),
         [](BusTransport& self, const VariantPtr& reply, const ErrorPtr& error) {
           if (reply) return self.requestAnswered(reply.get());
           if (self.canSearchAgain(*error)) return self.findOwner();
           self.fail(errorWhileCalling(self.errors_, *error));
         });
  }

  void requestAnswered(GVariant* reply) {
    std::optional<ServiceReply> content = readNotaryReply(reply);
    if (!content) return fail(errors_.replyOfWrongShape());
    conclude({std::nullopt, std::move(*content)});
  }

  // GLib ends the process when a connection does not get what it needs. Without a context of this
  // thread's own, answers would go to the host's.
  static bool canConnect() {
    return g_main_context_get_thread_default() != nullptr && core::hasSpareDescriptors() &&
           core::hasSpareThread();
  }

  [[nodiscard]] bool canSearchAgain(const GError& error) const {
    return meansNoOwner(error) && searchesLeft_ > 0;
  }

  void failWhileReaching(const GError& error) { fail(errorWhileReaching(errors_, error)); }
  void fail(Error error) { conclude({std::move(error), {}}); }
  void conclude(CallOutcome outcome) {
    if (const Answer answer = std::exchange(answer_, nullptr)) answer(std::move(outcome));
  }

  const std::string serviceName_;
  const std::uint32_t trustedUser_;
  const ChannelErrors errors_;

  Answer answer_;  // while a request is under way
  int searchesLeft_ = kSearches;
  VariantPtr request_;
  BusPtr bus_;
  CancellablePtr cancellable_;
};

}  // namespace

std::shared_ptr<CallTransport> makeBusTransport(const std::string& serviceName,
                                                std::uint32_t trustedUser) {
  return std::make_shared<BusTransport>(serviceName, trustedUser);
}

}  // namespace kvl::ipc
