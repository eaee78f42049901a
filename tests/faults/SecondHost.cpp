// A second copy of a host: follows the notary until it is asked to end.
#include <local/local.h>

#include <csignal>
#include <cstdio>
#include <memory>

namespace {

sigset_t endSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGTERM);
  return signals;
}

}  // namespace

int main(int count, char** arguments) {
  const sigset_t signals = endSignals();
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);  // before any thread exists
  if (count > 1) kvl::setHostIdentifier(arguments[1]);
  const auto session = KVLSession::sessionWithNotary(nullptr, {});
  const auto states = session->observeState([](KVLSessionState state) {
    if (state != KVLSessionStateEstablished) return;
    std::puts("second host established");
    std::fflush(stdout);
  });
  int signal = 0;
  sigwait(&signals, &signal);
  return 0;
}
