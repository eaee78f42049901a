// Fetches one document with the library that is shipped, and prints, in milliseconds of
// CLOCK_MONOTONIC: when it had the document, and how long the generation of the key took.
#include <local/local.h>

#include <dlfcn.h>
#include <openssl/evp.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>

namespace {

double generation = 0;

double milliseconds() {
  timespec time{};
  clock_gettime(CLOCK_MONOTONIC, &time);
  return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_nsec) * 1e-6;
}

}  // namespace

// Stands before OpenSSL's own, which has the size in bits as its only further argument for RSA.
extern "C" __attribute__((visibility("default"))) EVP_PKEY* EVP_PKEY_Q_keygen(
    OSSL_LIB_CTX* library, const char* properties, const char* type, ...) {
  using Generate = EVP_PKEY* (*)(OSSL_LIB_CTX*, const char*, const char*, ...);
  static const auto generate = reinterpret_cast<Generate>(dlsym(RTLD_NEXT, "EVP_PKEY_Q_keygen"));
  va_list arguments;
  va_start(arguments, type);
  const auto bits = va_arg(arguments, std::size_t);
  va_end(arguments);
  const double start = milliseconds();
  EVP_PKEY* const key = generate(library, properties, type, bits);
  generation = milliseconds() - start;
  return key;
}

int main() {
  kvl::setHostIdentifier("org.example.StartupProbe");
  const auto session = KVLSession::sessionWithNotary(KVLNotary::sharedNotary(), {});
  kvl::Semaphore done;
  bool good = false;
  const auto observation = session->observeState([&](KVLSessionState state) {
    if (state == KVLSessionStateConnecting) return;
    session->request(kvl::URLRequest("status"),
                     [&](auto&&, const kvl::URLResponseRef& response, auto&&) {
                       good = response && response->httpStatusCode == 200;
                       done.signal();
                     });
  });
  const bool answered = done.waitFor(std::chrono::seconds(30));
  const double now = milliseconds();
  if (!answered || !good || generation == 0) return EXIT_FAILURE;
  std::printf("%.3f %.3f\n", now, generation);
  std::fflush(stdout);
  std::_Exit(EXIT_SUCCESS);  // the session's observers are still registered
}
