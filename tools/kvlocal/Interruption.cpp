#include "tools/kvlocal/Interruption.h"

#include "tools/kvlocal/ExitCode.h"

#include <pthread.h>
#include <signal.h>

#include <cstdlib>
#include <utility>

namespace kvlocal {
namespace {

sigset_t watchedSignals() {
  sigset_t set;
  sigemptyset(&set);
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&set, number);
  return set;
}

}  // namespace

Interruption::Interruption(std::shared_ptr<Rendezvous> rendezvous)
    : rendezvous_(std::move(rendezvous)) {
  const sigset_t set = watchedSignals();
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
  thread_ = std::thread([this] { watch(); });
}

Interruption::~Interruption() {
  ending_ = true;
  // It is blocked and only wakes the thread. NOLINTNEXTLINE(bugprone-bad-signal-to-kill-thread)
  pthread_kill(thread_.native_handle(), SIGTERM);
  thread_.join();
}

void Interruption::watch() {
  const sigset_t set = watchedSignals();
  int number = 0;
  for (bool interrupted = false; sigwait(&set, &number) == 0 && !ending_; interrupted = true) {
    if (interrupted) std::_Exit(static_cast<int>(ExitCode::interrupted));
    rendezvous_->interrupt();
  }
}

}  // namespace kvlocal
