#include "platform/security/PairGeneration.h"

#include "platform/core/ProcessExit.h"
#include "platform/core/Threads.h"
#include "platform/security/OpenSSLAccess.h"
#include "platform/security/Operations.h"

#include <local/platform/Mutex.h>

#include <openssl/rsa.h>

#include <atomic>
#include <utility>

namespace kvl::security {
namespace {

// The public half as an object that has no private part to give away.
KeyRef publicHalf(EVP_PKEY* pair) {
  unsigned char* buffer = nullptr;
  const int size = i2d_PUBKEY(pair, &buffer);
  const OpenSSLPtr<unsigned char> owner(buffer);
  if (size <= 0) return nullptr;
  return decodeKey({buffer, static_cast<std::size_t>(size)}, Key::Class::publicKey);
}

}  // namespace

std::optional<KeyPair> generatePair(unsigned int sizeInBits) {
  const ErrorQueueMark mark;
  OpenSSLPtr<EVP_PKEY> pair(EVP_RSA_gen(sizeInBits));
  if (!pair) return std::nullopt;
  KeyRef publicKey = publicHalf(pair.get());
  if (!publicKey) return std::nullopt;
  return KeyPair{std::move(publicKey), makeKey(pair.release(), Key::Class::privateKey)};
}

struct PairGeneration::State {
  explicit State(unsigned int size) : sizeInBits(size) {}

  const unsigned int sizeInBits;
  std::atomic<bool> isBegun = false;  // by whoever sets it, who then makes the pair
  Mutex mutex;
  Condition changed;
  bool isDone KVL_GUARDED_BY(mutex) = false;
  std::optional<KeyPair> pair KVL_GUARDED_BY(mutex);
};

// While the process exits the thread does not get past its first line, and has then begun nothing
// that anybody would wait for.
PairGeneration::PairGeneration(unsigned int sizeInBits)
    : state_(std::make_shared<State>(sizeInBits)) {
  core::prepareForExit();
  keepOpenSSLUntilTheEnd();
  static_cast<void>(core::startThread("kvl-keygen", [state = state_] {
    const core::ThreadWork work;
    if (state->isBegun.exchange(true)) return;
    auto pair = generatePair(state->sizeInBits);
    const MutexLock lock(state->mutex);
    state->pair = std::move(pair);
    state->isDone = true;
    state->changed.notifyAll();
  }));
}

unsigned int PairGeneration::sizeInBits() const noexcept {
  return state_->sizeInBits;
}

bool PairGeneration::isDone() const noexcept {
  const MutexLock lock(state_->mutex);
  return state_->isDone;
}

std::optional<KeyPair> PairGeneration::take() {
  if (!state_->isBegun.exchange(true)) return generatePair(state_->sizeInBits);
  MutexLock lock(state_->mutex);
  while (!state_->isDone) state_->changed.wait(lock);
  return std::exchange(state_->pair, std::nullopt);
}

}  // namespace kvl::security
