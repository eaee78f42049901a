// kvlocal-devservice: a local service for people who develop a host, over HTTPS.

#include "devservice/Authority.h"
#include "devservice/CommandLine.h"
#include "devservice/Log.h"
#include "devservice/StateDirectory.h"
#include "devservice/service/Parameters.h"
#include "devservice/service/Routes.h"
#include "devservice/service/ServiceState.h"

#include <httplib.h>
#include <openssl/ssl.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <exception>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

namespace devservice {
namespace {

constexpr const char* kAddress = "127.0.0.1";
constexpr std::size_t kRequestsPerConnection = 100'000;
constexpr std::time_t kKeepAliveSeconds = 60;
constexpr std::chrono::hours kExpiredSince{24};

std::vector<std::string> hostsOf(const ServiceOptions& options) {
  if (!options.serverNames.empty()) return options.serverNames;
  return {"localhost", kAddress, "::1"};
}

Validity validityOf(const ServiceOptions& options) {
  if (options.expired) return {2 * kExpiredSince, -kExpiredSince};
  return {kClockTolerance, options.serverLifetime};
}

// Clients need a certificate of the authority; nobody else is trusted.
bool requireClientCertificates(SSL_CTX& context, X509* authority) {
  SSL_CTX_set_verify(&context, SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT, nullptr);
  // No resumption: every connection shows its certificate anew.
  SSL_CTX_set_session_cache_mode(&context, SSL_SESS_CACHE_OFF);
  SSL_CTX_set_options(&context, SSL_OP_NO_TICKET);
  SSL_CTX_set_num_tickets(&context, 0);
  return X509_STORE_add_cert(SSL_CTX_get_cert_store(&context), authority) == 1 &&
         SSL_CTX_add_client_CA(&context, authority) == 1;
}

bool prepareContext(SSL_CTX& context, const ServiceOptions& options, const Authority& authority) {
  const KeyPtr key = makeKey();
  const CertificatePtr certificate =
      authority.issueServer(key.get(), hostsOf(options), validityOf(options));
  return SSL_CTX_set_min_proto_version(&context, TLS1_2_VERSION) == 1 &&
         SSL_CTX_use_certificate(&context, certificate.get()) == 1 &&
         SSL_CTX_use_PrivateKey(&context, key.get()) == 1 &&
         requireClientCertificates(context, authority.certificate());
}

std::unique_ptr<httplib::SSLServer> makeServer(const ServiceOptions& options,
                                               const Authority& authority) {
  auto server = std::make_unique<httplib::SSLServer>(
      [&](SSL_CTX& context) { return prepareContext(context, options, authority); });
  if (!server->is_valid()) throw std::runtime_error("TLS: " + takeOpenSSLError());
  server->new_task_queue = [threads = options.threads] { return new httplib::ThreadPool(threads); };
  server->set_keep_alive_max_count(kRequestsPerConnection);
  server->set_keep_alive_timeout(kKeepAliveSeconds);
  server->set_read_timeout(options.patience);
  server->set_tcp_nodelay(true);
  return server;
}

// What a log line says of a request's body.
std::string bodyText(const httplib::Request& request) {
  const std::string length = request.get_header_value("Content-Length");
  if (length.empty() || length == "0") return {};
  return " (" + length + " bytes of " + request.get_header_value("Content-Type") + ")";
}

void addRoutes(httplib::Server& server, ServiceState& state, const ServiceOptions& options) {
  if (options.documents) addFileRoutes(server, *options.documents);
  addEchoRoutes(server, state);
  addTransferRoutes(server, state);
  addImageRoutes(server);
  addDocumentRoutes(server);
  addNotesRoutes(server, state);
  addStreamRoutes(server, state);
  server.set_logger([&state](const httplib::Request& request, const httplib::Response& response) {
    state.countRequest();
    log(request.method + " " + request.target + " " + std::to_string(response.status) +
        bodyText(request));
  });
}

// The library lets five connections wait to be accepted; more that come at once lose their first
// packets and try again seconds later.
int bindPort(httplib::Server& server, int port) {
  int listening = -1;
  server.set_socket_options([&listening](socket_t socket) {
    httplib::default_socket_options(socket);
    listening = socket;
  });
  const int bound = port == 0 ? server.bind_to_any_port(kAddress)
                              : (server.bind_to_port(kAddress, port) ? port : -1);
  server.set_socket_options(httplib::default_socket_options);
  if (bound <= 0 || listen(listening, SOMAXCONN) != 0)
    throw std::runtime_error("cannot listen on port " + std::to_string(port));
  return bound;
}

sigset_t endSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGTERM);
  sigaddset(&signals, SIGINT);
  return signals;
}

bool isOfInternet(int descriptor) {
  sockaddr_storage address{};
  socklen_t size = sizeof address;
  return getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &size) == 0 &&
         address.ss_family == AF_INET;
}

// Before it ends the library waits for connections that are kept open to be silent for as long as
// they may be. They end at once when nothing can come from them any more; what is being answered
// still goes out.
void endReading() {
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    const auto descriptor =
        static_cast<int>(wholeNumber(entry.path().filename().string()).value_or(-1));
    if (isOfInternet(descriptor)) shutdown(descriptor, SHUT_RD);
  }
}

// Serves on a thread of its own while this one waits for a signal. False when serving ended by
// itself.
bool serveUntilSignal(httplib::Server& server, ServiceState& state) {
  std::atomic<bool> failed{false};
  std::thread serving([&] {
    if (server.listen_after_bind()) return;
    failed = true;
    kill(getpid(), SIGTERM);
  });
  const sigset_t signals = endSignals();
  int signal = 0;
  sigwait(&signals, &signal);
  // The server can only be stopped once it runs.
  while (!server.is_running() && !failed) std::this_thread::yield();
  state.end();
  server.stop();
  endReading();
  serving.join();
  return !failed;
}

// Serves until SIGTERM or SIGINT arrives; returns the program's exit status. Both signals must be
// blocked in every thread. While it serves, the state directory's service.url names it.
// Throws std::runtime_error when it cannot start.
int runService(const ServiceOptions& options) {
  const StateDirectory directory(options.state);
  const Authority authority =
      options.newAuthority ? Authority::replace(directory) : Authority::open(directory);
  ServiceState state;
  const auto server = makeServer(options, authority);
  addRoutes(*server, state, options);
  const int port = bindPort(*server, options.port);
  const std::string url = "https://" + std::string(kAddress) + ":" + std::to_string(port) + "/";
  directory.write(kServiceURLFile, url + "\n");
  log("listening on " + url);
  const bool ended = serveUntilSignal(*server, state);
  // Another service may have taken over meanwhile; its file stays.
  if (directory.read(kServiceURLFile) == url + "\n") directory.remove(kServiceURLFile);
  log(ended ? "ended by a signal" : "the server failed");
  return ended ? 0 : 1;
}

}  // namespace

}  // namespace devservice

int main(int count, char** arguments) {
  devservice::setLogName("kvlocal-devservice");
  const sigset_t signals = devservice::endSignals();
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);  // before any thread exists
  try {
    const auto parsed = devservice::parseServiceOptions(count, arguments);
    if (const int* status = std::get_if<int>(&parsed)) return *status;
    return devservice::runService(std::get<devservice::ServiceOptions>(parsed));
  } catch (const std::exception& error) {
    devservice::log(error.what());
    return 1;
  }
}
