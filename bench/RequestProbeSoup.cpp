// Requests with libsoup 3, on the main loop.
#include "bench/RequestProbe.h"

#include <libsoup/soup.h>

#include <algorithm>
#include <cstdlib>

namespace {

using kvlbench::ClosedLoop;
using kvlbench::RequestSettings;

// With more it gets slower: each connection looks through the whole line.
constexpr std::size_t kMostConnections = 10;

void failOn(GError* error) {
  if (error != nullptr) kvlbench::failProbe(error->message);
}

// Answers a server's question for a certificate.
struct Interaction {
  GTlsInteraction parent;
  GTlsCertificate* identity;
};
struct InteractionClass {
  GTlsInteractionClass parent;
};
// NOLINTBEGIN: made by a macro
G_DEFINE_TYPE(Interaction, interaction, G_TYPE_TLS_INTERACTION)
// NOLINTEND

GTlsInteractionResult answerWithIdentity(GTlsInteraction* self, GTlsConnection* connection,
                                         GTlsCertificateRequestFlags, GCancellable*, GError**) {
  g_tls_connection_set_certificate(connection, reinterpret_cast<Interaction*>(self)->identity);
  return G_TLS_INTERACTION_HANDLED;
}
void interaction_init(Interaction*) {}
void interaction_class_init(InteractionClass* type) {
  type->parent.request_certificate = answerWithIdentity;
  type->parent.request_certificate_async =
      [](GTlsInteraction* self, GTlsConnection* connection, GTlsCertificateRequestFlags flags,
         GCancellable* cancellable, GAsyncReadyCallback callback, gpointer user) {
        GTask* task = g_task_new(self, cancellable, callback, user);
        g_task_return_int(task, answerWithIdentity(self, connection, flags, cancellable, nullptr));
        g_object_unref(task);
      };
  type->parent.request_certificate_finish = [](GTlsInteraction*, GAsyncResult* result,
                                               GError** error) {
    return static_cast<GTlsInteractionResult>(g_task_propagate_int(G_TASK(result), error));
  };
}

class Client {
 public:
  explicit Client(const RequestSettings& settings)
      : url_(settings.baseURL() + settings.path()),
        loop_(settings),
        session_(makeSession(settings)) {}

  void run() {
    start(loop_.first());
    g_main_loop_run(mainLoop_);
    loop_.print();
  }

 private:
  struct Call {
    Client& client;
    SoupMessage* message;
    double started;
  };

  static SoupSession* makeSession(const RequestSettings& settings) {
    GError* error = nullptr;
    const std::string pem = kvlbench::readText(settings.file(kvlbench::kClientFile)) +
                            kvlbench::readText(settings.file(kvlbench::kClientKeyFile));
    auto* interaction = static_cast<Interaction*>(g_object_new(interaction_get_type(), nullptr));
    interaction->identity =
        g_tls_certificate_new_from_pem(pem.data(), static_cast<gssize>(pem.size()), &error);
    failOn(error);
    auto* anchors =
        g_tls_file_database_new(settings.file(kvlbench::kAuthorityFile).c_str(), &error);
    failOn(error);
    const auto most = static_cast<int>(std::min(settings.inFlight, kMostConnections));
    return SOUP_SESSION(g_object_new(SOUP_TYPE_SESSION, "max-conns", most, "max-conns-per-host",
                                     most, "tls-database", anchors, "tls-interaction", interaction,
                                     "proxy-resolver", nullptr, nullptr));
  }
  void start(std::size_t count) {
    for (; count > 0; --count) {
      auto* call = new Call{*this, soup_message_new("GET", url_.c_str()), kvlbench::clockSeconds()};
      soup_session_send_and_read_async(session_, call->message, G_PRIORITY_DEFAULT, nullptr, take,
                                       call);
    }
  }
  static void take(GObject* /*session*/, GAsyncResult* result, gpointer user) {
    const std::unique_ptr<Call> call(static_cast<Call*>(user));
    Client& client = call->client;
    GError* error = nullptr;
    GBytes* body = soup_session_send_and_read_finish(client.session_, result, &error);
    failOn(error);
    const int version = soup_message_get_http_version(call->message) == SOUP_HTTP_2_0 ? 2 : 1;
    client.start(client.loop_.answered(call->started, g_bytes_get_size(body), version));
    g_bytes_unref(body);
    g_object_unref(call->message);
    if (client.loop_.isOver()) g_main_loop_quit(client.mainLoop_);
  }

  const std::string url_;
  ClosedLoop loop_;
  GMainLoop* const mainLoop_ = g_main_loop_new(nullptr, FALSE);
  SoupSession* const session_;
};

}  // namespace

int main(int count, char** arguments) {
  Client(RequestSettings::parse(count, arguments)).run();
  std::_Exit(EXIT_SUCCESS);
}
