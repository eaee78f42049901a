// The key pair and the signing request of a notary, and who waits for them or for their end.
#pragma once

#include "platform/environment/Environment.h"
#include "platform/security/HeldKey.h"

#include <local/platform/Atomic.h>
#include <local/platform/Error.h>
#include <local/platform/Mutex.h>
#include <local/platform/Security.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kvl::notary {

// Keys come and go: none, being made, there, being removed, none. Making takes time and the key
// store may take more, so both happen on the lookup queue, unless somebody wants to wait. Blocks
// hold this rather than the notary, which may go meanwhile. Thread-safe.
class NotaryKeys : public std::enable_shared_from_this<NotaryKeys> {
 public:
  // Gets null when the keys will not be there.
  using Asker = std::function<void(const NotaryKeys* keys)>;
  using Ended = std::function<void(std::optional<Error>)>;

  explicit NotaryKeys(std::shared_ptr<const Environment> environment);

  Atomic<KeyRef> publicKey;
  // Held, so that identities can be made with it while the notary lives, whoever deletes its entry
  // in the key store and whether or not that store answers.
  security::HeldKey privateKey;
  Atomic<std::optional<std::string>> request;

  // There are none, and never will be.
  void doWithout();
  // Keys are there when it returns, unless they could not be made.
  void make();
  void makeInBackground();
  // Calls `asker` as soon as they are there, at once if they are, with no lock held.
  void whenReady(Asker asker);

  void addUser();
  void removeUser();
  // Removes the keys after the last user; `ended` is called once, with no lock held. Those who wait
  // for the keys will not get them.
  void endUser(Ended ended);

  // The notary goes, and the keys with it: here, or where they are being made.
  void close();

 private:
  enum class Phase { none, making, ready, removing };

  // Waits until nothing is under way. False when there is nothing to make.
  [[nodiscard]] bool beginMaking();
  void startMaking() KVL_REQUIRES(mutex_);
  void startRemoving() KVL_REQUIRES(mutex_);
  [[nodiscard]] bool isWanted();
  void produce();
  void finishMaking();
  void remove();
  [[nodiscard]] std::optional<Error> deleteFromStore() const;

  const std::shared_ptr<const Environment> environment_;
  Mutex mutex_;
  Condition changed_;
  Phase phase_ KVL_GUARDED_BY(mutex_) = Phase::none;
  bool ownsKeys_ KVL_GUARDED_BY(mutex_) = true;
  bool isClosed_ KVL_GUARDED_BY(mutex_) = false;
  std::size_t users_ KVL_GUARDED_BY(mutex_) = 0;
  std::vector<Asker> waiting_ KVL_GUARDED_BY(mutex_);
  std::vector<Ended> removals_ KVL_GUARDED_BY(mutex_);
};

}  // namespace kvl::notary
